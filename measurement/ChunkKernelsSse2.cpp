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

__m128d Round(__m128d v) { return _mm_cvtps_pd(_mm_cvtpd_ps(v)); }

// Watches sums for the one pattern whose rounding can go wrong: the digits cut off
// are exactly a border between two singles.
struct Watch {
  __m128i seen = _mm_setzero_si128();

  void Look(__m128d one, __m128d other) {
    const __m128i low = _mm_castps_si128(
        _mm_shuffle_ps(_mm_castpd_ps(one), _mm_castpd_ps(other), _MM_SHUFFLE(2, 0, 2, 0)));
    const __m128i cutOff = _mm_and_si128(low, _mm_set1_epi32(0x1FFFFFFF));
    seen = _mm_or_si128(seen, _mm_cmpeq_epi32(cutOff, _mm_set1_epi32(0x10000000)));
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

constexpr int kSumPairs = kLaneSums / 2;

// Adds the squares of both channels of the tile to their sums.
void AddSquares(const __m128d* tile, int frames, __m128d (&leftSums)[kSumPairs],
                __m128d (&rightSums)[kSumPairs]) {
  __m128d l0 = leftSums[0], l1 = leftSums[1], l2 = leftSums[2], l3 = leftSums[3];
  __m128d r0 = rightSums[0], r1 = rightSums[1], r2 = rightSums[2], r3 = rightSums[3];
  for (int i = 0; i < frames; ++i) {
    const __m128d squares = _mm_mul_pd(tile[i], tile[i]);
    const __m128d left = _mm_unpacklo_pd(squares, squares);
    const __m128d right = _mm_unpackhi_pd(squares, squares);
    l0 = Round(_mm_add_pd(left, l0));
    l1 = Round(_mm_add_pd(left, l1));
    l2 = Round(_mm_add_pd(left, l2));
    l3 = Round(_mm_add_pd(left, l3));
    r0 = Round(_mm_add_pd(right, r0));
    r1 = Round(_mm_add_pd(right, r1));
    r2 = Round(_mm_add_pd(right, r2));
    r3 = Round(_mm_add_pd(right, r3));
  }
  leftSums[0] = l0, leftSums[1] = l1, leftSums[2] = l2, leftSums[3] = l3;
  rightSums[0] = r0, rightSums[1] = r1, rightSums[2] = r2, rightSums[3] = r3;
}

// `frames` frames of two channels into `tile`, weighted. False where a rounding is in
// doubt; then the state is of no use.
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
    const __m128d y0 = Round(_mm_add_pd(_mm_mul_pd(b0, x), zero));
    const __m128d y1 = _mm_add_pd(_mm_mul_pd(b1, s.x1), y0);
    const __m128d y2 = _mm_add_pd(_mm_mul_pd(b2, s.x2), Round(y1));
    watch.Look(y1, y2);
    const __m128d y3 = _mm_sub_pd(Round(y2), _mm_mul_pd(a1, s.y1));
    const __m128d y4 = _mm_sub_pd(Round(y3), _mm_mul_pd(a2, s.y2));
    watch.Look(y3, y4);
    const __m128d y = Round(y4);
    // The second stage's own factors are 1, -2 and 1: sums of two singles, which a
    // double always rounds as once.
    const __m128d z0 = Round(_mm_sub_pd(_mm_add_pd(y, zero), _mm_add_pd(s.y1, s.y1)));
    const __m128d z1 = Round(_mm_add_pd(z0, s.y2));
    const __m128d z2 = _mm_sub_pd(z1, _mm_mul_pd(d1, s.z1));
    const __m128d z3 = _mm_sub_pd(Round(z2), _mm_mul_pd(d2, s.z2));
    watch.Look(z2, z3);
    const __m128d z = Round(z3);
    s = {x, s.x1, y, s.y1, z, s.z1};
    top = _mm_max_pd(MagnitudeOf(z), top);
    tile[i] = z;
  }
  *state = s;
  *largest = top;
  return watch.IsClear();
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

void LoadSums(const ChannelLanes& lanes, int lane, __m128d (&sums)[kSumPairs]) {
  for (int p = 0; p < kSumPairs; ++p) {
    sums[p] = _mm_set_pd(static_cast<double>(lanes.sums[2 * p + 1][lane]),
                         static_cast<double>(lanes.sums[2 * p][lane]));
  }
}

// Those sums that a double may not have rounded right are done again.
template <int kLane>
void SaveSums(ChannelLanes* lanes, int lane, const __m128d (&sums)[kSumPairs], const __m128d* tile,
              int frames, double largest) {
  const double square = largest * largest;
  for (int s = 0; s < kLaneSums; ++s) {
    float& sum = lanes->sums[s][lane];
    if (sum >= kSmallestSumShare * square && sum >= kSmallestSum) {
      double pair[2];
      _mm_storeu_pd(pair, sums[s / 2]);
      sum = static_cast<float>(pair[s % 2]);
    } else {
      AddSquaresPlainly<kLane>(tile, frames, &sum);
    }
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
      __m128d leftSums[kSumPairs];
      __m128d rightSums[kSumPairs];
      LoadSums(*lanes, first, leftSums);
      LoadSums(*lanes, second, rightSums);
      AddSquares(tile, frames, leftSums, rightSums);
      StorePair(lanes->input1, first, second, state.x1);
      StorePair(lanes->input2, first, second, state.x2);
      StorePair(lanes->middle1, first, second, state.y1);
      StorePair(lanes->middle2, first, second, state.y2);
      StorePair(lanes->output1, first, second, state.z1);
      StorePair(lanes->output2, first, second, state.z2);
      double tops[2];
      _mm_storeu_pd(tops, largest);
      SaveSums<0>(lanes, first, leftSums, tile, frames, tops[0]);
      if (second != first) SaveSums<1>(lanes, second, rightSums, tile, frames, tops[1]);
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

// The lower halves of four pairs of samples, as floats.
__m128 LowerHalves(__m128i pairs) {
  const __m128i samples = _mm_srai_epi32(_mm_slli_epi32(pairs, 16), 16);
  return _mm_div_ps(_mm_cvtepi32_ps(samples), _mm_set1_ps(32767.0F));
}

void FromPcm(const std::int16_t* pcm, std::size_t stride, std::size_t n, float* out) {
  std::size_t i = 0;
  if (stride == 1) {
    for (; i + 4 <= n; i += 4) {
      const __m128i four = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pcm + i));
      _mm_storeu_ps(out + i, LowerHalves(_mm_unpacklo_epi16(four, four)));
    }
  } else if (stride == 2) {
    // A load takes the other channel's sample behind the last one as well.
    for (; i + 4 < n; i += 4) {
      const __m128i pairs = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pcm + 2 * i));
      _mm_storeu_ps(out + i, LowerHalves(pairs));
    }
  } else {
    for (; i + 4 <= n; i += 4) {
      const std::int16_t* const x = pcm + i * stride;
      const __m128i four = _mm_setr_epi32(x[0], x[stride], x[2 * stride], x[3 * stride]);
      _mm_storeu_ps(out + i, _mm_div_ps(_mm_cvtepi32_ps(four), _mm_set1_ps(32767.0F)));
    }
  }
  for (; i < n; ++i) out[i] = static_cast<float>(pcm[i * stride]) / 32767.0F;
}

// Of two operands, the minimum and the maximum are the second where one is NaN.
void ToPcm(const float* x, std::size_t n, std::int16_t* pcm) {
  const __m128d scale = _mm_set1_pd(32767.0);
  std::size_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128 v = _mm_loadu_ps(x + i);
    const __m128 number = _mm_and_ps(v, _mm_cmpord_ps(v, v));
    const __m128 limited = _mm_max_ps(_mm_min_ps(number, _mm_set1_ps(1.0F)), _mm_set1_ps(-1.0F));
    const __m128i low = _mm_cvttpd_epi32(_mm_mul_pd(_mm_cvtps_pd(limited), scale));
    const __m128i high =
        _mm_cvttpd_epi32(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(limited, limited)), scale));
    const __m128i four = _mm_unpacklo_epi64(low, high);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(pcm + i), _mm_packs_epi32(four, four));
  }
  kPlainKernels.toPcm(x + i, n - i, pcm + i);
}

void DecibelsToGains(float* values, std::size_t n) { kPlainKernels.decibelsToGains(values, n); }

}  // namespace

const ChunkKernels kSse2Kernels = {"SSE2",  WeightAndSum, LargestMagnitude, TruePeak, Peaks,
                                   FromPcm, ToPcm,        DecibelsToGains};

}  // namespace harvane
