// Two channels as the doubles of one vector. Without a fused multiply-add a step is a
// double sum, rounded again to single; where that could differ from rounding once, the
// plain steps do the work.
#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>

#include "measurement/Arithmetic.h"
#include "measurement/ChunkKernels.h"

namespace harvane {
namespace {

constexpr int kTileFrames = 128;  // even
constexpr int kFeedFrames = 8;    // whose roundings are watched together
constexpr int kSumFrames = 64;    // the same for the sums

// A tile that begins with values of this size, or zeros, ends before anything has
// faded, or cancelled, into the range below 2^-125 in which singles lose digits:
// a stage keeps more than 2^-32 of its level over a tile, and a difference of two
// terms is 0 or at least 2^-48 of them.
constexpr float kSmallestLevel = 0x1p-24F;
// And from values below this one nothing grows beyond the largest single.
constexpr float kLargestLevel = 0x1p60F;
constexpr float kSmallestSum = 0x1p-100F;

// Rounds doubles to single by adding half of what is then cut off. That is right unless
// a double lies on the border between two singles, where it matters what the double lost
// itself and which of the two is even: such borders are remembered.
class WatchedRounding {
 public:
  __m128d operator()(__m128d v) {
    constexpr long long kCutOff = 0x1FFFFFFF;
    const __m128i raised = _mm_add_epi64(_mm_castpd_si128(v), _mm_set1_epi64x(kCutOff / 2 + 1));
    const __m128i kept = _mm_and_si128(raised, _mm_set1_epi64x(~kCutOff));
    borders = _mm_or_si128(borders, _mm_cmpeq_epi32(raised, kept));
    return _mm_castsi128_pd(kept);
  }
  bool MetBorder() const {
    constexpr int kLowHalves = 5;
    return (_mm_movemask_ps(_mm_castsi128_ps(borders)) & kLowHalves) != 0;
  }

 private:
  __m128i borders = _mm_setzero_si128();
};

__m128 Magnitudes(__m128 v) { return _mm_andnot_ps(_mm_set1_ps(-0.0F), v); }

// The lanes that are neither 0.0 nor between the levels, or not a number.
__m128 UnusualLanes(__m128 v) {
  const __m128 magnitudes = Magnitudes(v);
  return _mm_or_ps(_mm_cmpnlt_ps(magnitudes, _mm_set1_ps(kLargestLevel)),
                   _mm_and_ps(_mm_cmplt_ps(magnitudes, _mm_set1_ps(kSmallestLevel)),
                              _mm_cmpneq_ps(magnitudes, _mm_setzero_ps())));
}

// The same for the memories of a stage: of two values only the larger may not be small.
__m128 UnusualMemories(__m128 one, __m128 two) {
  const __m128 largest = _mm_set1_ps(kLargestLevel);
  return _mm_or_ps(
      UnusualLanes(_mm_max_ps(Magnitudes(one), Magnitudes(two))),
      _mm_or_ps(_mm_cmpnlt_ps(Magnitudes(one), largest), _mm_cmpnlt_ps(Magnitudes(two), largest)));
}

// Two neighbouring lanes.
__m128 LoadSingles(const float* lanes) {
  return _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(lanes));
}
__m128d LoadPair(const float* lanes) { return _mm_cvtps_pd(LoadSingles(lanes)); }
void StoreSingles(float* lanes, __m128 v) { _mm_storel_pi(reinterpret_cast<__m64*>(lanes), v); }
void StorePair(float* lanes, __m128d v) { StoreSingles(lanes, _mm_cvtpd_ps(v)); }

// A run of two channels on its way through the stages.
struct Tile {
  int frames;
  // Both channels side by side: two frames that went before, then those of the tile.
  alignas(16) float inputs[2 * (2 + kTileFrames)];
  __m128d values[kTileFrames];
};

// False where a sample is unusual.
bool LoadInputs(const ChannelLanes& lanes, int first, int second, Tile* tile) {
  const float* const left = lanes.samples[first];
  const float* const right = lanes.samples[second];
  const __m128 before =
      _mm_movelh_ps(LoadSingles(lanes.input2 + first), LoadSingles(lanes.input1 + first));
  _mm_store_ps(tile->inputs, before);
  __m128 unusual = UnusualLanes(before);
  float* to = tile->inputs + 4;
  int i = 0;
  for (; i + 4 <= tile->frames; i += 4, to += 8) {
    const __m128 l = _mm_loadu_ps(left + i);
    const __m128 r = _mm_loadu_ps(right + i);
    unusual = _mm_or_ps(unusual, _mm_or_ps(UnusualLanes(l), UnusualLanes(r)));
    _mm_store_ps(to, _mm_unpacklo_ps(l, r));
    _mm_store_ps(to + 4, _mm_unpackhi_ps(l, r));
  }
  for (; i < tile->frames; ++i, to += 2) {
    const __m128 one = _mm_unpacklo_ps(_mm_load_ss(left + i), _mm_load_ss(right + i));
    unusual = _mm_or_ps(unusual, UnusualLanes(one));
    StoreSingles(to, one);
  }
  if (i < kTileFrames) StoreSingles(to, _mm_setzero_ps());
  return _mm_movemask_ps(unusual) == 0;
}

__m128d Both(float v) { return _mm_set1_pd(static_cast<double>(v)); }

// The terms of the first stage that come from its inputs. A frame too many may be done.
void SumInputTerms(const KWeightingCoefficients& k, Tile* tile) {
  const __m128 b0 = _mm_set1_ps(k.firstStageB[0]);
  const __m128d b1 = Both(k.firstStageB[1]);
  const __m128d b2 = Both(k.firstStageB[2]);
  for (int from = 0; from < tile->frames; from += kFeedFrames) {
    const int end = std::min(from + kFeedFrames, tile->frames);
    WatchedRounding round;
    for (int i = from; i < end; i += 2) {
      const float* const x = tile->inputs + 2 * (i + 2);
      // From 0.0: -0.0 becomes 0.0.
      const __m128 firsts = _mm_add_ps(_mm_mul_ps(b0, _mm_load_ps(x)), _mm_setzero_ps());
      const auto rest = [&](const float* before, __m128d first) {
        const __m128d second = round(_mm_add_pd(_mm_mul_pd(b1, LoadPair(before)), first));
        return round(_mm_add_pd(_mm_mul_pd(b2, LoadPair(before - 2)), second));
      };
      tile->values[i] = rest(x - 2, _mm_cvtps_pd(firsts));
      tile->values[i + 1] = rest(x, _mm_cvtps_pd(_mm_movehl_ps(firsts, firsts)));
    }
    if (!round.MetBorder()) continue;
    for (int i = from; i < end; ++i) {
      const float* const x = tile->inputs + 2 * (i + 2);
      float sums[2];
      for (int lane = 0; lane < 2; ++lane) {
        sums[lane] = MultiplyAdd(k.firstStageB[0], x[lane], 0.0F);
        sums[lane] = MultiplyAdd(k.firstStageB[1], x[lane - 2], sums[lane]);
        sums[lane] = MultiplyAdd(k.firstStageB[2], x[lane - 4], sums[lane]);
      }
      tile->values[i] = LoadPair(sums);
    }
  }
}

// The rest of both stages, in place. False where the memory is unusual, or a rounding in
// doubt; then the memory stays as it was.
bool Recur(const KWeightingCoefficients& k, ChannelLanes* lanes, int first, Tile* tile) {
  __m128 single1 = LoadSingles(lanes->middle1 + first);
  __m128 single2 = LoadSingles(lanes->middle2 + first);
  const __m128 unusual = _mm_movelh_ps(
      UnusualMemories(single1, single2),
      UnusualMemories(LoadSingles(lanes->output1 + first), LoadSingles(lanes->output2 + first)));
  if (_mm_movemask_ps(unusual) != 0) return false;
  const __m128d a1 = Both(-k.firstStageA[1]);
  const __m128d a2 = Both(-k.firstStageA[2]);
  const __m128d d1 = Both(-k.secondStageA[1]);
  const __m128d d2 = Both(-k.secondStageA[2]);
  __m128d y1 = _mm_cvtps_pd(single1);
  __m128d y2 = _mm_cvtps_pd(single2);
  __m128d z1 = LoadPair(lanes->output1 + first);
  __m128d z2 = LoadPair(lanes->output2 + first);
  WatchedRounding round;
  for (int i = 0; i < tile->frames; ++i) {
    const __m128d y3 = round(_mm_add_pd(_mm_mul_pd(a1, y1), tile->values[i]));
    const __m128d y = round(_mm_add_pd(_mm_mul_pd(a2, y2), y3));
    // The second stage's own factors are 1, -2 and 1: sums of two singles. A sum that
    // began with 0.0 is never -0.0, so that y needs no 0.0 added.
    const __m128 single = _mm_cvtpd_ps(y);
    const __m128 z3 = _mm_sub_ps(single, _mm_add_ps(single1, single1));
    const __m128d z4 = _mm_cvtps_pd(_mm_add_ps(z3, single2));
    const __m128d z5 = round(_mm_add_pd(_mm_mul_pd(d1, z1), z4));
    const __m128d z = round(_mm_add_pd(_mm_mul_pd(d2, z2), z5));
    tile->values[i] = z;
    y2 = y1, y1 = y;
    single2 = single1, single1 = single;
    z2 = z1, z1 = z;
  }
  if (round.MetBorder()) return false;
  const float* const last = tile->inputs + 2 * (tile->frames + 1);
  StoreSingles(lanes->input1 + first, LoadSingles(last));
  StoreSingles(lanes->input2 + first, LoadSingles(last - 2));
  StoreSingles(lanes->middle1 + first, single1);
  StoreSingles(lanes->middle2 + first, single2);
  StorePair(lanes->output1 + first, z1);
  StorePair(lanes->output2 + first, z2);
  return true;
}

// The singles from one power of 2 to the next are equal steps apart; doubles from 1.5 times
// a power far above are the same steps apart. A sum that is kept on top of such an anchor
// is rounded to single, and once, by the addition itself, up to the next power of 2.
constexpr double kToAnchor = 0x1.8p29;

// Of one lane; moves the anchor on where the sum passes a power of 2.
float AddSquaresOfLane(const __m128d* values, int lane, int n, float sum) {
  const double* const z = reinterpret_cast<const double*>(values) + lane;
  double anchor = 0.0;
  double highest = 0.0;
  const auto castAnchor = [&] {
    const bool isUsual = sum >= kSmallestSum && sum <= 1.0F / kSmallestSum;
    const auto bits = std::bit_cast<std::uint32_t>(sum) & 0x7F800000;
    const double power = isUsual ? static_cast<double>(std::bit_cast<float>(bits)) : 0.0;
    anchor = power * kToAnchor;
    highest = anchor + 2.0 * power;
  };
  castAnchor();
  double anchored = anchor + static_cast<double>(sum);
  for (int i = 0; i < n; ++i) {
    const double next = anchored + z[2 * i] * z[2 * i];
    if (next <= highest) {
      anchored = next;
      continue;
    }
    const auto single = static_cast<float>(z[2 * i]);
    sum = MultiplyAdd(single, single, static_cast<float>(anchored - anchor));
    castAnchor();
    anchored = anchor + static_cast<double>(sum);
  }
  return static_cast<float>(anchored - anchor);
}

void AddSquares(const __m128d* values, int n, ChannelLanes* lanes, int first) {
  const __m128d exponentBits = _mm_castsi128_pd(_mm_set1_epi64x(0x7FF0000000000000));
  const __m128d toAnchor = _mm_set1_pd(kToAnchor);
  __m128d sums[kLaneSums];
  for (int s = 0; s < kLaneSums; ++s) {
    const __m128d before = LoadPair(lanes->sums[s] + first);
    sums[s] = _mm_add_pd(_mm_mul_pd(_mm_and_pd(before, exponentBits), toAnchor), before);
  }
  for (int i = 0; i < n; ++i) {
    const __m128d squares = _mm_mul_pd(values[i], values[i]);
    for (__m128d& sum : sums) sum = _mm_add_pd(sum, squares);
  }
  for (int s = 0; s < kLaneSums; ++s) {
    float* const memory = lanes->sums[s] + first;
    const __m128d before = LoadPair(memory);
    const __m128d power = _mm_and_pd(before, exponentBits);
    const __m128d sum = _mm_sub_pd(sums[s], _mm_mul_pd(power, toAnchor));
    const __m128d isRight =
        _mm_and_pd(_mm_cmple_pd(sum, _mm_add_pd(power, power)),
                   _mm_cmpge_pd(before, _mm_set1_pd(static_cast<double>(kSmallestSum))));
    const int rightLanes = _mm_movemask_pd(isRight);
    if (rightLanes == 3) {
      StorePair(memory, sum);
      continue;
    }
    float rounded[2];
    StorePair(rounded, sum);
    for (int lane = 0; lane < 2 && first + lane < lanes->count; ++lane) {
      const bool isLaneRight = (rightLanes >> lane & 1) != 0;
      memory[lane] = isLaneRight ? rounded[lane] : AddSquaresOfLane(values, lane, n, memory[lane]);
    }
  }
}

// The plain kernel for one lane of the eight.
void RedoPlainly(ChannelLanes* lanes, int lane, int frames) {
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

// An odd count leaves the last lane alone: what is beside it is worked out and not kept.
void WeightAndSumPair(ChannelLanes* lanes, int first, int n) {
  const int second = first + 1 < lanes->count ? first + 1 : first;
  Tile tile;
  for (int from = 0; from < n; from += kTileFrames) {
    tile.frames = std::min(kTileFrames, n - from);
    bool isDone = LoadInputs(*lanes, first, second, &tile);
    if (isDone) {
      SumInputTerms(*lanes->coefficients, &tile);
      isDone = Recur(*lanes->coefficients, lanes, first, &tile);
    }
    if (isDone) {
      for (int i = 0; i < tile.frames; i += kSumFrames) {
        AddSquares(tile.values + i, std::min(kSumFrames, tile.frames - i), lanes, first);
      }
    } else {
      for (int lane = first; lane <= second; ++lane) RedoPlainly(lanes, lane, tile.frames);
    }
    for (int lane = first; lane <= second; ++lane) lanes->samples[lane] += tile.frames;
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

constexpr int kTaps = kPeakHistory + 1;

// Interpolated values in plain single precision: close, not exact. The two samples as
// far from either end of the taps enter as their sum and their difference. Branches that
// mirror one another then share two halves, of which one value is the sum and the other
// the difference, so that the larger magnitude is the sum of both halves' magnitudes.
class Estimator {
 public:
  static constexpr int kParts = 2;

  // A branch, or two that mirror one another.
  struct Part {
    const PolyphaseBranch* branch;
    const PolyphaseBranch* mirrored;  // null for none
    __m128 sumTaps[kTaps / 2], differenceTaps[kTaps / 2];
  };

  // False for a bank of more parts: then nothing else may be called.
  bool Init(const PolyphaseBank& bank) {
    int count = 0;
    for (int p = 0; p < bank.count; ++p) {
      const PolyphaseBranch& branch = bank.branches[p];
      if (count > 0 && MirrorOneOf(count, branch)) continue;
      if (count == kParts) return false;
      Fill(&parts[count++], branch);
    }
    if (count < kParts) parts[1] = parts[0];
    return true;
  }

  const Part& operator[](int p) const { return parts[p]; }

  // Of each part, the largest magnitude of its branches at four points in time from `x` on.
  void Estimate(const float* x, __m128 (&largest)[kParts]) const {
    __m128 even[kParts] = {_mm_setzero_ps(), _mm_setzero_ps()};
    __m128 odd[kParts] = {_mm_setzero_ps(), _mm_setzero_ps()};
    for (int j = 0; j < kTaps / 2; ++j) {
      const __m128 near = _mm_loadu_ps(x - j);
      const __m128 far = _mm_loadu_ps(x - kPeakHistory + j);
      const __m128 sum = _mm_add_ps(near, far);
      const __m128 difference = _mm_sub_ps(near, far);
      for (int p = 0; p < kParts; ++p) {
        even[p] = _mm_add_ps(_mm_mul_ps(parts[p].sumTaps[j], sum), even[p]);
        odd[p] = _mm_add_ps(_mm_mul_ps(parts[p].differenceTaps[j], difference), odd[p]);
      }
    }
    for (int p = 0; p < kParts; ++p) {
      largest[p] = parts[p].mirrored != nullptr
                       ? _mm_add_ps(Magnitudes(even[p]), Magnitudes(odd[p]))
                       : Magnitudes(_mm_add_ps(even[p], odd[p]));
    }
  }

 private:
  bool MirrorOneOf(int count, const PolyphaseBranch& branch) {
    const auto reversed = std::make_reverse_iterator(branch.coefficients + kTaps);
    for (int p = 0; p < count; ++p) {
      const float* const taps = parts[p].branch->coefficients;
      if (parts[p].mirrored == nullptr && std::equal(taps, taps + kTaps, reversed)) {
        parts[p].mirrored = &branch;
        return true;
      }
    }
    return false;
  }

  static void Fill(Part* part, const PolyphaseBranch& branch) {
    part->branch = &branch;
    part->mirrored = nullptr;
    for (int j = 0; j < kTaps / 2; ++j) {
      const float near = 0.5F * branch.coefficients[j];
      const float far = 0.5F * branch.coefficients[kPeakHistory - j];
      part->sumTaps[j] = _mm_set1_ps(near + far);
      part->differenceTaps[j] = _mm_set1_ps(near - far);
    }
  }

  Part parts[kParts];
};

float ExactMagnitude(const float* x, const PolyphaseBranch& branch) {
  float acc = 0.0F;
  for (int j = 0; j < kTaps; ++j) acc = MultiplyAdd(branch.coefficients[j], x[-j], acc);
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

// The magnitudes of a branch's taps sum up to 2.03 at most, and those of a part's to twice
// as much. An estimate takes at most 10 roundings of each term, an exact value 12: together
// they are off by 10 * 2^-24 * 4.06 + 12 * 2^-24 * 2.03 = 3.9e-6 of the largest sample.
constexpr float kErrorShare = 6e-6F;
constexpr float kSmallestEstimated = 1e-30F;
constexpr float kLargestEstimated = 1e30F;

bool CanEstimate(float top, int n) {
  return top > kSmallestEstimated && top < kLargestEstimated && n >= 4;
}

// Estimates of all points are made first; only those that may be 0.0, or not
// below `exactFrom`, are worked out.
void Peaks(const float* x, int n, const PolyphaseBank& bank, float exactFrom, float* peaks) {
  const float top = LargestMagnitude(x - kPeakHistory, n + kPeakHistory);
  Estimator estimator;
  if (!CanEstimate(top, n) || !estimator.Init(bank)) {
    kPlainKernels.peaks(x, n, bank, exactFrom, peaks);
    return;
  }
  const float error = top * kErrorShare;
  const __m128 low = _mm_set1_ps(error);
  const __m128 high = _mm_set1_ps(exactFrom - error);
  for (int i = 0; i < n; i += 4) {
    const int start = i + 4 <= n ? i : n - 4;  // the last four again, where fewer are left
    __m128 estimates[Estimator::kParts];
    estimator.Estimate(x + start, estimates);
    const __m128 largest = _mm_max_ps(estimates[0], estimates[1]);
    _mm_storeu_ps(peaks + start, largest);
    int doubtful =
        _mm_movemask_ps(_mm_or_ps(_mm_cmpngt_ps(largest, low), _mm_cmpnlt_ps(largest, high)));
    for (int point = start; doubtful != 0; ++point, doubtful >>= 1) {
      if ((doubtful & 1) != 0) peaks[point] = ExactPeak(x + point, bank);
    }
  }
}

bool HasNaN(const float* x, int n) {
  return std::any_of(x, x + n, [](float v) { return v != v; });
}

// Estimates come first; only what can be the largest is worked out.
float TruePeak(const float* x, int n, const PolyphaseBank& bank, float exactAbove) {
  const float top = LargestMagnitude(x - kPeakHistory, n + kPeakHistory);
  Estimator estimator;
  if (!CanEstimate(top, n) || HasNaN(x - kPeakHistory, kTaps) || !estimator.Init(bank)) {
    return kPlainKernels.truePeak(x, n, bank, exactAbove);
  }
  const float error = top * kErrorShare;
  float largest = exactAbove;
  for (int i = 0; i < n; i += 4) {
    const int start = i + 4 <= n ? i : n - 4;  // the last four again, where fewer are left
    __m128 estimates[Estimator::kParts];
    estimator.Estimate(x + start, estimates);
    for (int p = 0; p < Estimator::kParts; ++p) {
      int candidates = _mm_movemask_ps(_mm_cmpnlt_ps(estimates[p], _mm_set1_ps(largest - error)));
      for (const float* point = x + start; candidates != 0; ++point, candidates >>= 1) {
        if ((candidates & 1) == 0) continue;
        for (const PolyphaseBranch* branch : {estimator[p].branch, estimator[p].mirrored}) {
          if (branch == nullptr) continue;
          const float exact = ExactMagnitude(point, *branch);
          if (largest < exact) largest = exact;
        }
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

void FromPcmFrames(const std::int16_t* pcm, std::size_t stride, int channels, std::size_t n,
                   float* const* outs) {
  for (int c = 0; c < channels; ++c) FromPcm(pcm + c, stride, n, outs[c]);
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

const ChunkKernels kSse2Kernels = {"SSE2",        WeightAndSum, LargestMagnitude,
                                   TruePeak,      Peaks,        FromPcm,
                                   FromPcmFrames, ToPcm,        DecibelsToGains};

}  // namespace harvane
