#include "normalisation/TruePeakLimiter.h"

#include <cmath>

#include "measurement/SampleMath.h"

namespace harvane {
namespace {

constexpr float kAttackSeconds = 0.0F;
constexpr float kReleaseSeconds = 0.7F;
constexpr float kDefaultThresholdDb = -1.0F;
constexpr float kDefaultRatio = 100.0F;
constexpr float kDefaultKneeDb = 12.0F;
constexpr float kDefaultMakeupDb = 0.0F;
constexpr float kEuler = 2.7182817459106445F;  // e, held in single precision

}  // namespace

void TruePeakLimiter::Init(int channelCount, int rate) {
  sampleRate = rate;
  for (int c = 0; c < channelCount; ++c) {
    for (CheckedList<float>* list :
         {&reduction, &inputLevel, &curveOutput, &smoothed, &peakHold, &control, &linearGain}) {
      list->Append(0.0F);
    }
    lookAheadLines.Append({});
    delayLines.Append({});
  }
  SetAttack(kAttackSeconds);
  SetRelease(kReleaseSeconds);
  threshold = kDefaultThresholdDb;
  ratio = kDefaultRatio;
  knee = kDefaultKneeDb;
  makeup = kDefaultMakeupDb;
}

void TruePeakLimiter::PushLookAhead(float sample, int channel) {
  lookAheadLines[Index(channel)].Push(sample);
}

void TruePeakLimiter::PushDelay(float sample, int channel) {
  delayLines[Index(channel)].Push(sample);
}

float TruePeakLimiter::PeakEstimate(int channel, int phases, const PolyphaseBank* bank) const {
  const SampleLine<kLookAheadSamples>& line = lookAheadLines[Index(channel)];
  CheckedList<float> sums;
  for (int p = 0; p < phases; ++p) {
    const float* coefficients = bank->branches[p].coefficients;
    float sum = 0.0F;
    for (int k = 0; k < kLookAheadSamples; ++k) {
      sum = static_cast<float>(static_cast<double>(coefficients[k]) * line.OfAge(k) + sum);
    }
    sums.Append(sum);
  }
  const SampleMath math;
  float* const first = &sums[0];
  math.AbsInPlace(first, phases);
  return math.MaxOf(first, phases);
}

float TruePeakLimiter::DelayedSample(int channel) const {
  return delayLines[Index(channel)].OfAge(kDelaySamples - 1);
}

void TruePeakLimiter::ToDecibels(float peak, int index) {
  inputLevel[Index(index)] = static_cast<float>(20.0 * static_cast<double>(Log10(peak)));
}

void TruePeakLimiter::ApplyStaticCurve(float level, int index) {
  const double x = level;
  const double t = threshold;
  const double w = knee;
  const double over = 2.0 * (x - t);
  if (over < -w) {
    curveOutput[Index(index)] = level;
  } else if (2.0 * std::fabs(x - t) <= w) {
    const double into = x - t + w / 2.0;
    curveOutput[Index(index)] =
        static_cast<float>(x + (1.0 / ratio - 1.0) * (into * into) / (2.0 * w));
  } else if (over > w) {
    curveOutput[Index(index)] = static_cast<float>(t + (x - t) / ratio);
  }
}

void TruePeakLimiter::TakeReduction(int index) {
  reduction[Index(index)] = inputLevel[Index(index)] - curveOutput[Index(index)];
}

void TruePeakLimiter::SmoothReduction(float newReduction, int index) {
  const double release = releaseCoefficient;
  const double attack = attackCoefficient;
  float& hold = peakHold[Index(index)];
  const auto falling = static_cast<float>(release * hold + (1.0 - release) * newReduction);
  hold = falling < newReduction ? newReduction : falling;
  float& smooth = smoothed[Index(index)];
  smooth = static_cast<float>(attack * smooth + (1.0 - attack) * hold);
}

void TruePeakLimiter::ApplyMakeup(int index) {
  control[Index(index)] = makeup - smoothed[Index(index)];
}

void TruePeakLimiter::ToLinear(int index) {
  const auto exponent = static_cast<float>(static_cast<double>(control[Index(index)]) / 20.0);
  linearGain[Index(index)] = Pow(10.0F, exponent);
}

void TruePeakLimiter::SetAttack(float seconds) { attackCoefficient = CoefficientFor(seconds); }
void TruePeakLimiter::SetRelease(float seconds) { releaseCoefficient = CoefficientFor(seconds); }

float TruePeakLimiter::CoefficientFor(float seconds) const {
  if (seconds == 0.0F) return 0.0F;
  const auto exponent = static_cast<float>(-(1.0 / (static_cast<double>(sampleRate) * seconds)));
  return Pow(kEuler, exponent);
}

}  // namespace harvane
