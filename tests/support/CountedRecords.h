#ifndef HARVANE_TESTS_SUPPORT_COUNTEDRECORDS_H
#define HARVANE_TESTS_SUPPORT_COUNTEDRECORDS_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "delay_audio/HostRecords.h"
#include "tool/validate/CountedRecords.h"

// The records that count how often the module ends them, and format blobs.

namespace support {

using harvane::Arrangement;
using harvane::CountedInfo;
using harvane::CountedUnit;
using harvane::kJunkByte;
using harvane::kJunkType;

// ---- format blobs

using Blob = std::vector<unsigned char>;

// Appends a chunk whose header declares `declaredSize` bytes.
inline void AppendChunk(Blob* blob, std::uint32_t tag, const void* payload, std::size_t size,
                        std::uint32_t declaredSize) {
  const ChunkHeader header = {tag, declaredSize};
  const std::size_t start = blob->size();
  blob->resize(start + sizeof header + size);
  std::memcpy(blob->data() + start, &header, sizeof header);
  std::memcpy(blob->data() + start + sizeof header, payload, size);
}

// An LPCM payload with junk in all that the module does not interpret.
inline LpcmPayload Lpcm(std::uint32_t sampleRate, std::uint32_t channels) {
  LpcmPayload lpcm;
  std::memset(&lpcm, kJunkByte, sizeof lpcm);
  lpcm.sampleRate = sampleRate;
  lpcm.channels = channels;
  return lpcm;
}

inline VidePayload Vide(std::uint32_t numerator, std::uint32_t denominator) {
  VidePayload vide;
  std::memset(&vide, kJunkByte, sizeof vide);
  vide.frameRateNumerator = numerator;
  vide.frameRateDenominator = denominator;
  return vide;
}

inline Blob LpcmBlob(const LpcmPayload& lpcm) {
  Blob blob;
  AppendChunk(&blob, HARVANE_TAG_LPCM, &lpcm, sizeof lpcm, sizeof lpcm);
  return blob;
}

inline Blob FormatBlob(std::uint32_t sampleRate, std::uint32_t channels) {
  return LpcmBlob(Lpcm(sampleRate, channels));
}

inline Blob FormatBlobWithVideo(std::uint32_t sampleRate, std::uint32_t channels,
                                const VidePayload& vide) {
  Blob blob;
  AppendChunk(&blob, HARVANE_TAG_VIDE, &vide, sizeof vide, sizeof vide);
  const Blob lpcm = FormatBlob(sampleRate, channels);
  blob.insert(blob.end(), lpcm.begin(), lpcm.end());
  return blob;
}

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_COUNTEDRECORDS_H
