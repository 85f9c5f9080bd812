/* The records and the exports, as C sees them. */
#include "tests/delay_audio/HostRecordsInC.h"

#include "delay_audio/Exports.h"

/* Each export has one type, in both languages: its address is taken here. */
static uint32_t(HARVANE_CALL* const kOpen)(void**) = xOpen;
static uint32_t(HARVANE_CALL* const kClose)(void*) = xClose;
static uint32_t(HARVANE_CALL* const kDeliver)(void*, uint32_t, PcmUnit*,
                                              uint32_t*) = xDeliverPcmUnit;
static uint32_t(HARVANE_CALL* const kFetch)(void*, uint32_t, PcmUnit**, uint32_t*) = xFetchPcmUnit;

RecordLayout RecordLayoutInC(void) {
  const RecordLayout layout = {
      sizeof(PcmUnit),
      offsetof(PcmUnit, release),
      offsetof(PcmUnit, data),
      offsetof(PcmUnit, stride),
      offsetof(PcmUnit, sampleCount),
      offsetof(PcmUnit, reserved2),
      sizeof(InfoBuffer),
      offsetof(InfoBuffer, release),
      offsetof(InfoBuffer, data),
      offsetof(InfoBuffer, size),
      offsetof(InfoBuffer, reserved2),
      sizeof(ChunkHeader),
      sizeof(VidePayload),
      sizeof(LpcmPayload),
      sizeof(InstanceInformation),
      sizeof(PassArgument),
      kInfoBufferType,
      kPcmUnitType,
  };
  return layout;
}

uint32_t NoFrameThroughC(void) {
  void* handle = NULL;
  uint32_t flag = 7;
  uint32_t failures = kOpen(&handle);
  PcmUnit* unit = NULL;
  failures += kDeliver(handle, 0, unit, &flag);
  failures += flag == 7 ? 0 : 1;
  (void)kFetch;
  return failures + kClose(handle);
}
