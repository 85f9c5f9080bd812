#include "delay_audio/DelayAudio.h"

namespace harvane {
namespace {

// A track has one gain; its control path is entry 0 of the limiter's lists.
constexpr int kControl = 0;

std::size_t Index(int i) { return static_cast<std::size_t>(i); }

float GainFor(TruePeakLimiter* limiter, float peak) {
  limiter->ToDecibels(peak, kControl);
  limiter->ApplyStaticCurve(limiter->InputLevel(kControl), kControl);
  limiter->TakeReduction(kControl);
  limiter->SmoothReduction(limiter->Reduction(kControl), kControl);
  limiter->ApplyMakeup(kControl);
  limiter->ToLinear(kControl);
  return limiter->LinearGain(kControl);
}

}  // namespace

// Three stages, each over all channels or tracks before the next: the peaks to
// come, one gain per track, and the output 95 frames after its peak was seen.
void DelayAudio::ProcessFrame(const PcmUnit& unit, std::uint32_t s) {
  CheckedList<float> framePeaks;
  CheckedList<float> frameGains;
  int k = 0;
  int t = 0;

  for (int c = 0; c < ChannelCount(); ++c) {
    const float x = ReadSample(unit, s, c);
    if (!LookupChannel(c, &k, &t)) continue;
    if (!limiterNeeded[Index(t)]) {
      framePeaks.Append(0.0F);
      continue;
    }
    TruePeakLimiter& limiter = *limiters[Index(t)];
    const TruePeakMeter& truePeakMeter = *truePeakMeters[Index(t)];
    const float y = x * trackGains[Index(t)];
    limiter.PushLookAhead(y, k);
    limiter.PushDelay(y, k);
    framePeaks.Append(
        Abs(limiter.PeakEstimate(k, truePeakMeter.GetPhases(), truePeakMeter.GetBank())));
  }

  std::size_t cursor = 0;
  for (std::size_t track = 0; track < trackChannelCounts.Size(); ++track) {
    const int channels = trackChannelCounts[track];
    const float* const first = &framePeaks[cursor];
    cursor += Index(channels);
    static_cast<void>(
        framePeaks[cursor - 1]);  // a format with fewer channels than the layout ends here
    const float peak = sampleMath.MaxOf(first, channels);
    // Deliberate: at a peak of exactly 0.0 the smoothing stands still, so digital
    // silence does not release the limiter. Test: SilenceFreezesTheReduction.
    const bool isPlain = !limiterNeeded[track] || peak == 0.0F;
    frameGains.Append(isPlain ? 1.0F : GainFor(limiters[track], peak));
  }

  for (int c = 0; c < ChannelCount(); ++c) {
    const float x = ReadSample(unit, s, c);
    if (!LookupChannel(c, &k, &t)) {
      outputAccumulators[Index(c)].Append(x);
      continue;
    }
    const float out = limiterNeeded[Index(t)]
                          ? frameGains[Index(t)] * limiters[Index(t)]->DelayedSample(k)
                          : x * trackGains[Index(t)];
    outputAccumulators[Index(c)].Append(out);
    GatherForMeasuring(c, k, t, out);
  }
}

}  // namespace harvane
