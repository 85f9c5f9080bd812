#include <algorithm>

#include "delay_audio/DelayAudio.h"
#include "measurement/ChunkKernels.h"
#include "platform/FatalStop.h"

namespace harvane {
namespace {

std::size_t Index(int i) { return static_cast<std::size_t>(i); }

// Of equal peaks either; a NaN in the first channel stays.
void TakeLarger(const float* other, std::size_t n, float* largest) {
  for (std::size_t i = 0; i < n; ++i) {
    largest[i] = largest[i] < other[i] ? other[i] : largest[i];  // no branch: either may be larger
  }
}

}  // namespace

void DelayAudio::ProcessFrame(const PcmUnit& unit, std::uint32_t s) {
  MeasuredChannel channels[kMaxChannels];
  ProcessFrames(unit, s, 1, channels, FindMeasuredChannels(channels));
}

// Three stages, each over all channels or tracks before the next: the peaks to
// come, one gain per track, and the output 95 frames after its peak was seen.
void DelayAudio::ProcessFrames(const PcmUnit& unit, std::uint32_t s, std::uint32_t frames,
                               const MeasuredChannel* channels, int count) {
  const std::size_t n = frames;
  const std::size_t runLength = n + kDelaySamples - 1;
  const std::size_t tracks = trackChannelCounts.Size();
  frameScratch.resize(Index(count) * runLength + 2 * n + tracks * n);
  MakeInputRoom(channels, count, frames);
  MakeOutputRoom(frames);
  float* const peaks = frameScratch.data() + Index(count) * runLength;
  float* const trackPeaks = peaks + n;
  float* const gains = trackPeaks + n;
  const auto runOf = [&](int i) { return frameScratch.data() + Index(i) * runLength; };

  int next = 0;
  for (std::size_t t = 0; t < tracks; ++t) {
    const int end = next + trackChannelCounts[t];
    // A format with fewer channels than the layout.
    if (end > count) FatalStop("a track without its channels");
    const float gain = trackGains[t];
    for (int i = next; i < end; ++i) {
      float* const run = runOf(i) + kDelaySamples - 1;
      ReadSamples(unit, s, frames, channels[i].c, run);
      for (std::size_t j = 0; j < n; ++j) run[j] *= gain;
    }
    if (limiterNeeded[t]) {
      TruePeakLimiter& limiter = *limiters[t];
      const PolyphaseBank* const bank = truePeakMeters[t]->GetBank();
      if (bank == nullptr) FatalStop("a peak estimate without phases");
      for (int i = next; i < end; ++i) {
        limiter.PushRun(runOf(i), static_cast<int>(n), channels[i].k);
        float* const target = i == next ? trackPeaks : peaks;
        ActiveKernels().peaks(runOf(i) + kDelaySamples - 1, static_cast<int>(n), *bank,
                              limiter.KneeStart(), target);
        if (i != next) TakeLarger(peaks, n, trackPeaks);
      }
      limiter.GainsFor(trackPeaks, static_cast<int>(n), gains + t * n);
    }
    next = end;
  }

  for (int i = 0; i < count; ++i) {
    const MeasuredChannel& channel = channels[i];
    float* const out = outputAccumulators[Index(channel.c)].Extend(n);
    if (limiterNeeded[Index(channel.t)]) {
      const float* const trackGain = gains + Index(channel.t) * n;
      const float* const delayed = runOf(i);
      for (std::size_t j = 0; j < n; ++j) out[j] = trackGain[j] * delayed[j];
    } else {
      const float* const gained = runOf(i) + kDelaySamples - 1;
      std::copy(gained, gained + n, out);
    }
    std::copy(out, out + n, inputAccumulators[Index(channel.c)].Extend(n));
  }
  int tracked = 0;
  for (int c = 0; c < ChannelCount(); ++c) {
    if (tracked < count && channels[tracked].c == c) {
      ++tracked;
    } else {
      ReadSamples(unit, s, frames, c, outputAccumulators[Index(c)].Extend(n));
    }
  }
  FinishFrames(channels, count, frames);
}

}  // namespace harvane
