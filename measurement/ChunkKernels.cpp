#include "measurement/ChunkKernels.h"

#include <atomic>

#include "measurement/Arithmetic.h"
#include "measurement/SampleMath.h"

namespace harvane {
namespace {

// One lane through both stages and into its sums, sample by sample.
void WeightAndSumLane(ChannelLanes* lanes, int lane, int n) {
  const KWeightingCoefficients& k = *lanes->coefficients;
  const float* const x = lanes->samples[lane];
  for (int i = 0; i < n; ++i) {
    float middle = MultiplyAdd(k.firstStageB[0], x[i], 0.0F);
    middle = MultiplyAdd(k.firstStageB[1], lanes->input1[lane], middle);
    middle = MultiplyAdd(k.firstStageB[2], lanes->input2[lane], middle);
    middle = MultiplyAdd(-k.firstStageA[1], lanes->middle1[lane], middle);
    middle = MultiplyAdd(-k.firstStageA[2], lanes->middle2[lane], middle);
    float output = MultiplyAdd(k.secondStageB[0], middle, 0.0F);
    output = MultiplyAdd(k.secondStageB[1], lanes->middle1[lane], output);
    output = MultiplyAdd(k.secondStageB[2], lanes->middle2[lane], output);
    output = MultiplyAdd(-k.secondStageA[1], lanes->output1[lane], output);
    output = MultiplyAdd(-k.secondStageA[2], lanes->output2[lane], output);
    lanes->input2[lane] = lanes->input1[lane];
    lanes->input1[lane] = x[i];
    lanes->middle2[lane] = lanes->middle1[lane];
    lanes->middle1[lane] = middle;
    lanes->output2[lane] = lanes->output1[lane];
    lanes->output1[lane] = output;
    for (float(&sum)[kMaxLanes] : lanes->sums) sum[lane] = MultiplyAdd(output, output, sum[lane]);
  }
  lanes->samples[lane] += n;
}

void WeightAndSum(ChannelLanes* lanes, int n) {
  for (int lane = 0; lane < lanes->count; ++lane) WeightAndSumLane(lanes, lane, n);
}

float Magnitude(float v) { return v < 0.0F ? -v : v; }

float LargestMagnitude(const float* x, int n) {
  float largest = 0.0F;
  for (int i = 0; i < n; ++i) {
    if (largest < Magnitude(x[i])) largest = Magnitude(x[i]);
  }
  return largest;
}

float TruePeak(const float* x, int n, const PolyphaseBank& bank, float /*exactAbove*/) {
  float largest = 0.0F;
  for (int i = 0; i < n; ++i) {
    for (int p = 0; p < bank.count; ++p) {
      float acc = 0.0F;
      for (int j = 0; j < bank.branches[p].length; ++j) {
        acc = MultiplyAdd(bank.branches[p].coefficients[j], x[i - j], acc);
      }
      if ((i == 0 && p == 0) || largest < Magnitude(acc)) largest = Magnitude(acc);
    }
  }
  return largest;
}

void Peaks(const float* x, int n, const PolyphaseBank& bank, float /*exactFrom*/, float* peaks) {
  for (int i = 0; i < n; ++i) peaks[i] = TruePeak(x + i, 1, bank, 0.0F);
}

constexpr float kPcmFullScale = 32767.0F;  // both signs, both directions

void FromPcm(const std::int16_t* pcm, std::size_t stride, std::size_t n, float* out) {
  for (std::size_t i = 0; i < n; ++i) {
    out[i] = static_cast<float>(pcm[i * stride]) / kPcmFullScale;
  }
}

void FromPcmFrames(const std::int16_t* pcm, std::size_t stride, int channels, std::size_t n,
                   float* const* outs) {
  for (int c = 0; c < channels; ++c) FromPcm(pcm + c, stride, n, outs[c]);
}

void ToPcm(const float* x, std::size_t n, std::int16_t* pcm) {
  for (std::size_t i = 0; i < n; ++i) {
    float v = x[i];
    v = v < -1.0F ? -1.0F : v;
    v = v > 1.0F ? 1.0F : v;
    v = v == v ? v : 0.0F;
    pcm[i] = static_cast<std::int16_t>(static_cast<int>(static_cast<double>(v) * kPcmFullScale));
  }
}

void DecibelsToGains(float* values, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    values[i] = TenToThe(static_cast<float>(static_cast<double>(values[i]) / 20.0));
  }
}

std::atomic<const ChunkKernels*> forcedKernels{nullptr};

struct KernelList {
  const ChunkKernels* entries[3] = {&kPlainKernels};
  int count = 1;
};

KernelList FindKernels() {
  KernelList list;
#if defined(__x86_64__) || defined(__i386__)
  list.entries[list.count++] = &kSse2Kernels;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
    list.entries[list.count++] = &kAvx2Kernels;
  }
#endif
  return list;
}

const KernelList& Kernels() {
  static const KernelList list = FindKernels();
  return list;
}

}  // namespace

const ChunkKernels kPlainKernels = {"plain",       WeightAndSum, LargestMagnitude,
                                    TruePeak,      Peaks,        FromPcm,
                                    FromPcmFrames, ToPcm,        DecibelsToGains};

const ChunkKernels* const* AvailableKernels(int* count) {
  *count = Kernels().count;
  return Kernels().entries;
}

const ChunkKernels& ActiveKernels() {
  const ChunkKernels* const forced = forcedKernels.load(std::memory_order_relaxed);
  return forced != nullptr ? *forced : *Kernels().entries[Kernels().count - 1];
}

void ForceKernels(const ChunkKernels* kernels) { forcedKernels = kernels; }

}  // namespace harvane
