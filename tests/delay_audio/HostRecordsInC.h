#ifndef HARVANE_TESTS_DELAY_AUDIO_HOSTRECORDSINC_H
#define HARVANE_TESTS_DELAY_AUDIO_HOSTRECORDSINC_H

#include "delay_audio/HostRecords.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sizes and offsets in bytes, and the two type words, as one language sees them. */
typedef struct RecordLayout {
  size_t unitSize;
  size_t unitRelease;
  size_t unitData;
  size_t unitStride;
  size_t unitSampleCount;
  size_t unitReserved2;
  size_t infoSize;
  size_t infoRelease;
  size_t infoData;
  size_t infoByteCount;
  size_t infoReserved2;
  size_t chunkHeaderSize;
  size_t videSize;
  size_t lpcmSize;
  size_t informationSize;
  size_t passArgumentSize;
  int infoType;
  int unitType;
} RecordLayout;

RecordLayout RecordLayoutInC(void);

/* Opens an instance, delivers no unit and closes it, from C. 0 where all went well. */
uint32_t NoFrameThroughC(void);

#ifdef __cplusplus
}
#endif

#endif /* HARVANE_TESTS_DELAY_AUDIO_HOSTRECORDSINC_H */
