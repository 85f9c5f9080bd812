#include "normalisation/TruePeakLimiter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "measurement/Arithmetic.h"
#include "measurement/ChunkKernels.h"
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

// Decibels whose gain rounds to 1.
bool IsIdle(float decibels) {
  constexpr float kNoReductionDb = 2.58859671e-07F;
  return decibels <= 0.0F && decibels >= -kNoReductionDb;
}

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
  kneeStart = kUnknownKneeStart;
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
      sum = MultiplyAdd(coefficients[k], line.OfAge(k), sum);
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

void TruePeakLimiter::PushRun(float* run, int n, int channel) {
  SampleLine<kDelaySamples>& delayLine = delayLines[Index(channel)];
  SampleLine<kLookAheadSamples>& lookAheadLine = lookAheadLines[Index(channel)];
  constexpr int kBefore = kDelaySamples - 1;
  for (int i = 0; i < kBefore; ++i) run[i] = delayLine.OfAge(kBefore - 1 - i);
  const float* const samples = run + kBefore;
  for (int i = std::max(0, n - kDelaySamples); i < n; ++i) delayLine.Push(samples[i]);
  for (int i = std::max(0, n - kLookAheadSamples); i < n; ++i) lookAheadLine.Push(samples[i]);
}

void TruePeakLimiter::GainsFor(const float* peaks, int n, float* gains) {
  constexpr int kControl = 0;  // a track has one gain
  const float start = KneeStart();
  float hold = peakHold[kControl];
  float smooth = smoothed[kControl];
  float newReduction = reduction[kControl];
  float decibels = control[kControl];
  int newest = -1;
  bool isAllIdle = true;
  // First the recursion, in decibels, then the powers, which know no order.
  for (int i = 0; i < n; ++i) {
    const float peak = peaks[i];
    gains[i] = 0.0F;
    if (peak == 0.0F) continue;
    newReduction = 0.0F;
    if (!(peak < start)) {
      ToDecibels(peak, kControl);
      ApplyStaticCurve(inputLevel[kControl], kControl);
      newReduction = inputLevel[kControl] - curveOutput[kControl];
    }
    hold = NextHold(hold, newReduction);
    smooth = NextSmoothed(smooth, hold);
    decibels = makeup - smooth;
    gains[i] = decibels;
    isAllIdle = isAllIdle && IsIdle(decibels);
    newest = i;
  }
  reduction[kControl] = newReduction;
  peakHold[kControl] = hold;
  smoothed[kControl] = smooth;
  control[kControl] = decibels;
  if (isAllIdle) {
    std::fill(gains, gains + n, 1.0F);
  } else {
    ActiveKernels().decibelsToGains(gains, static_cast<std::size_t>(n));
  }
  if (newest >= 0) linearGain[kControl] = gains[newest];
}

float TruePeakLimiter::KneeStart() const {
  if (kneeStart == kUnknownKneeStart) kneeStart = FindKneeStart();
  return kneeStart;
}

bool TruePeakLimiter::IsBelowKnee(float peak) const {
  const auto level = static_cast<float>(20.0 * static_cast<double>(Log10(peak)));
  return 2.0 * (static_cast<double>(level) - threshold) < -static_cast<double>(knee);
}

// Levels rise with peaks over this range, which was tried float by float.
float TruePeakLimiter::FindKneeStart() const {
  constexpr float kLowest = 9.5e-7F;
  constexpr float kHighest = 8.0F;
  if (!IsBelowKnee(kLowest) || IsBelowKnee(kHighest)) return 0.0F;
  auto below = std::bit_cast<std::uint32_t>(kLowest);
  auto above = std::bit_cast<std::uint32_t>(kHighest);
  while (above - below > 1) {
    const std::uint32_t middle = below + (above - below) / 2;
    (IsBelowKnee(std::bit_cast<float>(middle)) ? below : above) = middle;
  }
  return std::bit_cast<float>(above);
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
  float& hold = peakHold[Index(index)];
  float& smooth = smoothed[Index(index)];
  hold = NextHold(hold, newReduction);
  smooth = NextSmoothed(smooth, hold);
}

float TruePeakLimiter::NextHold(float hold, float newReduction) const {
  const double release = releaseCoefficient;
  const auto falling = static_cast<float>(release * hold + (1.0 - release) * newReduction);
  return falling < newReduction ? newReduction : falling;
}

float TruePeakLimiter::NextSmoothed(float smooth, float hold) const {
  const double attack = attackCoefficient;
  return static_cast<float>(attack * smooth + (1.0 - attack) * hold);
}

void TruePeakLimiter::ApplyMakeup(int index) {
  control[Index(index)] = makeup - smoothed[Index(index)];
}

void TruePeakLimiter::ToLinear(int index) {
  const auto exponent = static_cast<float>(static_cast<double>(control[Index(index)]) / 20.0);
  linearGain[Index(index)] = TenToThe(exponent);
}

void TruePeakLimiter::SetAttack(float seconds) { attackCoefficient = CoefficientFor(seconds); }
void TruePeakLimiter::SetRelease(float seconds) { releaseCoefficient = CoefficientFor(seconds); }

float TruePeakLimiter::CoefficientFor(float seconds) const {
  if (seconds == 0.0F) return 0.0F;
  const auto exponent = static_cast<float>(-(1.0 / (static_cast<double>(sampleRate) * seconds)));
  return Pow(kEuler, exponent);
}

}  // namespace harvane
