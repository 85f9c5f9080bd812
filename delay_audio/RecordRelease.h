#ifndef HARVANE_DELAY_AUDIO_RECORDRELEASE_H
#define HARVANE_DELAY_AUDIO_RECORDRELEASE_H

#include <memory>

#include "delay_audio/HostRecords.h"

// The host may enter with a stack aligned to 4 bytes only; the code below wants 16.
#if defined(__i386__)
#define HARVANE_HOST_ENTRY __attribute__((force_align_arg_pointer))
#else
#define HARVANE_HOST_ENTRY
#endif

namespace harvane {

// Frees the blob if there is one, then the record. Returns 0. Host's thread.
extern "C" uint32_t HARVANE_CALL ReleaseInfoBuffer(void* record);

// Frees all 64 data entries, whatever sampleCount says, then the record. Returns 0.
extern "C" uint32_t HARVANE_CALL ReleasePcmUnit(void* record);

// Ends a record by its own release.
struct RecordRelease {
  template <class Record>
  void operator()(Record* record) const {
    record->release(record);
  }
};

// A record under construction, until it is handed over.
using OwnedInfoBuffer = std::unique_ptr<InfoBuffer, RecordRelease>;
using OwnedPcmUnit = std::unique_ptr<PcmUnit, RecordRelease>;

// A zeroed unit of the module's type, without samples. Throws std::bad_alloc.
OwnedPcmUnit MakePcmUnit();

// A record that holds a copy of `size` bytes. Throws std::bad_alloc.
OwnedInfoBuffer MakeInfoBuffer(const void* bytes, std::size_t size);

}  // namespace harvane

#endif  // HARVANE_DELAY_AUDIO_RECORDRELEASE_H
