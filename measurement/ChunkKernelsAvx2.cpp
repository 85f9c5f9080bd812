// Compiled with AVX2 and FMA: nothing here may be reached, and no inline function
// of a shared header may be instantiated here, on a processor without them.
#include <immintrin.h>

#include "measurement/ChunkKernels.h"
#include "measurement/SampleMath.h"

namespace harvane {
namespace {

constexpr int kTileFrames = 64;

// Vectors of one width. A lane is a channel.
struct Four {
  using Vector = __m128;
  static constexpr int kWidth = 4;
  static Vector Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, Vector v) { _mm_storeu_ps(p, v); }
  static Vector Set(float v) { return _mm_set1_ps(v); }
  static Vector Times(Vector a, Vector b) { return _mm_mul_ps(a, b); }
  static Vector Plus(Vector a, Vector b) { return _mm_add_ps(a, b); }
  static Vector Fused(Vector a, Vector b, Vector c) { return _mm_fmadd_ps(a, b, c); }
};

struct Eight {
  using Vector = __m256;
  static constexpr int kWidth = 8;
  static Vector Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, Vector v) { _mm256_storeu_ps(p, v); }
  static Vector Set(float v) { return _mm256_set1_ps(v); }
  static Vector Times(Vector a, Vector b) { return _mm256_mul_ps(a, b); }
  static Vector Plus(Vector a, Vector b) { return _mm256_add_ps(a, b); }
  static Vector Fused(Vector a, Vector b, Vector c) { return _mm256_fmadd_ps(a, b, c); }
};

// The filters of both stages for the lanes of one vector.
template <class V>
struct Stages {
  using Vector = typename V::Vector;

  explicit Stages(const ChannelLanes& lanes)
      : b0(V::Set(lanes.coefficients->firstStageB[0])),
        b1(V::Set(lanes.coefficients->firstStageB[1])),
        b2(V::Set(lanes.coefficients->firstStageB[2])),
        a1(V::Set(-lanes.coefficients->firstStageA[1])),
        a2(V::Set(-lanes.coefficients->firstStageA[2])),
        d1(V::Set(-lanes.coefficients->secondStageA[1])),
        d2(V::Set(-lanes.coefficients->secondStageA[2])),
        x1(V::Load(lanes.input1)),
        x2(V::Load(lanes.input2)),
        y1(V::Load(lanes.middle1)),
        y2(V::Load(lanes.middle2)),
        z1(V::Load(lanes.output1)),
        z2(V::Load(lanes.output2)) {}

  // The terms of the first stage that come from its inputs. Adding 0.0 to a product
  // turns -0.0 into 0.0, as a sum from 0.0 does.
  Vector Feed(Vector x) {
    Vector y = V::Plus(V::Times(b0, x), V::Set(0.0F));
    y = V::Fused(b1, x1, y);
    y = V::Fused(b2, x2, y);
    x2 = x1;
    x1 = x;
    return y;
  }

  // The rest of both stages. The second stage's own factors are 1, -2 and 1, whose
  // products are exact.
  Vector Finish(Vector y) {
    y = V::Fused(a1, y1, y);
    y = V::Fused(a2, y2, y);
    Vector z = V::Fused(V::Set(-2.0F), y1, V::Plus(y, V::Set(0.0F)));
    z = V::Plus(z, y2);
    z = V::Fused(d1, z1, z);
    z = V::Fused(d2, z2, z);
    y2 = y1;
    y1 = y;
    z2 = z1;
    z1 = z;
    return z;
  }

  void Save(ChannelLanes* lanes) const {
    V::Store(lanes->input1, x1);
    V::Store(lanes->input2, x2);
    V::Store(lanes->middle1, y1);
    V::Store(lanes->middle2, y2);
    V::Store(lanes->output1, z1);
    V::Store(lanes->output2, z2);
  }

  Vector b0, b1, b2, a1, a2, d1, d2;
  Vector x1, x2, y1, y2, z1, z2;
};

// Four frames of four channels, side by side.
void InterleaveRun(const float* const (&rows)[4], int i, float* tile) {
  __m128 a = _mm_loadu_ps(rows[0] + i);
  __m128 b = _mm_loadu_ps(rows[1] + i);
  __m128 c = _mm_loadu_ps(rows[2] + i);
  __m128 d = _mm_loadu_ps(rows[3] + i);
  _MM_TRANSPOSE4_PS(a, b, c, d);
  _mm_store_ps(tile, a);
  _mm_store_ps(tile + 4, b);
  _mm_store_ps(tile + 8, c);
  _mm_store_ps(tile + 12, d);
}

__m256 LoadHalves(const float* low, const float* high) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(low)), _mm_loadu_ps(high), 1);
}

// The same of eight channels.
void InterleaveRun(const float* const (&rows)[8], int i, float* tile) {
  const __m256 a = LoadHalves(rows[0] + i, rows[4] + i);
  const __m256 b = LoadHalves(rows[1] + i, rows[5] + i);
  const __m256 c = LoadHalves(rows[2] + i, rows[6] + i);
  const __m256 d = LoadHalves(rows[3] + i, rows[7] + i);
  const __m256 ab = _mm256_unpacklo_ps(a, b);
  const __m256 cd = _mm256_unpacklo_ps(c, d);
  const __m256 upperAb = _mm256_unpackhi_ps(a, b);
  const __m256 upperCd = _mm256_unpackhi_ps(c, d);
  _mm256_store_ps(tile, _mm256_shuffle_ps(ab, cd, _MM_SHUFFLE(1, 0, 1, 0)));
  _mm256_store_ps(tile + 8, _mm256_shuffle_ps(ab, cd, _MM_SHUFFLE(3, 2, 3, 2)));
  _mm256_store_ps(tile + 16, _mm256_shuffle_ps(upperAb, upperCd, _MM_SHUFFLE(1, 0, 1, 0)));
  _mm256_store_ps(tile + 24, _mm256_shuffle_ps(upperAb, upperCd, _MM_SHUFFLE(3, 2, 3, 2)));
}

// `frames` frames of the lanes, side by side, as the stages take them in; unused lanes
// repeat the first one.
template <class V>
void FeedTile(const ChannelLanes& lanes, int from, int frames, Stages<V>* stages, float* tile) {
  const float* rows[V::kWidth];
  for (int lane = 0; lane < V::kWidth; ++lane) {
    rows[lane] = lanes.samples[lane < lanes.count ? lane : 0] + from;
  }
  const auto feed = [&](float* frame) { V::Store(frame, stages->Feed(V::Load(frame))); };
  int i = 0;
  for (; i + 4 <= frames; i += 4) {
    float* const run = tile + i * V::kWidth;
    InterleaveRun(rows, i, run);
    for (int k = 0; k < 4; ++k) feed(run + k * V::kWidth);
  }
  for (; i < frames; ++i) {
    float* const frame = tile + i * V::kWidth;
    for (int lane = 0; lane < V::kWidth; ++lane) frame[lane] = rows[lane][i];
    feed(frame);
  }
}

template <class V>
void WeightAndSumLanes(ChannelLanes* lanes, int n) {
  using Vector = typename V::Vector;
  Stages<V> stages(*lanes);
  Vector sums[kLaneSums];
  for (int s = 0; s < kLaneSums; ++s) sums[s] = V::Load(lanes->sums[s]);
  alignas(32) float tile[kTileFrames * V::kWidth];
  for (int from = 0; from < n; from += kTileFrames) {
    const int frames = n - from < kTileFrames ? n - from : kTileFrames;
    FeedTile<V>(*lanes, from, frames, &stages, tile);
    for (int i = 0; i < frames; ++i) {
      const Vector z = stages.Finish(V::Load(tile + i * V::kWidth));
      for (Vector& sum : sums) sum = V::Fused(z, z, sum);
    }
  }
  stages.Save(lanes);
  for (int s = 0; s < kLaneSums; ++s) V::Store(lanes->sums[s], sums[s]);
}

// Two channels leave half a vector idle, and their eight sums would cost eight
// operations a frame: here four sums of both fill one vector.
void WeightAndSumPair(ChannelLanes* lanes, int n) {
  Stages<Four> stages(*lanes);
  const int second = lanes->count > 1 ? 1 : 0;
  const float* const left = lanes->samples[0];
  const float* const right = lanes->samples[second];
  alignas(32) float sums[2 * kLaneSums];
  for (int s = 0; s < kLaneSums; ++s) {
    sums[2 * s] = lanes->sums[s][0];
    sums[2 * s + 1] = lanes->sums[s][second];
  }
  __m256 momentary = _mm256_load_ps(sums);
  __m256 shortTerm = _mm256_load_ps(sums + 8);
  for (int i = 0; i < n; ++i) {
    const __m128 x = _mm_unpacklo_ps(_mm_load_ss(left + i), _mm_load_ss(right + i));
    const __m128 z = stages.Finish(stages.Feed(x));
    const __m256 pairs = _mm256_castpd_ps(_mm256_broadcastsd_pd(_mm_castps_pd(z)));
    momentary = _mm256_fmadd_ps(pairs, pairs, momentary);
    shortTerm = _mm256_fmadd_ps(pairs, pairs, shortTerm);
  }
  stages.Save(lanes);
  _mm256_store_ps(sums, momentary);
  _mm256_store_ps(sums + 8, shortTerm);
  for (int s = 0; s < kLaneSums; ++s) {
    lanes->sums[s][0] = sums[2 * s];
    lanes->sums[s][1] = sums[2 * s + 1];
  }
}

void WeightAndSum(ChannelLanes* lanes, int n) {
  if (lanes->count <= 2) {
    WeightAndSumPair(lanes, n);
  } else if (lanes->count <= 4) {
    WeightAndSumLanes<Four>(lanes, n);
  } else {
    WeightAndSumLanes<Eight>(lanes, n);
  }
  for (int lane = 0; lane < lanes->count; ++lane) lanes->samples[lane] += n;
}

__m256 Magnitude(__m256 v) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0F), v); }

// No lane may be NaN.
float LargestOf(__m256 v) {
  __m128 four = _mm_max_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
  four = _mm_max_ps(four, _mm_movehl_ps(four, four));
  return _mm_cvtss_f32(_mm_max_ss(four, _mm_movehdup_ps(four)));
}

// Of two operands, the instruction gives the second where one is NaN: a NaN
// never enters a maximum that is held there.
float LargestMagnitude(const float* x, int n) {
  __m256 largest = _mm256_setzero_ps();
  __m256 other = _mm256_setzero_ps();
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    largest = _mm256_max_ps(Magnitude(_mm256_loadu_ps(x + i)), largest);
    other = _mm256_max_ps(Magnitude(_mm256_loadu_ps(x + i + 8)), other);
  }
  float result = LargestOf(_mm256_max_ps(largest, other));
  for (; i < n; ++i) {
    const float magnitude = x[i] < 0.0F ? -x[i] : x[i];
    if (result < magnitude) result = magnitude;
  }
  return result;
}

// Eight points in time of one branch, from the sample at `x` on.
__m256 Interpolate(const float* x, const PolyphaseBranch& branch) {
  __m256 acc = _mm256_setzero_ps();
  for (int j = 0; j < kPeakHistory + 1; ++j) {
    acc = _mm256_fmadd_ps(_mm256_set1_ps(branch.coefficients[j]), _mm256_loadu_ps(x - j), acc);
  }
  return acc;
}

float TruePeak(const float* x, int n, const PolyphaseBank& bank, float /*exactAbove*/) {
  __m256 largest = _mm256_setzero_ps();
  // The last vector may reach past the end: its points beyond are masked off.
  for (int i = 0; i < n; i += 8) {
    const int left = n - i;
    if (left >= 8) {
      for (int p = 0; p < bank.count; ++p) {
        largest = _mm256_max_ps(Magnitude(Interpolate(x + i, bank.branches[p])), largest);
      }
      continue;
    }
    float rest[kPeakHistory + 8] = {};
    for (int k = 0; k < kPeakHistory + left; ++k) rest[k] = x[i + k - kPeakHistory];
    const __m256 valid = _mm256_castsi256_ps(
        _mm256_cmpgt_epi32(_mm256_set1_epi32(left), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7)));
    for (int p = 0; p < bank.count; ++p) {
      const __m256 values = Magnitude(Interpolate(rest + kPeakHistory, bank.branches[p]));
      largest = _mm256_max_ps(_mm256_and_ps(values, valid), largest);
    }
  }
  float first = 0.0F;
  for (int j = 0; j < kPeakHistory + 1; ++j) {
    first = __builtin_fmaf(bank.branches[0].coefficients[j], x[-j], first);
  }
  return first == first ? LargestOf(largest) : first;
}

// Largest magnitude over the branches, per point; NaN stays if the first is.
__m256 PeaksOf(const float* x, const PolyphaseBank& bank) {
  __m256 largest = Magnitude(Interpolate(x, bank.branches[0]));
  for (int p = 1; p < bank.count; ++p) {
    largest = _mm256_max_ps(Magnitude(Interpolate(x, bank.branches[p])), largest);
  }
  return largest;
}

void Peaks(const float* x, int n, const PolyphaseBank& bank, float /*exactFrom*/, float* peaks) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(peaks + i, PeaksOf(x + i, bank));
  if (i == n) return;
  float rest[kPeakHistory + 8] = {};
  for (int k = 0; k < kPeakHistory + n - i; ++k) rest[k] = x[i + k - kPeakHistory];
  float values[8];
  _mm256_storeu_ps(values, PeaksOf(rest + kPeakHistory, bank));
  for (int k = 0; i + k < n; ++k) peaks[i + k] = values[k];
}

// x / 32767, rounded once: with the reciprocal, corrected by what is left. Tried
// for all 16-bit values.
__m256 OverFullScale(__m256i samples) {
  const __m256 x = _mm256_cvtepi32_ps(samples);
  const __m256 reciprocal = _mm256_set1_ps(1.0F / 32767.0F);
  const __m256 quotient = _mm256_mul_ps(x, reciprocal);
  const __m256 left = _mm256_fnmadd_ps(quotient, _mm256_set1_ps(32767.0F), x);
  return _mm256_fmadd_ps(left, reciprocal, quotient);
}

void FromPcm(const std::int16_t* pcm, std::size_t stride, std::size_t n, float* out) {
  std::size_t i = 0;
  if (stride == 1) {
    for (; i + 8 <= n; i += 8) {
      const __m128i eight = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pcm + i));
      _mm256_storeu_ps(out + i, OverFullScale(_mm256_cvtepi16_epi32(eight)));
    }
  } else if (stride == 2) {
    // A load takes the other channel's sample behind the last one as well.
    for (; i + 8 < n; i += 8) {
      const __m256i pairs = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pcm + 2 * i));
      const __m256i samples = _mm256_srai_epi32(_mm256_slli_epi32(pairs, 16), 16);
      _mm256_storeu_ps(out + i, OverFullScale(samples));
    }
  } else {
    for (; i + 8 <= n; i += 8) {
      const std::int16_t* const x = pcm + i * stride;
      const __m128i eight =
          _mm_setr_epi16(x[0], x[stride], x[2 * stride], x[3 * stride], x[4 * stride],
                         x[5 * stride], x[6 * stride], x[7 * stride]);
      _mm256_storeu_ps(out + i, OverFullScale(_mm256_cvtepi16_epi32(eight)));
    }
  }
  for (; i < n; ++i) out[i] = static_cast<float>(pcm[i * stride]) / 32767.0F;
}

// Eight frames of eight neighbouring samples: of each channel its eight.
void SplitFrames(const std::int16_t* pcm, std::size_t stride, __m128i (&channels)[8]) {
  const auto frame = [&](std::size_t i) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pcm + i * stride));
  };
  __m128i lower[4], upper[4];  // channels 0 to 3 and 4 to 7 of two frames each
  for (std::size_t i = 0; i < 4; ++i) {
    lower[i] = _mm_unpacklo_epi16(frame(2 * i), frame(2 * i + 1));
    upper[i] = _mm_unpackhi_epi16(frame(2 * i), frame(2 * i + 1));
  }
  const auto split = [](const __m128i(&half)[4], __m128i* four) {
    const __m128i a = _mm_unpacklo_epi32(half[0], half[1]);
    const __m128i b = _mm_unpacklo_epi32(half[2], half[3]);
    const __m128i c = _mm_unpackhi_epi32(half[0], half[1]);
    const __m128i d = _mm_unpackhi_epi32(half[2], half[3]);
    four[0] = _mm_unpacklo_epi64(a, b);
    four[1] = _mm_unpackhi_epi64(a, b);
    four[2] = _mm_unpacklo_epi64(c, d);
    four[3] = _mm_unpackhi_epi64(c, d);
  };
  split(lower, channels);
  split(upper, channels + 4);
}

void FromPcmFrames(const std::int16_t* pcm, std::size_t stride, int channels, std::size_t n,
                   float* const* outs) {
  std::size_t i = 0;
  // Eight samples are loaded of each frame, also where a frame has fewer.
  const std::size_t length = n == 0 ? 0 : (n - 1) * stride + static_cast<std::size_t>(channels);
  for (; channels > 2 && i + 8 <= n && (i + 7) * stride + 8 <= length; i += 8) {
    __m128i split[8];
    SplitFrames(pcm + i * stride, stride, split);
    for (int c = 0; c < channels; ++c) {
      _mm256_storeu_ps(outs[c] + i, OverFullScale(_mm256_cvtepi16_epi32(split[c])));
    }
  }
  for (int c = 0; c < channels; ++c) FromPcm(pcm + i * stride + c, stride, n - i, outs[c] + i);
}

__m128i ScaledAndCut(__m128 v) {
  return _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_cvtps_pd(v), _mm256_set1_pd(32767.0)));
}

void ToPcm(const float* x, std::size_t n, std::int16_t* pcm) {
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256 v = _mm256_loadu_ps(x + i);
    const __m256 number = _mm256_and_ps(v, _mm256_cmp_ps(v, v, _CMP_ORD_Q));
    const __m256 limited =
        _mm256_max_ps(_mm256_min_ps(number, _mm256_set1_ps(1.0F)), _mm256_set1_ps(-1.0F));
    const __m128i low = ScaledAndCut(_mm256_castps256_ps128(limited));
    const __m128i high = ScaledAndCut(_mm256_extractf128_ps(limited, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pcm + i), _mm_packs_epi32(low, high));
  }
  kPlainKernels.toPcm(x + i, n - i, pcm + i);
}

// log2(10) in two parts: the first has so few digits that its product with a
// single is exact.
constexpr double kLog2Of10High = 0x1.a934f08000000p+1;
constexpr double kLog2Of10Low = 0x1.79a3715fc9258p-27;
// Taylor series of 2 to the power of r, the highest power first. For |r| <= 1/2 what
// is left out is below 2^-52 of the value.
constexpr double kPowerSeries[] = {0x1.c3bd650fc2986p-36,
                                   0x1.e8cac7351bb25p-32,
                                   0x1.e4cf5158b8ecap-28,
                                   0x1.b5253d395e7c4p-24,
                                   0x1.62c0223a5c824p-20,
                                   0x1.ffcbfc588b0c7p-17,
                                   0x1.430912f86c787p-13,
                                   0x1.5d87fe78a6731p-10,
                                   0x1.3b2ab6fba4e77p-7,
                                   0x1.c6b08d704a0c0p-5,
                                   0x1.ebfbdff82c58fp-3,
                                   0x1.62e42fefa39efp-1,
                                   1.0};

// Four gains as doubles, off by a few units of their last digit.
__m256d NearGains(__m128 exponents) {
  const __m256d x = _mm256_cvtps_pd(exponents);
  const __m256d high = _mm256_mul_pd(x, _mm256_set1_pd(kLog2Of10High));
  const __m256d whole = _mm256_round_pd(high, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
  const __m256d r = _mm256_fmadd_pd(x, _mm256_set1_pd(kLog2Of10Low), _mm256_sub_pd(high, whole));
  __m256d series = _mm256_set1_pd(kPowerSeries[0]);
  for (int k = 1; k < static_cast<int>(sizeof kPowerSeries / sizeof kPowerSeries[0]); ++k) {
    series = _mm256_fmadd_pd(series, r, _mm256_set1_pd(kPowerSeries[k]));
  }
  const __m256i steps = _mm256_cvtepi32_epi64(_mm256_cvtpd_epi32(whole));
  return _mm256_castsi256_pd(
      _mm256_add_epi64(_mm256_castpd_si256(series), _mm256_slli_epi64(steps, 52)));
}

// The lanes that lie within 2^-41 of the middle between two singles.
int DoubtfulLanes(__m256d gains) {
  constexpr long long kDoubt = 0x800;
  const __m256i low = _mm256_and_si256(_mm256_castpd_si256(gains), _mm256_set1_epi64x(0x1FFFFFFF));
  const __m256i above = _mm256_cmpgt_epi64(low, _mm256_set1_epi64x(0x10000000 - kDoubt - 1));
  const __m256i below = _mm256_cmpgt_epi64(_mm256_set1_epi64x(0x10000000 + kDoubt + 1), low);
  return _mm256_movemask_pd(_mm256_castsi256_pd(_mm256_and_si256(above, below)));
}

// Exponents of four gains, rounded to single.
__m128 Exponents(__m128 decibels) {
  return _mm256_cvtpd_ps(_mm256_div_pd(_mm256_cvtps_pd(decibels), _mm256_set1_pd(20.0)));
}

void DecibelsToGains(float* values, std::size_t n) {
  // Up to it either way, gains are normal singles.
  const __m256 mostDecibels = _mm256_set1_ps(700.0F);
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256 decibels = _mm256_loadu_ps(values + i);
    const __m128 low = Exponents(_mm256_castps256_ps128(decibels));
    const __m128 high = Exponents(_mm256_extractf128_ps(decibels, 1));
    const __m256d lowGains = NearGains(low);
    const __m256d highGains = NearGains(high);
    int doubtful =
        _mm256_movemask_ps(_mm256_cmp_ps(Magnitude(decibels), mostDecibels, _CMP_NLE_UQ));
    doubtful |= DoubtfulLanes(lowGains) | DoubtfulLanes(highGains) << 4;
    alignas(32) float exponents[8];
    if (doubtful != 0) {
      _mm_store_ps(exponents, low);
      _mm_store_ps(exponents + 4, high);
    }
    _mm_storeu_ps(values + i, _mm256_cvtpd_ps(lowGains));
    _mm_storeu_ps(values + i + 4, _mm256_cvtpd_ps(highGains));
    for (int lane = 0; doubtful != 0; ++lane, doubtful >>= 1) {
      if ((doubtful & 1) != 0)
        values[i + static_cast<std::size_t>(lane)] = TenToThe(exponents[lane]);
    }
  }
  kPlainKernels.decibelsToGains(values + i, n - i);
}

}  // namespace

const ChunkKernels kAvx2Kernels = {"AVX2+FMA",    WeightAndSum, LargestMagnitude,
                                   TruePeak,      Peaks,        FromPcm,
                                   FromPcmFrames, ToPcm,        DecibelsToGains};

}  // namespace harvane
