#include <cstring>
#include <stdexcept>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/RecordRelease.h"
#include "platform/DiagnosticLine.h"
#include "platform/FatalStop.h"

namespace harvane {
namespace {

constexpr float kFrameRateFromVideo = 1.0F;
// Deliberate: the single-precision 0.005 lies just under 0.005, so rates that
// 200 divides lose one sample: 239 at 48000. Test: BlockSizeIsOneShortWhere200Divides.
constexpr double kChunkSeconds = static_cast<double>(0.005F);

struct InputOffer {
  ChunkHeader videHeader;
  VidePayload vide;
  ChunkHeader lpcmHeader;
  LpcmPayload lpcm;
};
static_assert(sizeof(InputOffer) == 120);

struct OutputOffer {
  ChunkHeader header;
  LpcmPayload lpcm;
};
static_assert(sizeof(OutputOffer) == 48);

int WholeFrameRate(float frameRate, bool hasVideo, const VidePayload& video) {
  if (frameRate != kFrameRateFromVideo) {
    return TruncateToInt(static_cast<double>(frameRate) + 0.5);
  }
  if (!hasVideo) return 0;
  if (video.frameRateDenominator == 0) FatalStop("frame rate with denominator 0");
  return static_cast<int>(video.frameRateNumerator / video.frameRateDenominator);
}

}  // namespace

InfoBuffer* DelayAudio::EnumInputInfo() {
  InputOffer offer{};
  offer.videHeader = {HARVANE_TAG_VIDE, sizeof offer.vide};
  offer.vide.word28 = 3;
  offer.vide.word32 = -1;
  offer.lpcmHeader = {HARVANE_TAG_LPCM, sizeof offer.lpcm};
  offer.lpcm.sampleRate = 48000;
  offer.lpcm.bitsPerSample = 16;
  offer.lpcm.word16 = 2;
  WriteDiagnosticLine("Sent InfoBuffer size: " + juce::String(sizeof offer));
  return MakeInfoBuffer(&offer, sizeof offer).release();
}

void DelayAudio::SetInputInfo(InfoBuffer* info) {
  WriteDiagnosticLine("Received InfoBuffer size: " + juce::String(info->size));
  const auto* const blob = static_cast<const unsigned char*>(info->data);
  bool hasVideo = false;
  // 64 bits: a chunk's size may point far past the end.
  for (std::uint64_t cursor = 0; cursor < info->size;) {
    ChunkHeader header{};
    std::memcpy(&header, blob + cursor, sizeof header);
    const unsigned char* const payload = blob + cursor + sizeof header;
    if (header.tag == HARVANE_TAG_VIDE) {
      std::memcpy(&videoInfo, payload, sizeof videoInfo);
      hasVideo = true;
    } else if (header.tag == HARVANE_TAG_LPCM) {
      std::memcpy(&inputFormat, payload, sizeof inputFormat);
    }
    cursor += sizeof header + static_cast<std::uint64_t>(header.size);
  }
  timecodeFrameRate = WholeFrameRate(frameRate, hasVideo, videoInfo);
  sampleRate = static_cast<int>(inputFormat.sampleRate);
  blockSize = static_cast<std::uint32_t>(TruncateToInt(sampleRate * kChunkSeconds));
  info->release(info);
}

InfoBuffer* DelayAudio::EnumOutputInfo() const {
  const OutputOffer offer = {{HARVANE_TAG_LPCM, sizeof inputFormat}, inputFormat};
  return MakeInfoBuffer(&offer, sizeof offer).release();
}

void DelayAudio::SetOutputInfo(InfoBuffer* info) {
  const auto* const firstPayload =
      static_cast<const unsigned char*>(info->data) + sizeof(ChunkHeader);
  if (std::memcmp(&inputFormat, firstPayload, sizeof inputFormat) != 0) {
    throw std::logic_error("[DelayAudio::SetOutputInfo] not expected.");
  }
  info->release(info);
}

InfoBuffer* DelayAudio::GetErrorMessage() {
  OwnedInfoBuffer message = MakeInfoBuffer(lastErrorText.c_str(), lastErrorText.size() + 1);
  lastErrorText.clear();
  return message.release();
}

}  // namespace harvane
