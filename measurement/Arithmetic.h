#ifndef HARVANE_MEASUREMENT_ARITHMETIC_H
#define HARVANE_MEASUREMENT_ARITHMETIC_H

#include <bit>
#include <cmath>
#include <cstdint>

namespace harvane {

// a * b + c, exact and then rounded once to single precision: the one step of
// every running sum of products, on every processor. The same as a fused
// multiply-add, which processors without one get from two double operations.
inline float MultiplyAdd(float a, float b, float c) {
#ifdef __FMA__
  return __builtin_fmaf(a, b, c);
#else
  const double product = static_cast<double>(a) * static_cast<double>(b);  // exact: 48 bits
  const double sum = product + static_cast<double>(c);
  // Rounding the double once more is right unless it lies on the border between
  // two singles without being exact. That border is where only the first of the
  // 29 bits cut off is set; singles below 2^-125 have it elsewhere.
  constexpr std::uint64_t kCutOff = 0x1FFFFFFF;
  constexpr std::uint64_t kBorder = 0x10000000;
  constexpr double kSmallSingle = 0x1p-125;
  const auto bits = std::bit_cast<std::uint64_t>(sum);
  if ((bits & kCutOff) != kBorder && std::fabs(sum) >= kSmallSingle) return static_cast<float>(sum);
  const double fromC = sum - product;
  const double lost = (product - (sum - fromC)) + (static_cast<double>(c) - fromC);
  if (lost == 0.0 || !std::isfinite(sum)) return static_cast<float>(sum);
  if ((bits & 1) != 0) return static_cast<float>(sum);
  // To the odd neighbour on the side of what was lost.
  const bool isOutward = (lost > 0.0) == (sum > 0.0);
  return static_cast<float>(std::bit_cast<double>(isOutward ? bits + 1 : bits - 1));
#endif
}

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_ARITHMETIC_H
