#include "measurement/ChunkKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/measurement/RandomSamples.h"
#include "tests/support/AnyFloat.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

using measurement_tests::RandomInt;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
// Not the published ones: any taps must do.
constexpr float kTapsUp[12] = {0.00171F, 0.011F, -0.0197F, 0.0332F,  -0.0594F, 0.137F,
                               0.972F,   -0.1F,  0.0476F,  -0.0266F, 0.0149F,  -0.0083F};
constexpr float kTapsDown[12] = {-0.0292F, 0.0293F, -0.0518F, 0.0891F,  -0.1665F, 0.4651F,
                                 0.7798F,  -0.2F,   0.1016F,  -0.0582F, 0.0331F,  -0.0189F};
constexpr float kTapsUpMirrored[12] = {-0.0083F, 0.0149F,  -0.0266F, 0.0476F,  -0.1F,  0.972F,
                                       0.137F,   -0.0594F, 0.0332F,  -0.0197F, 0.011F, 0.00171F};
constexpr float kTapsDownMirrored[12] = {-0.0189F, 0.0331F,  -0.0582F, 0.1016F,  -0.2F,   0.7798F,
                                         0.4651F,  -0.1665F, 0.0891F,  -0.0518F, 0.0293F, -0.0292F};
// The first two are no one's mirror images, then one is, then both are.
constexpr PolyphaseBranch kBranches[] = {
    {kTapsUp, 12}, {kTapsDown, 12}, {kTapsUpMirrored, 12}, {kTapsDownMirrored, 12}};
constexpr PolyphaseBank kBanks[] = {{kBranches, 1}, {kBranches, 2}, {kBranches, 3}, {kBranches, 4}};

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

// Kernels are free below `exactFrom` and up to `exactAbove`: any level, or a peak of the run or its
// neighbour.
void ComparePeaks(const std::vector<float>& samples, support::NoiseSource* noise) {
  const float* const x = samples.data() + kPeakHistory;
  const int n = static_cast<int>(samples.size()) - kPeakHistory;
  const PolyphaseBank& bank = kBanks[noise->NextBelow(4)];
  std::vector<float> wanted(static_cast<std::size_t>(n));
  kPlainKernels.peaks(x, n, bank, 0.0F, wanted.data());
  const float peak = kPlainKernels.truePeak(x, n, bank, 0.0F);
  const float level = static_cast<float>(noise->NextBelow(100)) / 100.0F;
  const float one = wanted[noise->NextBelow(static_cast<std::uint32_t>(n))];
  const float starts[] = {0.0F, level, one, std::nextafter(one, kInfinity)};
  const float exactFrom = starts[noise->NextBelow(4)];
  const float limits[] = {0.0F, -1.0F, level, peak, std::nextafter(peak, 0.0F)};
  const float exactAbove = limits[noise->NextBelow(5)];
  for (const ChunkKernels* kernels : FastKernels()) {
    SCOPED_TRACE(std::string(kernels->name) + ", " + std::to_string(bank.count) + " branches, " +
                 std::to_string(n) + " samples, exact from " + support::Show(exactFrom) +
                 " or above " + support::Show(exactAbove));
    ASSERT_BITS_EQ(kPlainKernels.largestMagnitude(x, n), kernels->largestMagnitude(x, n));
    const float got = kernels->truePeak(x, n, bank, exactAbove);
    // A magnitude of 0.0 may come with either sign.
    if (peak <= exactAbove) {
      ASSERT_LE(got, exactAbove);
    } else if (peak == 0.0F) {
      ASSERT_EQ(0.0F, got);
    } else {
      ASSERT_BITS_EQ(peak, got);
    }
    std::vector<float> peaks(static_cast<std::size_t>(n));
    kernels->peaks(x, n, bank, exactFrom, peaks.data());
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
}

TEST(ChunkKernels, PeaksAgreeWithThePlainOnes) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const auto n = static_cast<std::size_t>(RandomInt(&noise, 1, 120));
    ComparePeaks(RandomSamples(&noise, n + kPeakHistory), &noise);
  });
}

// ---- levels that no programme has, but a gain may give

// Samples in stretches of a kind each: zeros of both signs, noise, one value, one of either sign,
// few digits. None is above 1.1 times `level`.
std::vector<float> Stretches(support::NoiseSource* noise, std::size_t length, float level) {
  std::vector<float> samples;
  while (samples.size() < length) {
    const std::uint32_t kind = noise->NextBelow(6);
    const auto value = static_cast<float>(noise->NextBipolar());
    const std::size_t end = samples.size() + 1 + noise->NextBelow(150);
    while (samples.size() < std::min(end, length)) {
      const bool isOdd = samples.size() % 2 == 1;
      float sample = noise->NextBelow(2) == 0 ? 0.0F : -0.0F;
      if (kind == 1 || kind == 2) sample = static_cast<float>(noise->NextBipolar());
      if (kind == 3) sample = value;
      if (kind == 4) sample = isOdd ? value : -value;
      if (kind == 5) sample = static_cast<float>(RandomInt(noise, -8, 8)) / 8.0F;
      samples.push_back(sample * level);
    }
  }
  return samples;
}

float RandomLevel(support::NoiseSource* noise) {
  return std::ldexp(1.0F, RandomInt(noise, -149, 126));
}

// The lanes of a case have one level: kernels take the long way for two of them where one needs it.
void CompareLanes(float samplesLevel, float memoryLevel, support::NoiseSource* noise) {
  const bool isShort = noise->NextBelow(3) == 0;
  const auto n = static_cast<std::size_t>(RandomInt(noise, 1, isShort ? 4 : 500));
  ChannelLanes lanes{};
  lanes.count = RandomInt(noise, 1, kMaxLanes);
  lanes.coefficients = &KWeightingFor(kRates[noise->NextBelow(6)]);
  std::vector<std::vector<float>> samples;
  for (int lane = 0; lane < lanes.count; ++lane) {
    samples.push_back(Stretches(noise, n, samplesLevel));
    lanes.samples[lane] = samples.back().data();
  }
  for (float* memory :
       {lanes.input1, lanes.input2, lanes.middle1, lanes.middle2, lanes.output1, lanes.output2}) {
    const std::vector<float> stretches = Stretches(noise, kMaxLanes, memoryLevel);
    std::copy(stretches.begin(), stretches.end(), memory);
  }
  for (auto& sum : lanes.sums) {
    // Those of the level itself, and those that a window of a programme has.
    const float top = noise->NextBelow(2) == 0 ? memoryLevel * memoryLevel : 100000.0F;
    for (float& one : sum) one = std::fabs(static_cast<float>(noise->NextBipolar())) * top;
  }
  int count = 0;
  const ChunkKernels* const* const all = AvailableKernels(&count);
  std::vector<ChannelLanes> got(static_cast<std::size_t>(count), lanes);
  for (int left = static_cast<int>(n); left > 0;) {
    const int run = RandomInt(noise, 1, left);
    left -= run;
    for (int k = 0; k < count; ++k) {
      all[k]->weightAndSum(&got[static_cast<std::size_t>(k)], run);
      ASSERT_TRUE(support::SameLists(Used(got[0]), Used(got[static_cast<std::size_t>(k)])))
          << all[k]->name << ", levels " << support::Show(samplesLevel) << " and "
          << support::Show(memoryLevel) << ", " << lanes.count << " lanes, " << left << " of " << n
          << " samples left";
    }
  }
}

TEST(ChunkKernels, WeightingAndSumsAtAnyLevelAgreeWithThePlainOnes) {
  support::ForEachSeed(1500, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const float level = RandomLevel(&noise);
    CompareLanes(level, noise.NextBelow(2) == 0 ? level : 0.0F, &noise);
  });
}

TEST(ChunkKernels, FadesIntoSilenceAgreeWithThePlainOnes) {
  support::ForEachSeed(500, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    CompareLanes(0.0F, noise.NextBelow(4) == 0 ? 0.0F : RandomLevel(&noise), &noise);
  });
}

TEST(ChunkKernels, PeaksAtAnyLevelAgreeWithThePlainOnes) {
  support::ForEachSeed(3000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const auto n = static_cast<std::size_t>(RandomInt(&noise, 1, 120));
    ComparePeaks(Stretches(&noise, n + kPeakHistory, RandomLevel(&noise)), &noise);
  });
}

// Every 16-bit value, in every place of a vector; the quotient is rounded once where a double one
// is rounded again, which for these values is the same.
TEST(ChunkKernels, EveryPcmValueIsDividedByFullScale) {
  for (const std::size_t stride : {1U, 2U, 3U, 6U, 32U}) {
    std::vector<std::int16_t> pcm(65536 * stride);
    std::vector<float> wanted(65536);
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      const int value = static_cast<int>(i) - 32768;
      pcm[i * stride] = static_cast<std::int16_t>(value);
      wanted[i] = static_cast<float>(value / 32767.0);
    }
    int count = 0;
    const ChunkKernels* const* const all = AvailableKernels(&count);
    for (int k = 0; k < count; ++k) {
      SCOPED_TRACE(std::string(all[k]->name) + ", stride " + std::to_string(stride));
      for (std::size_t first = 0; first < 9; ++first) {
        std::vector<float> got(wanted.size() - first);
        all[k]->fromPcm(pcm.data() + first * stride, stride, got.size(), got.data());
        ASSERT_EQ(0, std::memcmp(wanted.data() + first, got.data(), got.size() * sizeof(float)));
      }
    }
  }
}

// A page that ends with the last sample tells of a load beyond it.
TEST(ChunkKernels, PcmIsReadNoFurtherThanItsLastSample) {
  for (const std::size_t stride : {1U, 2U, 3U, 6U, 32U}) {
    for (std::size_t n = 0; n < 40; ++n) {
      const std::size_t length = n == 0 ? 0 : (n - 1) * stride + 1;
      const auto pcm = std::make_unique<std::int16_t[]>(length);
      for (std::size_t i = 0; i < length; ++i) pcm[i] = static_cast<std::int16_t>(100 * i);
      std::vector<float> wanted(n);
      kPlainKernels.fromPcm(pcm.get(), stride, n, wanted.data());
      for (const ChunkKernels* kernels : FastKernels()) {
        std::vector<float> got(n);
        kernels->fromPcm(pcm.get(), stride, n, got.data());
        ASSERT_TRUE(support::SameLists(wanted, got)) << kernels->name << ", " << n;
      }
    }
  }
}

// Each channel by itself is the statement; a block that ends with the last sample tells of a load
// beyond it.
TEST(ChunkKernels, PcmFramesAreSplitIntoTheirChannels) {
  support::ForEachSeed(2000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int channels = RandomInt(&noise, 1, kMaxLanes);
    const auto width = static_cast<std::size_t>(channels);
    const std::size_t stride = width + noise.NextBelow(4) * noise.NextBelow(9);
    const std::size_t n = noise.NextBelow(40);
    const std::size_t length = n == 0 ? 0 : (n - 1) * stride + width;
    const auto pcm = std::make_unique<std::int16_t[]>(length);
    for (std::size_t i = 0; i < length; ++i) {
      pcm[i] = static_cast<std::int16_t>(static_cast<int>(noise.NextBelow(65536)) - 32768);
    }
    std::vector<std::vector<float>> wanted(width, std::vector<float>(n));
    for (std::size_t c = 0; c < width && n != 0; ++c) {
      kPlainKernels.fromPcm(pcm.get() + c, stride, n, wanted[c].data());
    }
    int count = 0;
    const ChunkKernels* const* const all = AvailableKernels(&count);
    for (int k = 0; k < count; ++k) {
      std::vector<std::vector<float>> got(width, std::vector<float>(n));
      float* outs[kMaxLanes] = {};
      for (std::size_t c = 0; c < width; ++c) outs[c] = got[c].data();
      all[k]->fromPcmFrames(pcm.get(), stride, channels, n, outs);
      for (std::size_t c = 0; c < width; ++c) {
        ASSERT_TRUE(support::SameLists(wanted[c], got[c]))
            << all[k]->name << ", channel " << c << " of " << width << ", " << n << " frames";
      }
    }
  });
}

TEST(ChunkKernels, PcmOutIsThePlainOne) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    std::vector<float> values(static_cast<std::size_t>(RandomInt(&noise, 0, 40)));
    for (float& v : values) {
      // Beside any float, those around the borders between two steps.
      v = noise.NextBelow(2) == 0
              ? support::AnyFloat(&noise, 1.1F)
              : static_cast<float>((static_cast<int>(noise.NextBelow(65537)) - 32768) / 32767.0);
      if (noise.NextBelow(3) == 0) v = std::nextafter(v, noise.NextBelow(2) == 0 ? 2.0F : -2.0F);
    }
    std::vector<std::int16_t> wanted(values.size());
    kPlainKernels.toPcm(values.data(), values.size(), wanted.data());
    for (const ChunkKernels* kernels : FastKernels()) {
      std::vector<std::int16_t> got(values.size());
      kernels->toPcm(values.data(), values.size(), got.data());
      ASSERT_EQ(wanted, got) << kernels->name;
    }
  });
}

TEST(ChunkKernels, PcmOutIsCutTowardsZero) {
  const float values[] = {0.0F,
                          -0.0F,
                          1.0F,
                          -1.0F,
                          2.0F,
                          -2.0F,
                          0.99999F,
                          -0.5F,
                          0.5F,
                          1e-9F,
                          -1e-9F,
                          std::numeric_limits<float>::quiet_NaN(),
                          1.0F / 32767.0F,
                          3.0518513e-05F};
  const std::vector<std::int16_t> wanted = {0,      0,     32767, -32767, 32767, -32767, 32766,
                                            -16383, 16383, 0,     0,      0,     0,      1};
  int count = 0;
  const ChunkKernels* const* const all = AvailableKernels(&count);
  for (int k = 0; k < count; ++k) {
    std::vector<std::int16_t> got(std::size(values));
    all[k]->toPcm(values, got.size(), got.data());
    EXPECT_EQ(wanted, got) << all[k]->name;
  }
}

TEST(ChunkKernels, GainsAgreeWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    std::vector<float> decibels(static_cast<std::size_t>(RandomInt(&noise, 0, 40)));
    std::vector<float> wanted;
    for (float& v : decibels) {
      v = noise.NextBelow(4) == 0 ? support::AnyFloat(&noise, 800.0F)
                                  : -static_cast<float>(noise.NextBipolar()) * 20.0F;
      if (noise.NextBelow(8) == 0) v *= 1e-6F;
      wanted.push_back(twin::Pow(10.0F, static_cast<float>(static_cast<double>(v) / 20.0)));
    }
    int count = 0;
    const ChunkKernels* const* const all = AvailableKernels(&count);
    for (int k = 0; k < count; ++k) {
      std::vector<float> got = decibels;
      all[k]->decibelsToGains(got.data(), got.size());
      ASSERT_TRUE(support::SameLists(wanted, got)) << all[k]->name;
    }
  });
}

}  // namespace
}  // namespace harvane
