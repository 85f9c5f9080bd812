#ifndef HARVANE_MEASUREMENT_CHUNKKERNELS_H
#define HARVANE_MEASUREMENT_CHUNKKERNELS_H

#include <cstddef>
#include <cstdint>

#include "measurement/KWeighting.h"
#include "measurement/PolyphaseBank.h"

namespace harvane {

inline constexpr int kMaxLanes = 8;
inline constexpr int kLaneSums = 8;  // four windows of 0.4 s, then four of 3 s
inline constexpr int kPeakHistory = 11;

// Up to eight channels side by side through K-weighting and into their window
// sums. Every entry is one channel's; lanes from `count` up are not used.
struct ChannelLanes {
  int count;
  const float* samples[kMaxLanes];  // unweighted, full scale 1.0
  const KWeightingCoefficients* coefficients;
  // Memory of the stages, the newest value first in each pair.
  float input1[kMaxLanes], input2[kMaxLanes];    // into the first stage
  float middle1[kMaxLanes], middle2[kMaxLanes];  // out of the first, into the second
  float output1[kMaxLanes], output2[kMaxLanes];  // out of the second
  float sums[kLaneSums][kMaxLanes];              // of squares of the second's output
};

// The kernels of one instruction set. All sets give the same bits: those of the
// plain statement of each step in SampleMath. Thread: any.
struct ChunkKernels {
  const char* name;

  // `n` >= 1 further samples of every lane; moves `samples` on. The windows must
  // have no border within them.
  void (*weightAndSum)(ChannelLanes* lanes, int n);

  // Largest magnitude of `n` samples; NaN is passed over. 0 for none.
  float (*largestMagnitude)(const float* x, int n);

  // Largest magnitude of the interpolated values of `n` >= 1 samples, that is
  // MaxOf after AbsInPlace after OversampleBlock. x[-11] to x[-1] are the
  // samples before. NaN if the first value is. Where the largest is not above
  // `exactAbove`, any value that is not may come.
  float (*truePeak)(const float* x, int n, const PolyphaseBank& bank, float exactAbove);

  // The same for each of `n` samples by itself, into `peaks`. A peak that is above
  // 0.0 and below `exactFrom` may come as any value between the two.
  void (*peaks)(const float* x, int n, const PolyphaseBank& bank, float exactFrom, float* peaks);

  // `n` 16-bit samples that lie `stride` samples apart: each divided by 32767.
  void (*fromPcm)(const std::int16_t* pcm, std::size_t stride, std::size_t n, float* out);

  // The same for `channels` channels, up to kMaxLanes, that lie side by side in each of
  // `n` frames: each into its entry of `outs`.
  void (*fromPcmFrames)(const std::int16_t* pcm, std::size_t stride, int channels, std::size_t n,
                        float* const* outs);

  // Each limited to full scale, times 32767, cut towards zero; NaN becomes 0.
  // Deliberate: no rounding, so most positive values come back one step lower when
  // they were not changed.
  void (*toPcm)(const float* x, std::size_t n, std::int16_t* pcm);

  // In place: 10 to the power of a twentieth of each, which is rounded to single before.
  void (*decibelsToGains)(float* values, std::size_t n);
};

// The best set for this processor, chosen at the first call; or the forced one.
const ChunkKernels& ActiveKernels();

// All sets that this processor can run, the plain one first.
const ChunkKernels* const* AvailableKernels(int* count);

// For tests and benchmarks, between jobs: `kernels` from AvailableKernels, or
// null for the best again.
void ForceKernels(const ChunkKernels* kernels);

extern const ChunkKernels kPlainKernels;
#if defined(__x86_64__) || defined(__i386__)
extern const ChunkKernels kSse2Kernels;
extern const ChunkKernels kAvx2Kernels;  // with FMA
#endif

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_CHUNKKERNELS_H
