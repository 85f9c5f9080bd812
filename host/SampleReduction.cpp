#include "host/SampleReduction.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace harvane {
namespace {

constexpr std::int64_t kStep = 65536;
constexpr std::int64_t kBelowHalfStep = kStep / 2 - 1;
constexpr int kStepBits = 16;
constexpr double kFloatScale = 32768.0;
constexpr double kLowest = std::numeric_limits<std::int16_t>::min();
constexpr double kHighest = std::numeric_limits<std::int16_t>::max();

}  // namespace

std::int16_t ReduceInteger(std::int32_t sample) {
  const std::int64_t wide = sample;
  const std::int64_t isOdd = (wide >> kStepBits) & 1;
  const std::int64_t rounded = (wide + kBelowHalfStep + isOdd) >> kStepBits;
  return static_cast<std::int16_t>(
      std::min<std::int64_t>(rounded, std::numeric_limits<std::int16_t>::max()));
}

std::int16_t ReduceFloat(double sample) {
  if (std::isnan(sample)) return 0;
  return static_cast<std::int16_t>(
      std::clamp(std::nearbyint(sample * kFloatScale), kLowest, kHighest));
}

void ReduceIntegers(const std::int32_t* samples, std::size_t count, std::int16_t* target) {
  std::transform(samples, samples + count, target, ReduceInteger);
}

void ReduceFloats(const double* samples, std::size_t count, std::int16_t* target,
                  ReductionCounts* counts) {
  for (std::size_t i = 0; i < count; ++i) {
    if (std::isnan(samples[i])) ++counts->notNumbers;
    if (std::fabs(samples[i]) > 1.0) ++counts->beyondFullScale;
    target[i] = ReduceFloat(samples[i]);
  }
}

}  // namespace harvane
