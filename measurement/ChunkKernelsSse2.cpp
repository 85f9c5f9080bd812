// Two channels, or two points in time, as the doubles of one vector. Without a
// fused multiply-add a step is a double sum, rounded again to single; where that
// could differ from rounding once, the plain kernel does the work.
#include <emmintrin.h>

#include <algorithm>
#include <cmath>

#include "measurement/Arithmetic.h"
#include "measurement/ChunkKernels.h"

namespace harvane {
namespace {

constexpr int kTileFrames = 128;

// A tile that begins with values of this size, or zeros, ends before anything has
// faded, or cancelled, into the range below 2^-125 in which singles lose digits:
// a stage keeps more than 2^-32 of its level over a tile, and a difference of two
// terms is 0 or at least 2^-48 of them.
constexpr float kSmallestLevel = 0x1p-24F;
// Above it, a running sum and a square added to it have all their digits in a
// double, or none that decides a rounding.
constexpr double kSmallestSumShare = 0x1p-28;
constexpr double kSmallestSum = 0x1p-100;

// Watches roundings for the one pattern that can go wrong: the digits cut off
// are exactly a border between two singles.
struct Watch {
  __m128i seen = _mm_setzero_si128();

  __m128d Round(__m128d sum) {
    const __m128i cutOff = _mm_set_epi32(0, 0x1FFFFFFF, 0, 0x1FFFFFFF);
    const __m128i border = _mm_set_epi32(1, 0x10000000, 1, 0x10000000);
    const __m128i low = _mm_and_si128(_mm_castpd_si128(sum), cutOff);
    seen = _mm_or_si128(seen, _mm_cmpeq_epi32(low, border));
    return _mm_cvtps_pd(_mm_cvtpd_ps(sum));
  }
  bool IsClear() const { return _mm_movemask_epi8(seen) == 0; }
};

__m128d MagnitudeOf(__m128d v) { return _mm_andnot_pd(_mm_set1_pd(-0.0), v); }

// Neither all zero nor at least kSmallestLevel.
bool IsFaint(float one, float two) {
  const float level = std::max(std::fabs(one), std::fabs(two));
  return level != 0.0F && !(level >= kSmallestLevel);
}

bool HasFaintMemory(const ChannelLanes& lanes, int lane) {
  return IsFaint(lanes.middle1[lane], lanes.middle2[lane]) ||
         IsFaint(lanes.output1[lane], lanes.output2[lane]);
}

// Whether a sample is neither 0.0 nor at least kSmallestLevel, or not a number.
bool HasFaintSample(const float* x, int n) {
  const __m128 sign = _mm_set1_ps(-0.0F);
  const __m128 smallest = _mm_set1_ps(kSmallestLevel);
  __m128 faint = _mm_setzero_ps();
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128 magnitude = _mm_andnot_ps(sign, _mm_loadu_ps(x + i));
    faint = _mm_or_ps(faint, _mm_and_ps(_mm_cmpnge_ps(magnitude, smallest),
                                        _mm_cmpneq_ps(magnitude, _mm_setzero_ps())));
  }
  bool isFaint = _mm_movemask_ps(faint) != 0;
  for (; i < n; ++i) isFaint = isFaint || (x[i] != 0.0F && !(std::fabs(x[i]) >= kSmallestLevel));
  return isFaint;
}

__m128d LoadPair(const float* memory, int first, int second) {
  return _mm_set_pd(static_cast<double>(memory[second]), static_cast<double>(memory[first]));
}

void StorePair(float* memory, int first, int second, __m128d v) {
  double lanes[2];
  _mm_storeu_pd(lanes, v);
  memory[first] = static_cast<float>(lanes[0]);
  memory[second] = static_cast<float>(lanes[1]);
}

struct PairState {
  __m128d x1, x2, y1, y2, z1, z2;
};

// `frames` frames of two channels into `tile`, weighted. False where a rounding
// is in doubt; then the state is of no use.
bool WeightTile(const KWeightingCoefficients& k, const float* left, const float* right, int frames,
                PairState* state, __m128d* tile, __m128d* largest) {
  const auto set = [](float v) { return _mm_set1_pd(static_cast<double>(v)); };
  const __m128d b0 = set(k.firstStageB[0]);
  const __m128d b1 = set(k.firstStageB[1]);
  const __m128d b2 = set(k.firstStageB[2]);
  const __m128d a1 = set(k.firstStageA[1]);
  const __m128d a2 = set(k.firstStageA[2]);
  const __m128d d1 = set(k.secondStageA[1]);
  const __m128d d2 = set(k.secondStageA[2]);
  PairState s = *state;
  Watch watch;
  __m128d top = *largest;
  const __m128d zero = _mm_setzero_pd();
  for (int i = 0; i < frames; ++i) {
    const __m128d x = _mm_cvtps_pd(_mm_unpacklo_ps(_mm_load_ss(left + i), _mm_load_ss(right + i)));
    // A product is exact, so rounding it is rounding once.
    __m128d y = _mm_cvtps_pd(_mm_cvtpd_ps(_mm_add_pd(_mm_mul_pd(b0, x), zero)));
    y = watch.Round(_mm_add_pd(_mm_mul_pd(b1, s.x1), y));
    y = watch.Round(_mm_add_pd(_mm_mul_pd(b2, s.x2), y));
    y = watch.Round(_mm_sub_pd(y, _mm_mul_pd(a1, s.y1)));
    y = watch.Round(_mm_sub_pd(y, _mm_mul_pd(a2, s.y2)));
    // The second stage's own factors are 1, -2 and 1: sums of two singles, which a
    // double always rounds as once.
    __m128d z = _mm_sub_pd(_mm_add_pd(y, zero), _mm_add_pd(s.y1, s.y1));
    z = _mm_cvtps_pd(_mm_cvtpd_ps(z));
    z = _mm_cvtps_pd(_mm_cvtpd_ps(_mm_add_pd(z, s.y2)));
    z = watch.Round(_mm_sub_pd(z, _mm_mul_pd(d1, s.z1)));
    z = watch.Round(_mm_sub_pd(z, _mm_mul_pd(d2, s.z2)));
    s = {x, s.x1, y, s.y1, z, s.z1};
    top = _mm_max_pd(MagnitudeOf(z), top);
    tile[i] = z;
  }
  *state = s;
  *largest = top;
  return watch.IsClear();
}

// Adds the squares of one channel of the tile to four pairs of its sums.
template <int kLane>
void AddSquares(const __m128d* tile, int frames, __m128d (&sums)[kLaneSums / 2]) {
  __m128d s0 = sums[0];
  __m128d s1 = sums[1];
  __m128d s2 = sums[2];
  __m128d s3 = sums[3];
  const auto round = [](__m128d v) { return _mm_cvtps_pd(_mm_cvtpd_ps(v)); };
  for (int i = 0; i < frames; ++i) {
    const __m128d z = _mm_shuffle_pd(tile[i], tile[i], kLane * 3);
    const __m128d square = _mm_mul_pd(z, z);
    s0 = round(_mm_add_pd(square, s0));
    s1 = round(_mm_add_pd(square, s1));
    s2 = round(_mm_add_pd(square, s2));
    s3 = round(_mm_add_pd(square, s3));
  }
  sums[0] = s0;
  sums[1] = s1;
  sums[2] = s2;
  sums[3] = s3;
}

template <int kLane>
void AddSquaresPlainly(const __m128d* tile, int frames, float* sum) {
  for (int i = 0; i < frames; ++i) {
    double lanes[2];
    _mm_storeu_pd(lanes, tile[i]);
    const auto z = static_cast<float>(lanes[kLane]);
    *sum = MultiplyAdd(z, z, *sum);
  }
}

template <int kLane>
void SumTile(ChannelLanes* lanes, int lane, const __m128d* tile, int frames, double largest) {
  const double square = largest * largest;
  bool isPlain[kLaneSums];
  float before[kLaneSums];
  __m128d pairs[kLaneSums / 2];
  for (int s = 0; s < kLaneSums; ++s) {
    before[s] = lanes->sums[s][lane];
    isPlain[s] = !(before[s] >= kSmallestSumShare * square && before[s] >= kSmallestSum);
  }
  for (int p = 0; p < kLaneSums / 2; ++p) {
    pairs[p] =
        _mm_set_pd(static_cast<double>(before[2 * p + 1]), static_cast<double>(before[2 * p]));
  }
  AddSquares<kLane>(tile, frames, pairs);
  for (int p = 0; p < kLaneSums / 2; ++p) {
    double values[2];
    _mm_storeu_pd(values, pairs[p]);
    lanes->sums[2 * p][lane] = static_cast<float>(values[0]);
    lanes->sums[2 * p + 1][lane] = static_cast<float>(values[1]);
  }
  for (int s = 0; s < kLaneSums; ++s) {
    if (!isPlain[s]) continue;
    lanes->sums[s][lane] = before[s];
    AddSquaresPlainly<kLane>(tile, frames, &lanes->sums[s][lane]);
  }
}

// The plain kernel for two lanes of the eight.
void RedoPlainly(ChannelLanes* lanes, int first, int second, int frames) {
  for (int lane = first; lane <= second; ++lane) {
    ChannelLanes one{};
    const auto copy = [](const ChannelLanes& from, int source, ChannelLanes* to, int target) {
      to->input1[target] = from.input1[source];
      to->input2[target] = from.input2[source];
      to->middle1[target] = from.middle1[source];
      to->middle2[target] = from.middle2[source];
      to->output1[target] = from.output1[source];
      to->output2[target] = from.output2[source];
      for (int s = 0; s < kLaneSums; ++s) to->sums[s][target] = from.sums[s][source];
    };
    one.count = 1;
    one.samples[0] = lanes->samples[lane];
    one.coefficients = lanes->coefficients;
    copy(*lanes, lane, &one, 0);
    kPlainKernels.weightAndSum(&one, frames);
    copy(one, 0, lanes, lane);
  }
}

void WeightAndSumPair(ChannelLanes* lanes, int first, int n) {
  const int second = first + 1 < lanes->count ? first + 1 : first;
  __m128d tile[kTileFrames];
  for (int from = 0; from < n; from += kTileFrames) {
    const int frames = n - from < kTileFrames ? n - from : kTileFrames;
    PairState state = {
        LoadPair(lanes->input1, first, second),  LoadPair(lanes->input2, first, second),
        LoadPair(lanes->middle1, first, second), LoadPair(lanes->middle2, first, second),
        LoadPair(lanes->output1, first, second), LoadPair(lanes->output2, first, second)};
    __m128d largest = _mm_setzero_pd();
    const bool isFaint =
        HasFaintMemory(*lanes, first) || HasFaintMemory(*lanes, second) ||
        HasFaintSample(lanes->samples[first], frames) ||
        HasFaintSample(lanes->samples[second], frames) ||
        HasFaintSample(lanes->input1 + first, 1) || HasFaintSample(lanes->input2 + first, 1) ||
        HasFaintSample(lanes->input1 + second, 1) || HasFaintSample(lanes->input2 + second, 1);
    if (!isFaint && WeightTile(*lanes->coefficients, lanes->samples[first], lanes->samples[second],
                               frames, &state, tile, &largest)) {
      StorePair(lanes->input1, first, second, state.x1);
      StorePair(lanes->input2, first, second, state.x2);
      StorePair(lanes->middle1, first, second, state.y1);
      StorePair(lanes->middle2, first, second, state.y2);
      StorePair(lanes->output1, first, second, state.z1);
      StorePair(lanes->output2, first, second, state.z2);
      double tops[2];
      _mm_storeu_pd(tops, largest);
      SumTile<0>(lanes, first, tile, frames, tops[0]);
      if (second != first) SumTile<1>(lanes, second, tile, frames, tops[1]);
    } else {
      RedoPlainly(lanes, first, second, frames);
    }
    lanes->samples[first] += frames;
    if (second != first) lanes->samples[second] += frames;
  }
}

void WeightAndSum(ChannelLanes* lanes, int n) {
  for (int first = 0; first < lanes->count; first += 2) WeightAndSumPair(lanes, first, n);
}

// Of two operands, the instruction gives the second where one is NaN.
float LargestMagnitude(const float* x, int n) {
  const __m128 sign = _mm_set1_ps(-0.0F);
  __m128 largest = _mm_setzero_ps();
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    largest = _mm_max_ps(_mm_andnot_ps(sign, _mm_loadu_ps(x + i)), largest);
  }
  float lanes[4];
  _mm_storeu_ps(lanes, largest);
  float result = 0.0F;
  for (const float one : lanes) result = result < one ? one : result;
  for (; i < n; ++i) {
    const float magnitude = x[i] < 0.0F ? -x[i] : x[i];
    if (result < magnitude) result = magnitude;
  }
  return result;
}

// Four points in time of one branch in plain single precision: close, not exact.
__m128 Estimate(const float* x, const PolyphaseBranch& branch) {
  __m128 acc = _mm_setzero_ps();
  for (int j = 0; j < kPeakHistory + 1; ++j) {
    const __m128 factor = _mm_set1_ps(branch.coefficients[j]);
    acc = _mm_add_ps(_mm_mul_ps(factor, _mm_loadu_ps(x - j)), acc);
  }
  return _mm_andnot_ps(_mm_set1_ps(-0.0F), acc);
}

float ExactMagnitude(const float* x, const PolyphaseBranch& branch) {
  float acc = 0.0F;
  for (int j = 0; j < kPeakHistory + 1; ++j) acc = MultiplyAdd(branch.coefficients[j], x[-j], acc);
  return acc < 0.0F ? -acc : acc;
}

float ExactPeak(const float* x, const PolyphaseBank& bank) {
  float largest = ExactMagnitude(x, bank.branches[0]);
  for (int p = 1; p < bank.count; ++p) {
    const float exact = ExactMagnitude(x, bank.branches[p]);
    if (largest < exact) largest = exact;
  }
  return largest;
}

// An estimate is off by at most 24 roundings of values below 2.03 times the
// largest sample: 3e-6 of it.
constexpr float kErrorShare = 4e-6F;
constexpr float kSmallestEstimated = 1e-30F;
constexpr float kLargestEstimated = 1e30F;

// Estimates of all points are made first; only those that may be 0.0, or not
// below `exactFrom`, are worked out.
void Peaks(const float* x, int n, const PolyphaseBank& bank, float exactFrom, float* peaks) {
  const float top = LargestMagnitude(x - kPeakHistory, n + kPeakHistory);
  if (!(top > kSmallestEstimated && top < kLargestEstimated) || n < 4) {
    kPlainKernels.peaks(x, n, bank, exactFrom, peaks);
    return;
  }
  const float error = top * kErrorShare;
  const __m128 low = _mm_set1_ps(error);
  const __m128 high = _mm_set1_ps(exactFrom - error);
  for (int i = 0; i < n; i += 4) {
    const int start = i + 4 <= n ? i : n - 4;  // the last four again, where fewer are left
    __m128 largest = Estimate(x + start, bank.branches[0]);
    for (int p = 1; p < bank.count; ++p) {
      largest = _mm_max_ps(Estimate(x + start, bank.branches[p]), largest);
    }
    _mm_storeu_ps(peaks + start, largest);
    int doubtful =
        _mm_movemask_ps(_mm_or_ps(_mm_cmpngt_ps(largest, low), _mm_cmpnlt_ps(largest, high)));
    for (int point = start; doubtful != 0; ++point, doubtful >>= 1) {
      if ((doubtful & 1) != 0) peaks[point] = ExactPeak(x + point, bank);
    }
  }
}

// Estimates of all points are made first; only those that can be the largest are
// worked out.
float TruePeak(const float* x, int n, const PolyphaseBank& bank) {
  const float top = LargestMagnitude(x - kPeakHistory, n + kPeakHistory);
  if (!(top > kSmallestEstimated && top < kLargestEstimated) || n < 4) {
    return kPlainKernels.truePeak(x, n, bank);
  }
  const float error = top * kErrorShare;
  float largest = ExactMagnitude(x, bank.branches[0]);
  if (!(largest == largest)) return largest;
  for (int i = 0; i < n; i += 4) {
    const int start = i + 4 <= n ? i : n - 4;  // the last four again, where fewer are left
    for (int p = 0; p < bank.count; ++p) {
      const __m128 estimates = Estimate(x + start, bank.branches[p]);
      int candidates = _mm_movemask_ps(_mm_cmpnlt_ps(estimates, _mm_set1_ps(largest - error)));
      for (int point = start; candidates != 0; ++point, candidates >>= 1) {
        if ((candidates & 1) == 0) continue;
        const float exact = ExactMagnitude(x + point, bank.branches[p]);
        if (largest < exact) largest = exact;
      }
    }
  }
  return largest;
}

}  // namespace

const ChunkKernels kSse2Kernels = {"SSE2", WeightAndSum, LargestMagnitude, TruePeak, Peaks};

}  // namespace harvane
