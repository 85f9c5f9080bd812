#include "delay_audio/RecordRelease.h"

#include <cstring>

namespace harvane {

extern "C" HARVANE_HOST_ENTRY uint32_t HARVANE_CALL ReleaseInfoBuffer(void* record) {
  auto* const buffer = static_cast<InfoBuffer*>(record);
  delete[] static_cast<unsigned char*>(buffer->data);
  delete buffer;
  return 0;
}

extern "C" HARVANE_HOST_ENTRY uint32_t HARVANE_CALL ReleasePcmUnit(void* record) {
  auto* const unit = static_cast<PcmUnit*>(record);
  for (int16_t* samples : unit->data) delete[] samples;
  delete unit;
  return 0;
}

OwnedPcmUnit MakePcmUnit() {
  auto* const unit = new PcmUnit();
  unit->type = kPcmUnitType;
  unit->release = ReleasePcmUnit;
  return OwnedPcmUnit(unit);
}

OwnedInfoBuffer MakeInfoBuffer(const void* bytes, std::size_t size) {
  auto* const record = new InfoBuffer();
  record->type = kInfoBufferType;
  record->release = ReleaseInfoBuffer;
  OwnedInfoBuffer buffer(record);
  auto* const blob = new unsigned char[size];
  buffer->data = blob;
  buffer->size = static_cast<uint32_t>(size);
  std::memcpy(blob, bytes, size);
  return buffer;
}

}  // namespace harvane
