#include "measurement/SampleMath.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

#include "measurement/KWeighting.h"
#include "measurement/PolyphaseBank.h"
#include "measurement/SampleHistory.h"

namespace harvane {
namespace {

constexpr double kHalf = 0.5;

// One term of a sum: exact product, double sum, single result.
float AddProduct(float factor, float sample, float sum) {
  return static_cast<float>(static_cast<double>(factor) * sample + sum);
}

float SubtractProduct(float factor, float sample, float sum) {
  return static_cast<float>(sum - static_cast<double>(factor) * sample);
}

}  // namespace

float Floor(float v) { return static_cast<float>(std::floor(static_cast<double>(v))); }
float Log10(float v) { return static_cast<float>(std::log10(static_cast<double>(v))); }
float Abs(float v) { return static_cast<float>(std::fabs(static_cast<double>(v))); }
float Pow(float base, float exponent) {
  return static_cast<float>(std::pow(static_cast<double>(base), static_cast<double>(exponent)));
}

int TruncateToInt(double v) {
  if (v > -2147483649.0 && v < 2147483648.0) return static_cast<int>(v);
  return INT_MIN;
}

float SampleMath::MeanSquare(const float* x, int n) const {
  float sum = 0.0F;
  for (int i = 0; i < n; ++i) sum = AddProduct(x[i], x[i], sum);
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
  if (frameRate != 0) {
    const int samplesPerFrame = sampleRate / frameRate;
    if (samplesPerFrame != 0) out->framesOrMilliseconds = (position / samplesPerFrame) % frameRate;
  } else {
    out->framesOrMilliseconds =
        TruncateToInt(static_cast<double>(position % sampleRate) / sampleRate * 1000.0);
  }
  const int totalSeconds = position / sampleRate;
  out->hours = totalSeconds / 3600;
  out->minutes = (totalSeconds % 3600) / 60;
  out->seconds = totalSeconds % 60;
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
      acc = AddProduct(b[j], xScratch[static_cast<std::size_t>(j)], acc);
    }
    for (int j = 1; j < aLength; ++j) {
      acc = SubtractProduct(a[j], yScratch[static_cast<std::size_t>(j) - 1], acc);
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
        acc = AddProduct(coefficients[j], scratch[static_cast<std::size_t>(j)], acc);
      }
      y[i * phases + p] = acc;
    }
  }
}

}  // namespace harvane
