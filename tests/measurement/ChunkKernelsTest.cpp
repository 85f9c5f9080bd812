#include "measurement/ChunkKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"

namespace harvane {
namespace {

using measurement_tests::RandomInt;

constexpr int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
// Not the published ones: any taps must do.
constexpr float kTapsUp[12] = {0.00171F, 0.011F, -0.0197F, 0.0332F,  -0.0594F, 0.137F,
                               0.972F,   -0.1F,  0.0476F,  -0.0266F, 0.0149F,  -0.0083F};
constexpr float kTapsDown[12] = {-0.0292F, 0.0293F, -0.0518F, 0.0891F,  -0.1665F, 0.4651F,
                                 0.7798F,  -0.2F,   0.1016F,  -0.0582F, 0.0331F,  -0.0189F};
constexpr PolyphaseBranch kBranches[] = {{kTapsUp, 12}, {kTapsDown, 12}};
constexpr PolyphaseBank kBank = {kBranches, 2};

std::vector<float> RandomSamples(support::NoiseSource* noise, std::size_t length) {
  return measurement_tests::RandomRun(noise, length, noise->NextBelow(8) == 0);
}

std::vector<const ChunkKernels*> FastKernels() {
  int count = 0;
  const ChunkKernels* const* const all = AvailableKernels(&count);
  return {all + 1, all + count};
}

std::vector<float> Used(const ChannelLanes& lanes) {
  std::vector<float> values;
  for (int lane = 0; lane < lanes.count; ++lane) {
    for (const float* memory :
         {lanes.input1, lanes.input2, lanes.middle1, lanes.middle2, lanes.output1, lanes.output2}) {
      values.push_back(memory[lane]);
    }
    for (const auto& sum : lanes.sums) values.push_back(sum[lane]);
  }
  return values;
}

TEST(ChunkKernels, PlainOneComesFirstAndOneIsFaster) {
  int count = 0;
  const ChunkKernels* const* const all = AvailableKernels(&count);
  EXPECT_EQ(&kPlainKernels, all[0]);
  EXPECT_LT(1, count);
  EXPECT_EQ(all[count - 1], &ActiveKernels());
}

TEST(ChunkKernels, AForcedSetIsUsedUntilItIsTakenBack) {
  ForceKernels(&kPlainKernels);
  EXPECT_EQ(&kPlainKernels, &ActiveKernels());
  ForceKernels(nullptr);
  EXPECT_NE(&kPlainKernels, &ActiveKernels());
}

TEST(ChunkKernels, WeightingAndSumsAgreeWithThePlainOnes) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int n = RandomInt(&noise, 1, RandomInt(&noise, 0, 9) == 0 ? 480 : 60);
    ChannelLanes lanes{};
    lanes.count = RandomInt(&noise, 1, kMaxLanes);
    lanes.coefficients = &KWeightingFor(kRates[noise.NextBelow(6)]);
    std::vector<std::vector<float>> samples;
    for (int lane = 0; lane < kMaxLanes; ++lane) {
      samples.push_back(RandomSamples(&noise, static_cast<std::size_t>(n)));
    }
    for (int lane = 0; lane < kMaxLanes; ++lane) {
      lanes.samples[lane] = samples[static_cast<std::size_t>(lane)].data();
    }
    if (noise.NextBelow(3) != 0) {
      for (float* memory : {lanes.input1, lanes.input2, lanes.middle1, lanes.middle2, lanes.output1,
                            lanes.output2}) {
        const std::vector<float> random = RandomSamples(&noise, kMaxLanes);
        std::copy(random.begin(), random.end(), memory);
      }
    }
    for (auto& sum : lanes.sums) {
      const std::vector<float> random = RandomSamples(&noise, kMaxLanes);
      for (int lane = 0; lane < kMaxLanes; ++lane) {
        const float v = random[static_cast<std::size_t>(lane)];
        sum[lane] = v < 0.0F ? -v : v;
      }
    }
    ChannelLanes wanted = lanes;
    kPlainKernels.weightAndSum(&wanted, n);
    for (const ChunkKernels* kernels : FastKernels()) {
      SCOPED_TRACE(std::string(kernels->name) + ", " + std::to_string(lanes.count) + " lanes, " +
                   std::to_string(n) + " samples");
      ChannelLanes got = lanes;
      kernels->weightAndSum(&got, n);
      ASSERT_TRUE(support::SameLists(Used(wanted), Used(got)));
      ASSERT_EQ(wanted.samples[0], got.samples[0]);
    }
  });
}

TEST(ChunkKernels, PeaksAgreeWithThePlainOnes) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int n = RandomInt(&noise, 1, 120);
    const std::vector<float> samples =
        RandomSamples(&noise, static_cast<std::size_t>(n) + kPeakHistory);
    const float* const x = samples.data() + kPeakHistory;
    const float exactFrom = static_cast<float>(noise.NextBelow(100)) / 100.0F;
    std::vector<float> wanted(static_cast<std::size_t>(n));
    kPlainKernels.peaks(x, n, kBank, exactFrom, wanted.data());
    for (const ChunkKernels* kernels : FastKernels()) {
      SCOPED_TRACE(std::string(kernels->name) + ", " + std::to_string(n) + " samples");
      ASSERT_BITS_EQ(kPlainKernels.largestMagnitude(x, n), kernels->largestMagnitude(x, n));
      const float peak = kPlainKernels.truePeak(x, n, kBank);
      const float got = kernels->truePeak(x, n, kBank);
      // A magnitude of 0.0 may come with either sign.
      if (peak == 0.0F) {
        ASSERT_EQ(0.0F, got);
      } else {
        ASSERT_BITS_EQ(peak, got);
      }
      std::vector<float> peaks(static_cast<std::size_t>(n));
      kernels->peaks(x, n, kBank, exactFrom, peaks.data());
      for (std::size_t i = 0; i < peaks.size(); ++i) {
        const bool isFree = wanted[i] > 0.0F && wanted[i] < exactFrom;
        if (isFree) {
          ASSERT_TRUE(peaks[i] > 0.0F && peaks[i] < exactFrom) << i << ": " << peaks[i];
        } else if (wanted[i] == 0.0F) {
          ASSERT_EQ(0.0F, peaks[i]);
        } else {
          ASSERT_BITS_EQ(wanted[i], peaks[i]);
        }
      }
    }
  });
}

}  // namespace
}  // namespace harvane
