#include "normalisation/GainDecision.h"

#include <cmath>

namespace harvane {
namespace {

constexpr int kProgramLoudnessMode = 0;
constexpr float kThresholdMarginDb = 0.2F;

float GainDbFor(const TrackMeasurement& measured, const NormalisationTargets& targets) {
  if (targets.normalisationMode == kProgramLoudnessMode) {
    return targets.loudness - measured.integratedLoudness;
  }
  const float gainDb = targets.shortTermLoudness - measured.maxShortTerm;
  return gainDb > 0.0F ? 0.0F : gainDb;
}

}  // namespace

GainDecision DecideGain(const TrackMeasurement& measured, const NormalisationTargets& targets) {
  GainDecision decision{};
  decision.gainDb = GainDbFor(measured, targets);
  const float expectedPeak = measured.maxTruePeak + decision.gainDb;
  decision.headroomDb = targets.maxTruePeak - expectedPeak;
  decision.limiterNeeded = decision.headroomDb < 0.0F;
  const auto exponent = static_cast<float>(static_cast<double>(decision.gainDb) / 20.0);
  decision.linearGain = static_cast<float>(std::pow(10.0, static_cast<double>(exponent)));
  return decision;
}

float LimiterThreshold(float maxTruePeak) {
  return static_cast<float>(static_cast<double>(maxTruePeak) - kThresholdMarginDb);
}

}  // namespace harvane
