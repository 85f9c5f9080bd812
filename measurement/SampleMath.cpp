#include "measurement/SampleMath.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

#include "measurement/Arithmetic.h"
#include "measurement/KWeighting.h"
#include "measurement/PolyphaseBank.h"
#include "measurement/SampleHistory.h"

namespace harvane {
namespace {

constexpr double kHalf = 0.5;

// 2 to the power of i / 32.
constexpr double kRoots[32] = {
    0x1.0000000000000p+0, 0x1.059b0d3158574p+0, 0x1.0b5586cf9890fp+0, 0x1.11301d0125b51p+0,
    0x1.172b83c7d517bp+0, 0x1.1d4873168b9aap+0, 0x1.2387a6e756238p+0, 0x1.29e9df51fdee1p+0,
    0x1.306fe0a31b715p+0, 0x1.371a7373aa9cbp+0, 0x1.3dea64c123422p+0, 0x1.44e086061892dp+0,
    0x1.4bfdad5362a27p+0, 0x1.5342b569d4f82p+0, 0x1.5ab07dd485429p+0, 0x1.6247eb03a5585p+0,
    0x1.6a09e667f3bcdp+0, 0x1.71f75e8ec5f74p+0, 0x1.7a11473eb0187p+0, 0x1.82589994cce13p+0,
    0x1.8ace5422aa0dbp+0, 0x1.93737b0cdc5e5p+0, 0x1.9c49182a3f090p+0, 0x1.a5503b23e255dp+0,
    0x1.ae89f995ad3adp+0, 0x1.b7f76f2fb5e47p+0, 0x1.c199bdd85529cp+0, 0x1.cb720dcef9069p+0,
    0x1.d5818dcfba487p+0, 0x1.dfc97337b9b5fp+0, 0x1.ea4afa2a490dap+0, 0x1.f50765b6e4540p+0};
// log2(10) in two parts: the first has so few digits that its product with a
// single is exact.
constexpr double kLog2Of10High = 0x1.a934f08000000p+1;
constexpr double kLog2Of10Low = 0x1.79a3715fc9258p-27;
// Taylor series of 2 to the power of r for |r| <= 1/64, off by less than 2^-57.
constexpr double kPowerSeries[6] = {0x1.62e42fefa39efp-1,  0x1.ebfbdff82c58fp-3,
                                    0x1.c6b08d704a0c0p-5,  0x1.3b2ab6fba4e77p-7,
                                    0x1.5d87fe78a6731p-10, 0x1.430912f86c787p-13};

}  // namespace

float Floor(float v) { return static_cast<float>(std::floor(static_cast<double>(v))); }
float Log10(float v) { return static_cast<float>(std::log10(static_cast<double>(v))); }
float Abs(float v) { return static_cast<float>(std::fabs(static_cast<double>(v))); }
float Pow(float base, float exponent) {
  return static_cast<float>(std::pow(static_cast<double>(base), static_cast<double>(exponent)));
}

float TenToThe(float exponent) {
  constexpr float kLargestExponent = 37.0F;  // of normal singles, both ways
  if (!(exponent > -kLargestExponent && exponent < kLargestExponent)) return Pow(10.0F, exponent);
  const double whole = static_cast<double>(exponent) * kLog2Of10High;
  // Adding this leaves a whole number of 32nds in the last bits.
  constexpr double kToThirtySeconds = 0x1.8p52 / 32.0;
  const double shifted = whole + kToThirtySeconds;
  const auto steps = static_cast<std::int32_t>(std::bit_cast<std::uint64_t>(shifted));
  const double r =
      (whole - (shifted - kToThirtySeconds)) + static_cast<double>(exponent) * kLog2Of10Low;
  const double* const c = kPowerSeries;
  const double r2 = r * r;
  const double series = r * c[0] + r2 * ((c[1] + r * c[2]) + r2 * ((c[3] + r * c[4]) + r2 * c[5]));
  const double root = kRoots[steps & 31];
  const auto bits = std::bit_cast<std::uint64_t>(root + root * series) +
                    (static_cast<std::uint64_t>(static_cast<std::int64_t>(steps >> 5)) << 52);
  // Within 2^-42 of the middle between two singles: 29 bits are cut off.
  constexpr std::uint64_t kCutOff = 0x1FFFFFFF;
  constexpr std::uint64_t kDoubt = 0x800;
  if ((bits - (0x10000000 - kDoubt)) % (kCutOff + 1) <= 2 * kDoubt) return Pow(10.0F, exponent);
  return static_cast<float>(std::bit_cast<double>(bits));
}

int TruncateToInt(double v) {
  if (v > -2147483649.0 && v < 2147483648.0) return static_cast<int>(v);
  return INT_MIN;
}

float SampleMath::MeanSquare(const float* x, int n) const {
  float sum = 0.0F;
  for (int i = 0; i < n; ++i) sum = MultiplyAdd(x[i], x[i], sum);
  return static_cast<float>(static_cast<double>(sum) / n);
}

void SampleMath::AbsInPlace(float* x, int n) const {
  for (int i = 0; i < n; ++i) {
    if (x[i] < 0.0F) x[i] = -x[i];
  }
}

float SampleMath::MaxOf(const float* x, int n) const {
  float largest = x[0];
  for (int i = 0; i < n; ++i) {
    if (largest < x[i]) largest = x[i];
  }
  return largest;
}

float SampleMath::RoundToTenth(float v) const {
  const auto tenths = static_cast<float>(static_cast<double>(v) * 10.0 + kHalf);
  return static_cast<float>(static_cast<double>(Floor(tenths)) / 10.0);
}

void SampleMath::SamplesToTimeCode(int position, int frameRate, int sampleRate,
                                   TimeCode* out) const {
  *out = TimeCode{0, 0, 0, 0};
  if (sampleRate == 0) return;
  // 64 bits: the smallest 32-bit number divided by -1 has no 32-bit quotient.
  const std::int64_t frames = position;
  if (frameRate != 0) {
    const std::int64_t samplesPerFrame = std::int64_t{sampleRate} / frameRate;
    if (samplesPerFrame != 0) {
      out->framesOrMilliseconds = static_cast<int>(frames / samplesPerFrame % frameRate);
    }
  } else {
    out->framesOrMilliseconds =
        TruncateToInt(static_cast<double>(frames % sampleRate) / sampleRate * 1000.0);
  }
  const std::int64_t totalSeconds = frames / sampleRate;
  out->hours = static_cast<int>(totalSeconds / 3600);
  out->minutes = static_cast<int>(totalSeconds % 3600 / 60);
  out->seconds = static_cast<int>(totalSeconds % 60);
}

void SampleMath::FilterBlock(const float* x, int n, const float* a, int aLength, const float* b,
                             int bLength, float* y, BiquadState state) const {
  std::vector<float> xScratch(static_cast<std::size_t>(state.xLength));
  std::vector<float> yScratch(static_cast<std::size_t>(state.yLength));
  std::fill(y, y + n, 0.0F);
  for (int i = 0; i < n; ++i) {
    state.xHistory->Push(x[i]);
    state.xHistory->ReadNewestFirst(xScratch.data(), state.xLength);
    state.yHistory->ReadNewestFirst(yScratch.data(), state.yLength);
    float acc = 0.0F;
    for (int j = 0; j < bLength; ++j) {
      acc = MultiplyAdd(b[j], xScratch[static_cast<std::size_t>(j)], acc);
    }
    for (int j = 1; j < aLength; ++j) {
      acc = MultiplyAdd(-a[j], yScratch[static_cast<std::size_t>(j) - 1], acc);
    }
    y[i] = acc;
    state.yHistory->Push(acc);
  }
}

void SampleMath::OversampleBlock(const float* x, int n, const PolyphaseBank* bank, int phases,
                                 float* y, SampleHistory* history) const {
  if (phases == 0) {
    std::copy(x, x + n, y);
    return;
  }
  const int length = bank->branches[0].length;
  std::vector<float> scratch(static_cast<std::size_t>(length));
  for (int i = 0; i < n; ++i) {
    history->Push(x[i]);
    history->ReadNewestFirst(scratch.data(), length);
    for (int p = 0; p < phases; ++p) {
      const float* coefficients = bank->branches[p].coefficients;
      float acc = 0.0F;
      for (int j = 0; j < length; ++j) {
        acc = MultiplyAdd(coefficients[j], scratch[static_cast<std::size_t>(j)], acc);
      }
      y[i * phases + p] = acc;
    }
  }
}

}  // namespace harvane
