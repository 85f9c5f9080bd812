#include "delay_audio/DelayAudio.h"
#include "normalisation/GainDecision.h"

namespace harvane {

void DelayAudio::DecideGains() {
  trackGains.Clear();
  limiterNeeded.Clear();
  const NormalisationTargets targets = {normalisationMode, Loudness, ShortTermLoudness, MaxTP};
  for (std::size_t t = 0; t < trackChannelCounts.Size(); ++t) {
    const GainDecision decision = DecideGain(results[t], targets);
    limiterNeeded.Append(decision.limiterNeeded);
    trackGains.Append(decision.linearGain);
    limiters[t]->Init(trackChannelCounts[t], sampleRate);
    limiters[t]->SetThreshold(LimiterThreshold(MaxTP));
    results[t] = TrackMeasurement();
    truePeakMeters[t]->StartOver();
    meters[t]->ClearSeries();
    meters[t]->SetMode(LoudnessMeter::kGated);
  }
}

}  // namespace harvane
