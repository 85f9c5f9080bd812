// kernel_bench [Google Benchmark's options]
// Times every set of kernels on the same noise, and the parts around them that have one form.
// Each set's results are compared with the plain ones, bit by bit, before it is timed; items are
// channel-samples.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bench/Programme.h"
#include "measurement/ChunkKernels.h"
#include "measurement/GatedSeries.h"
#include "measurement/KWeighting.h"
#include "measurement/PolyphaseBank.h"
#include "measurement/SampleMath.h"
#include "measurement/TruePeakMeter.h"
#include "normalisation/TruePeakLimiter.h"

namespace {

constexpr int kRate = 48000;
constexpr int kChunk = 240;  // frames that a job measures at a time
constexpr int kSeconds = 10;
constexpr int kFrames = kRate * kSeconds;
constexpr float kFullScale = 32767.0F;

// The noise of one channel as floats, with zeros for a history before it.
struct Channel {
  std::vector<float> all;
  const float* samples;
};

Channel MakeChannel(int channel) {
  static const std::vector<std::int16_t> noise = bench::Noise(harvane::kMaxLanes, kRate, kSeconds);
  Channel made;
  made.all.assign(harvane::kPeakHistory, 0.0F);
  for (std::size_t i = static_cast<std::size_t>(channel); i < noise.size();
       i += harvane::kMaxLanes) {
    made.all.push_back(static_cast<float>(noise[i]) / kFullScale);
  }
  made.samples = made.all.data() + harvane::kPeakHistory;
  return made;
}

const Channel& ChannelOf(int channel) {
  static const std::vector<Channel> channels = [] {
    std::vector<Channel> list;
    for (int c = 0; c < harvane::kMaxLanes; ++c) list.push_back(MakeChannel(c));
    return list;
  }();
  return channels[static_cast<std::size_t>(channel)];
}

const harvane::PolyphaseBank& Bank() {
  static harvane::TruePeakMeter* const meter = [] {
    auto* const made = new harvane::TruePeakMeter;
    made->Init(kRate, 1);
    return made;
  }();
  return *meter->GetBank();
}

using Results = std::vector<float>;

Results WeightAndSum(const harvane::ChunkKernels& kernels, int lanes) {
  harvane::ChannelLanes state{};
  state.count = lanes;
  state.coefficients = &harvane::KWeightingFor(kRate);
  for (int lane = 0; lane < lanes; ++lane) state.samples[lane] = ChannelOf(lane).samples;
  for (int from = 0; from < kFrames; from += kChunk) kernels.weightAndSum(&state, kChunk);
  Results results;
  for (int lane = 0; lane < lanes; ++lane) {
    results.push_back(state.output1[lane]);
    for (const auto& sum : state.sums) results.push_back(sum[lane]);
  }
  return results;
}

Results TruePeak(const harvane::ChunkKernels& kernels, int /*lanes*/) {
  Results results;
  const float* const x = ChannelOf(0).samples;
  for (int from = 0; from < kFrames; from += kChunk) {
    results.push_back(kernels.truePeak(x + from, kChunk, Bank(), 0.0F));
  }
  return results;
}

Results LargestMagnitude(const harvane::ChunkKernels& kernels, int /*lanes*/) {
  Results results;
  const float* const x = ChannelOf(0).samples;
  for (int from = 0; from < kFrames; from += kChunk) {
    results.push_back(kernels.largestMagnitude(x + from, kChunk));
  }
  return results;
}

Results Peaks(const harvane::ChunkKernels& kernels, int /*lanes*/) {
  Results results(kFrames);
  const float* const x = ChannelOf(0).samples;
  for (int from = 0; from < kFrames; from += kChunk) {
    kernels.peaks(x + from, kChunk, Bank(), 0.0F, results.data() + from);
  }
  return results;
}

using Kernel = std::function<Results(const harvane::ChunkKernels&, int lanes)>;

void Register(const std::string& name, int lanes, const Kernel& kernel) {
  int count = 0;
  const harvane::ChunkKernels* const* const sets = harvane::AvailableKernels(&count);
  const Results wanted = kernel(*sets[0], lanes);
  for (int k = 0; k < count; ++k) {
    const harvane::ChunkKernels& set = *sets[k];
    const Results got = kernel(set, lanes);
    if (got.size() != wanted.size() ||
        std::memcmp(got.data(), wanted.data(), wanted.size() * sizeof(float)) != 0) {
      std::fprintf(stderr, "kernel_bench: %s of %s differs from the plain one\n", name.c_str(),
                   set.name);
      std::exit(1);
    }
    benchmark::RegisterBenchmark((name + '/' + set.name).c_str(),
                                 [&set, lanes, kernel](benchmark::State& state) {
                                   for (auto _ : state) {
                                     Results results = kernel(set, lanes);
                                     benchmark::DoNotOptimize(results.data());
                                   }
                                   state.SetItemsProcessed(state.iterations() * lanes * kFrames);
                                 });
  }
}

void GainsOfThePeaks(benchmark::State& state, float threshold) {
  harvane::TruePeakLimiter limiter;
  limiter.Init(1, kRate);
  limiter.SetThreshold(threshold);
  const Results peaks = Peaks(harvane::ActiveKernels(), 1);
  Results gains(kFrames);
  for (auto _ : state) {
    for (int from = 0; from < kFrames; from += kChunk) {
      limiter.GainsFor(peaks.data() + from, kChunk, gains.data() + from);
    }
    benchmark::DoNotOptimize(gains.data());
  }
  state.SetItemsProcessed(state.iterations() * kFrames);
}

void BothLines(benchmark::State& state) {
  harvane::TruePeakLimiter limiter;
  limiter.Init(1, kRate);
  std::vector<float> run(kChunk + harvane::kDelaySamples - 1);
  for (auto _ : state) {
    for (int from = 0; from < kFrames; from += kChunk) {
      std::memcpy(run.data() + harvane::kDelaySamples - 1, ChannelOf(0).samples + from,
                  kChunk * sizeof(float));
      limiter.PushRun(run.data(), kChunk, 0);
    }
    benchmark::DoNotOptimize(run.data());
  }
  state.SetItemsProcessed(state.iterations() * kFrames);
}

// Blocks of 400 ms in which the relative gate passes loudnesses all the time: two in three are
// loud, and the third lies anywhere around the gate.
std::vector<float> BlocksAroundTheGate(std::size_t count) {
  constexpr float kLoud = -20.0F;
  constexpr float kLowest = -34.0F;  // the gate stays near -31.7 LUFS
  constexpr float kSpread = 4.0F;
  std::vector<float> blocks(count, kLoud);
  std::uint32_t chance = 1;
  for (std::size_t i = 0; i < count; i += 3) {
    chance = chance * 1664525U + 1013904223U;
    blocks[i] = kLowest + kSpread * static_cast<float>(chance >> 8) / 0x1p24F;
  }
  return blocks;
}

// Each louder than the one before, so that the gate shuts out the earliest one by one.
std::vector<float> RisingBlocks(std::size_t count) {
  std::vector<float> blocks(count);
  for (std::size_t i = 0; i < count; ++i) {
    blocks[i] = -65.0F + 60.0F * static_cast<float>(i) / static_cast<float>(count);
  }
  return blocks;
}

// A programme's integrated loudness; items are blocks.
void Integrated(benchmark::State& state, const std::vector<float>& blocks) {
  for (auto _ : state) {
    harvane::GatedSeries series;
    for (const float block : blocks) series.UpdateIntegrated(block);
    benchmark::DoNotOptimize(series);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(blocks.size()));
}

void RegisterIntegrated() {
  constexpr std::size_t kBlocksAnHour = 36000;
  for (const std::size_t hours : {1U, 4U, 24U}) {
    const std::string length = std::to_string(hours) + " h";
    benchmark::RegisterBenchmark(("Integrated/around the gate/" + length).c_str(), Integrated,
                                 BlocksAroundTheGate(hours * kBlocksAnHour));
    benchmark::RegisterBenchmark(("Integrated/rising/" + length).c_str(), Integrated,
                                 RisingBlocks(hours * kBlocksAnHour));
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  Register("WeightAndSum1", 1, WeightAndSum);
  Register("WeightAndSum2", 2, WeightAndSum);
  Register("WeightAndSum6", 6, WeightAndSum);
  Register("WeightAndSum8", 8, WeightAndSum);
  Register("TruePeak", 1, TruePeak);
  Register("Peaks", 1, Peaks);
  Register("LargestMagnitude", 1, LargestMagnitude);
  benchmark::RegisterBenchmark("GainsFor/limiting", GainsOfThePeaks, -12.0F);
  benchmark::RegisterBenchmark("GainsFor/idle", GainsOfThePeaks, 6.0F);
  benchmark::RegisterBenchmark("PushRun", BothLines);
  RegisterIntegrated();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
