#ifndef HARVANE_DELAY_AUDIO_HOSTRECORDS_H
#define HARVANE_DELAY_AUDIO_HOSTRECORDS_H

/*
 * The records exchanged with the host, as C. On the 32-bit target their layout
 * is the wire format, byte for byte; a 64-bit build has the same fields with
 * pointers of its own width. Integers are little-endian.
 *
 * Ownership: whoever receives a PcmUnit or an InfoBuffer ends it, once, by
 * record->release(record). Instance information, pass argument and out-flag stay
 * the host's.
 */

#include <stddef.h>
#include <stdint.h>

#ifdef _WIN32
#define HARVANE_CALL __cdecl
#else
#define HARVANE_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Frees the record at its address and what hangs from it. Returns 0. */
typedef uint32_t(HARVANE_CALL* ReleaseFunction)(void* record);

enum { kPcmUnitChannels = 64 };

/* Audio of one call, both ways. Sample s of channel c is the signed 16-bit value
 * at data[c][s * stride[c]]. */
typedef struct PcmUnit {
  uint32_t type; /* kPcmUnitType in what the module makes; not read by it */
  ReleaseFunction release;
  uint8_t reserved1[16];             /* zero in what the module makes; not read */
  int16_t* data[kPcmUnitChannels];   /* first sample of the channel; null where unused */
  uint32_t stride[kPcmUnitChannels]; /* samples from one sample of the channel to the next */
  uint32_t sampleCount;              /* samples per channel */
  uint8_t reserved2[16];             /* zero in what the module makes; not read */
} PcmUnit;

/* A blob of bytes: format chunks, or a text with its NUL, which `size` counts. */
typedef struct InfoBuffer {
  uint32_t type; /* kInfoBufferType in what the module makes; not read by it */
  ReleaseFunction release;
  uint8_t reserved1[16]; /* zero in what the module makes; not read */
  void* data;
  uint32_t size;         /* bytes */
  uint8_t reserved2[16]; /* zero in what the module makes; not read */
} InfoBuffer;

enum { kInfoBufferType = 0, kPcmUnitType = 2 };

/* Header of a chunk of the format blob; `size` bytes of payload follow. Chunks of
 * other tags are skipped by their size. */
typedef struct ChunkHeader {
  uint32_t tag;
  uint32_t size;
} ChunkHeader;

/* Four letters as one number, the first in the top byte. */
#define HARVANE_TAG_VIDE 0x56494445u
#define HARVANE_TAG_LPCM 0x4C50434Du

/* Video properties of the source. */
typedef struct VidePayload {
  uint8_t reserved1[20];
  uint32_t frameRateNumerator;
  uint32_t frameRateDenominator;
  int32_t word28; /* 3 in the module's offer; not read */
  int32_t word32; /* -1 in the module's offer; not read */
  uint8_t reserved2[28];
} VidePayload;

/* Linear PCM format of the audio. The module keeps all 40 bytes as they come. */
typedef struct LpcmPayload {
  int32_t word0;       /* 0 in the module's offer; not read */
  uint32_t sampleRate; /* Hz */
  uint32_t channels;
  int32_t bitsPerSample; /* 16 in the module's offer; not read: samples are 16 bits */
  int32_t word16;        /* 2 in the module's offer; not read */
  uint8_t reserved[20];
} LpcmPayload;

/* The host's buffer for xGetInstanceInformation. */
typedef struct InstanceInformation {
  uint8_t id[16];
  char name[256];
  char description[1152];
} InstanceInformation;

/* Argument of xStartPassEx: 0 for the first pass, 1 for the second. */
typedef struct PassArgument {
  uint32_t passNumber;
} PassArgument;

#ifdef __cplusplus
}
#define HARVANE_LAYOUT_ASSERT(condition) static_assert(condition, #condition)
#else
#define HARVANE_LAYOUT_ASSERT(condition) _Static_assert(condition, #condition)
#endif

HARVANE_LAYOUT_ASSERT(sizeof(ChunkHeader) == 8);
HARVANE_LAYOUT_ASSERT(sizeof(VidePayload) == 64);
HARVANE_LAYOUT_ASSERT(offsetof(VidePayload, frameRateNumerator) == 20);
HARVANE_LAYOUT_ASSERT(offsetof(VidePayload, frameRateDenominator) == 24);
HARVANE_LAYOUT_ASSERT(offsetof(VidePayload, word28) == 28);
HARVANE_LAYOUT_ASSERT(offsetof(VidePayload, word32) == 32);
HARVANE_LAYOUT_ASSERT(sizeof(LpcmPayload) == 40);
HARVANE_LAYOUT_ASSERT(offsetof(LpcmPayload, sampleRate) == 4);
HARVANE_LAYOUT_ASSERT(offsetof(LpcmPayload, channels) == 8);
HARVANE_LAYOUT_ASSERT(offsetof(LpcmPayload, bitsPerSample) == 12);
HARVANE_LAYOUT_ASSERT(offsetof(LpcmPayload, word16) == 16);
HARVANE_LAYOUT_ASSERT(sizeof(InstanceInformation) == 1424);
HARVANE_LAYOUT_ASSERT(offsetof(InstanceInformation, name) == 16);
HARVANE_LAYOUT_ASSERT(offsetof(InstanceInformation, description) == 272);

#if UINTPTR_MAX == 0xFFFFFFFFu
HARVANE_LAYOUT_ASSERT(sizeof(PcmUnit) == 556);
HARVANE_LAYOUT_ASSERT(offsetof(PcmUnit, release) == 4);
HARVANE_LAYOUT_ASSERT(offsetof(PcmUnit, data) == 24);
HARVANE_LAYOUT_ASSERT(offsetof(PcmUnit, stride) == 280);
HARVANE_LAYOUT_ASSERT(offsetof(PcmUnit, sampleCount) == 536);
HARVANE_LAYOUT_ASSERT(offsetof(PcmUnit, reserved2) == 540);
HARVANE_LAYOUT_ASSERT(sizeof(InfoBuffer) == 48);
HARVANE_LAYOUT_ASSERT(offsetof(InfoBuffer, release) == 4);
HARVANE_LAYOUT_ASSERT(offsetof(InfoBuffer, data) == 24);
HARVANE_LAYOUT_ASSERT(offsetof(InfoBuffer, size) == 28);
HARVANE_LAYOUT_ASSERT(offsetof(InfoBuffer, reserved2) == 32);
#endif

#endif /* HARVANE_DELAY_AUDIO_HOSTRECORDS_H */
