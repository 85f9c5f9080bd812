#include "measurement/OverlapBlockBuffer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "tests/measurement/FailingAllocations.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

using measurement_tests::OneIn;
using measurement_tests::RandomInt;
using measurement_tests::RandomLength;
using measurement_tests::RandomRun;

// What a gatherer handed over.
struct Blocks {
  std::vector<std::vector<float>> samples;
  std::vector<int> positions;
  std::vector<int> channels;

  static float Take(const float* block, int blockLength, int channel, void* owner, int position) {
    auto* const blocks = static_cast<Blocks*>(owner);
    blocks->samples.emplace_back(block, block + blockLength);
    blocks->positions.push_back(position);
    blocks->channels.push_back(channel);
    return 1.0F;
  }
};

std::vector<float> Ramp(std::size_t count) { return support::Ramp(1.0F, count); }

std::vector<float> RampFrom(float first, std::size_t count) {
  std::vector<float> ramp;
  for (std::size_t i = 0; i < count; ++i) ramp.push_back(first + static_cast<float>(i));
  return ramp;
}

void Append(const std::vector<float>& samples, int position, OverlapBlockBuffer* gatherer) {
  gatherer->Append(samples.data(), static_cast<int>(samples.size()), position);
}

// ---- lengths

struct LengthCase {
  int sampleRate;
  int momentary, momentaryHop, momentaryKept;
  int shortTerm, shortTermHop, shortTermKept;
};

// Blocks of a gatherer fed with the running sample number, a tenth of a window at a time.
void ExpectWindows(int window, int hop, int kept) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(window, 0, 0, 0.75F, &blocks, Blocks::Take);
  EXPECT_EQ(hop, gatherer.HopLength());
  const std::size_t needed = static_cast<std::size_t>(window + 2 * hop + 1);
  Append(Ramp(needed - 1), 1, &gatherer);
  EXPECT_EQ(2U, blocks.samples.size());
  Append(RampFrom(static_cast<float>(needed - 1), 1), 2, &gatherer);
  ASSERT_EQ(3U, blocks.samples.size());
  for (std::size_t k = 0; k < 3; ++k) {
    const std::vector<float> wanted = RampFrom(
        static_cast<float>(k * static_cast<std::size_t>(hop)), static_cast<std::size_t>(window));
    EXPECT_TRUE(support::SameLists(wanted, blocks.samples[k])) << "block " << k;
  }
  // The first sample that the first block has not stands behind those that were kept of it.
  EXPECT_BITS_EQ(static_cast<float>(window), blocks.samples[1].at(static_cast<std::size_t>(kept)));
}

class OverlapBlockBufferRates : public testing::TestWithParam<LengthCase> {};

TEST_P(OverlapBlockBufferRates, WindowLengthsAreThoseOfTheRate) {
  EXPECT_EQ(GetParam().momentary, WindowLength(GetParam().sampleRate, 0.4F));
  EXPECT_EQ(GetParam().shortTerm, WindowLength(GetParam().sampleRate, 3.0F));
}

TEST_P(OverlapBlockBufferRates, BlockBeginsAtAMultipleOfTheHop) {
  const LengthCase& one = GetParam();
  ExpectWindows(one.momentary, one.momentaryHop, one.momentaryKept);
  ExpectWindows(one.shortTerm, one.shortTermHop, one.shortTermKept);
}

INSTANTIATE_TEST_SUITE_P(
    Rates, OverlapBlockBufferRates,
    testing::Values(LengthCase{44100, 17640, 4410, 13230, 132300, 33075, 99225},
                    LengthCase{48000, 19200, 4800, 14400, 144000, 36000, 108000},
                    LengthCase{88200, 35280, 8820, 26460, 264600, 66150, 198450},
                    LengthCase{96000, 38400, 9600, 28800, 288000, 72000, 216000},
                    LengthCase{176400, 70560, 17640, 52920, 529200, 132300, 396900},
                    LengthCase{192000, 76800, 19200, 57600, 576000, 144000, 432000}),
    [](const testing::TestParamInfo<LengthCase>& info) {
      return "Rate" + std::to_string(info.param.sampleRate);
    });

TEST(OverlapBlockBuffer, WindowLengthIsCutAfterRoundingToSingle) {
  // Singles lie 16 apart here, so the product 150000003 becomes 150000000.
  EXPECT_EQ(150000000, WindowLength(50000001, 3.0F));
  EXPECT_EQ(3, WindowLength(8, 0.4F));
  EXPECT_EQ(4, WindowLength(10, 0.4F));
}

int HopOf(int window, float overlap) {
  return OverlapBlockBuffer(window, 48000, 0, overlap, nullptr, nullptr).HopLength();
}

TEST(OverlapBlockBuffer, HopIsCutToWholeSamples) {
  EXPECT_EQ(2, HopOf(8, 0.75F));
  EXPECT_EQ(2, HopOf(11, 0.75F));
  EXPECT_EQ(0, HopOf(3, 0.75F));
}

TEST(OverlapBlockBuffer, HopIsTakenOfAShareRoundedToSingle) {
  // 1 - 0.333333343 is 0.66666665673, as a single 0.66666662693: three times that is 1.99999988,
  // a single of its own. Without the first rounding it would be 1.99999997, which goes to 2.
  EXPECT_EQ(1, HopOf(3, 1.0F / 3.0F));
  // 1 - 2^-30 goes to 1.
  EXPECT_EQ(8, HopOf(8, 1.0F / 1073741824.0F));
}

TEST(OverlapBlockBuffer, NoOverlapAndFullOverlapHaveNoHop) {
  EXPECT_EQ(0, HopOf(8, 0.0F));
  EXPECT_EQ(0, HopOf(8, 1.0F));
}

// ---- gathering

TEST(OverlapBlockBuffer, FullWindowWaitsForTheNextAppend) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, &blocks, Blocks::Take);
  const std::vector<float> ramp = Ramp(9);

  gatherer.Append(ramp.data(), 8, 100);
  EXPECT_TRUE(blocks.positions.empty());

  gatherer.Append(ramp.data() + 8, 1, 101);
  EXPECT_EQ(blocks.positions, std::vector<int>{101});
  EXPECT_TRUE(support::SameLists(Ramp(8), blocks.samples[0]));
}

TEST(OverlapBlockBuffer, FullWindowIgnoresAnEmptyAppend) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, &blocks, Blocks::Take);
  Append(Ramp(8), 100, &gatherer);
  gatherer.Append(nullptr, 0, 101);
  EXPECT_TRUE(blocks.positions.empty());
  Append({8.0F}, 102, &gatherer);
  EXPECT_EQ(blocks.positions, std::vector<int>{102});
}

TEST(OverlapBlockBuffer, AppendAfterAFullWindowGathersItsOwnSamples) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, &blocks, Blocks::Take);
  Append(Ramp(8), 100, &gatherer);
  Append({8.0F, 9.0F}, 101, &gatherer);
  EXPECT_EQ(1U, blocks.samples.size());
  Append({10.0F}, 102, &gatherer);
  ASSERT_EQ(2U, blocks.samples.size());
  EXPECT_TRUE(support::SameLists(RampFrom(2.0F, 8), blocks.samples[1]));
}

TEST(OverlapBlockBuffer, EmptyAppendChangesNothing) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(4, 48000, 0, 0.75F, &blocks, Blocks::Take);
  gatherer.Append(nullptr, 0, 99);
  Append(Ramp(3), 100, &gatherer);
  gatherer.Append(nullptr, 0, 101);
  EXPECT_TRUE(blocks.samples.empty());
  Append({3.0F, 4.0F}, 102, &gatherer);
  ASSERT_EQ(1U, blocks.samples.size());
  EXPECT_TRUE(support::SameLists(Ramp(4), blocks.samples[0]));
}

TEST(OverlapBlockBuffer, ChunksOf239FillAWindowDuringTheEightyFirst) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(19200, 48000, 0, 0.75F, &blocks, Blocks::Take);
  const std::vector<float> ramp = Ramp(239 * 101);
  int chunk = 1;
  for (; chunk <= 80; ++chunk) gatherer.Append(ramp.data() + 239 * (chunk - 1), 239, 239 * chunk);
  EXPECT_TRUE(blocks.samples.empty());
  gatherer.Append(ramp.data() + 239 * 80, 239, 239 * 81);
  ASSERT_EQ(blocks.positions, std::vector<int>{239 * 81});
  EXPECT_TRUE(support::SameLists(Ramp(19200), blocks.samples[0]));
  // 14400 are kept and 159 join them; 4641 more fill the window: 19 chunks and 100 samples.
  for (chunk = 82; chunk <= 100; ++chunk) {
    gatherer.Append(ramp.data() + 239 * (chunk - 1), 239, 239 * chunk);
  }
  EXPECT_EQ(1U, blocks.samples.size());
  gatherer.Append(ramp.data() + 239 * 100, 239, 239 * 101);
  ASSERT_EQ(blocks.positions, (std::vector<int>{239 * 81, 239 * 101}));
  EXPECT_TRUE(support::SameLists(RampFrom(4800.0F, 19200), blocks.samples[1]));
}

TEST(OverlapBlockBuffer, RunOfSeveralWindowsFinishesOneBlockPerHopAtOnePosition) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, &blocks, Blocks::Take);
  Append(Ramp(16), 77, &gatherer);
  EXPECT_EQ(blocks.positions, (std::vector<int>{77, 77, 77, 77}));
  for (std::size_t k = 0; k < blocks.samples.size(); ++k) {
    EXPECT_TRUE(support::SameLists(RampFrom(2.0F * static_cast<float>(k), 8), blocks.samples[k]));
  }
}

TEST(OverlapBlockBuffer, NoHopLaysWindowsSideBySide) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(4, 48000, 0, 0.0F, &blocks, Blocks::Take);
  Append(Ramp(12), 1, &gatherer);
  ASSERT_EQ(2U, blocks.samples.size());
  Append({12.0F}, 2, &gatherer);
  ASSERT_EQ(3U, blocks.samples.size());
  EXPECT_TRUE(support::SameLists(RampFrom(4.0F, 4), blocks.samples[1]));
  EXPECT_TRUE(support::SameLists(RampFrom(8.0F, 4), blocks.samples[2]));
}

TEST(OverlapBlockBuffer, FullOverlapLaysWindowsSideBySide) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(4, 48000, 0, 1.0F, &blocks, Blocks::Take);
  Append(Ramp(9), 1, &gatherer);
  ASSERT_EQ(2U, blocks.samples.size());
  EXPECT_TRUE(support::SameLists(RampFrom(4.0F, 4), blocks.samples[1]));
}

TEST(OverlapBlockBuffer, ChannelAndOwnerGoToTheCallback) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(2, 48000, 5, 0.75F, &blocks, Blocks::Take);
  Append(Ramp(3), -7, &gatherer);
  EXPECT_EQ(blocks.channels, std::vector<int>{5});
  EXPECT_EQ(blocks.positions, std::vector<int>{-7});
}

TEST(OverlapBlockBuffer, SampleRateIsNotUsed) {
  for (const int rate : {0, -1, 192000}) {
    Blocks blocks;
    OverlapBlockBuffer gatherer(4, rate, 0, 0.75F, &blocks, Blocks::Take);
    EXPECT_EQ(1, gatherer.HopLength());
    Append(Ramp(5), 1, &gatherer);
    EXPECT_EQ(1U, blocks.samples.size());
  }
}

TEST(OverlapBlockBuffer, UnfinishedWindowIsNeverHandedOver) {
  Blocks blocks;
  {
    OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, &blocks, Blocks::Take);
    Append(Ramp(8), 1, &gatherer);
  }
  EXPECT_TRUE(blocks.samples.empty());
}

// ---- reset and detach

TEST(OverlapBlockBuffer, ResetDropsAFullWindow) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, &blocks, Blocks::Take);
  Append(Ramp(8), 1, &gatherer);
  gatherer.Reset();
  Append(RampFrom(100.0F, 8), 2, &gatherer);
  EXPECT_TRUE(blocks.samples.empty());
  Append({108.0F}, 3, &gatherer);
  ASSERT_EQ(1U, blocks.samples.size());
  EXPECT_TRUE(support::SameLists(RampFrom(100.0F, 8), blocks.samples[0]));
}

TEST(OverlapBlockBuffer, ResetDropsTheKeptTail) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, &blocks, Blocks::Take);
  Append(Ramp(9), 1, &gatherer);
  ASSERT_EQ(1U, blocks.samples.size());
  gatherer.Reset();
  Append(RampFrom(100.0F, 8), 2, &gatherer);
  EXPECT_EQ(1U, blocks.samples.size());
  Append({108.0F}, 3, &gatherer);
  ASSERT_EQ(2U, blocks.samples.size());
  EXPECT_TRUE(support::SameLists(RampFrom(100.0F, 8), blocks.samples[1]));
}

TEST(OverlapBlockBuffer, DetachedGathererCallsNobody) {
  Blocks blocks;
  OverlapBlockBuffer gatherer(4, 48000, 0, 0.75F, &blocks, Blocks::Take);
  Append(Ramp(5), 1, &gatherer);
  gatherer.Detach();
  Append(Ramp(100), 2, &gatherer);
  EXPECT_EQ(blocks.positions, std::vector<int>{1});
}

TEST(OverlapBlockBuffer, GathererWithoutACallbackGathersAndShifts) {
  // Fails by ending the program: at a call through null, or under a sanitizer at a write past the
  // window, when a finished window is not shifted.
  OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, nullptr, nullptr);
  for (int i = 0; i < 50; ++i) Append(Ramp(7), i, &gatherer);
  gatherer.Reset();
  EXPECT_NO_THROW(Append(Ramp(1000), 50, &gatherer));
}

TEST(OverlapBlockBuffer, AllocationFailureReachesTheCreator) {
  const auto create = [] {
    std::make_unique<OverlapBlockBuffer>(8, 48000, 0, 0.75F, nullptr, nullptr);
  };
  EXPECT_EQ(2U, measurement_tests::FailuresUntilSuccess([&](std::size_t allowed) {
              return measurement_tests::SucceedsWithAllocations(allowed, create);
            }));
}

TEST(OverlapBlockBuffer, AppendAllocatesNothing) {
  OverlapBlockBuffer gatherer(8, 48000, 0, 0.75F, nullptr, nullptr);
  const std::vector<float> ramp = Ramp(100);
  EXPECT_TRUE(
      measurement_tests::SucceedsWithAllocations(0, [&] { gatherer.Append(ramp.data(), 100, 1); }));
}

// ---- properties

float RandomOverlap(support::NoiseSource* noise) {
  static const float kOverlaps[] = {0.75F, 0.75F, 0.75F,  0.0F,        0.25F, 0.5F,
                                    0.9F,  1.0F,  1e-12F, 1.0F / 3.0F, 0.2F};
  if (OneIn(noise, 4)) return static_cast<float>((noise->NextBipolar() + 1.0) / 2.0);
  return kOverlaps[noise->NextBelow(sizeof kOverlaps / sizeof kOverlaps[0])];
}

std::vector<twin::Run> RandomRuns(support::NoiseSource* noise, int window) {
  std::vector<twin::Run> runs;
  for (int i = RandomInt(noise, 0, 12); i > 0; --i) {
    std::size_t length = RandomLength(noise, 3 * window);
    if (OneIn(noise, 4)) length = static_cast<std::size_t>(window);
    runs.push_back({RandomRun(noise, length, true), RandomInt(noise, -1000, 1000000)});
  }
  return runs;
}

TEST(OverlapBlockBuffer, LengthsAgreeWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int rate = RandomInt(&noise, 1, OneIn(&noise, 2) ? 400000 : 400000000);
    const int window = RandomInt(&noise, 1, 2000);
    // Mostly a share of the window, or a single beside it.
    float overlap = static_cast<float>(RandomInt(&noise, 0, window)) / static_cast<float>(window);
    if (OneIn(&noise, 2)) overlap = std::nextafter(overlap, OneIn(&noise, 2) ? 0.0F : 1.0F);
    if (OneIn(&noise, 8)) overlap = RandomOverlap(&noise);
    SCOPED_TRACE("rate " + std::to_string(rate) + ", window " + std::to_string(window) +
                 ", overlap " + support::Show(overlap));
    ASSERT_EQ(twin::MomentaryWindow(rate), WindowLength(rate, 0.4F));
    ASSERT_EQ(twin::ShortTermWindow(rate), WindowLength(rate, 3.0F));
    ASSERT_EQ(twin::HopOf(window, overlap), HopOf(window, overlap));
  });
}

TEST(OverlapBlockBuffer, BlocksAgreeWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int window = RandomInt(&noise, 1, 48);
    const float overlap = RandomOverlap(&noise);
    SCOPED_TRACE("window " + std::to_string(window) + ", overlap " + support::Show(overlap));
    Blocks blocks;
    OverlapBlockBuffer gatherer(window, 48000, 3, overlap, &blocks, Blocks::Take);
    const int hop = twin::HopOf(window, overlap);
    ASSERT_EQ(hop, gatherer.HopLength());
    for (int stretch = RandomInt(&noise, 1, 3); stretch > 0; --stretch) {
      const std::vector<twin::Run> runs = RandomRuns(&noise, window);
      blocks = Blocks();
      for (const twin::Run& run : runs) Append(run.samples, run.position, &gatherer);
      const std::vector<twin::Block> wanted = twin::OverlappingBlocks(window, hop, runs);
      ASSERT_EQ(wanted.size(), blocks.samples.size());
      for (std::size_t k = 0; k < wanted.size(); ++k) {
        SCOPED_TRACE("block " + std::to_string(k));
        ASSERT_TRUE(support::SameLists(wanted[k].samples, blocks.samples[k]));
        ASSERT_EQ(wanted[k].position, blocks.positions[k]);
      }
      gatherer.Reset();
    }
  });
}

TEST(OverlapBlockBuffer, CuttingAStreamDifferentlyGivesTheSameBlocks) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int window = RandomInt(&noise, 1, 48);
    const float overlap = RandomOverlap(&noise);
    const std::size_t length = static_cast<std::size_t>(RandomInt(&noise, 0, 300));
    SCOPED_TRACE("window " + std::to_string(window) + ", overlap " + support::Show(overlap) +
                 ", length " + std::to_string(length));
    const std::vector<float> stream = RandomRun(&noise, length, true);
    Blocks whole;
    OverlapBlockBuffer atOnce(window, 48000, 0, overlap, &whole, Blocks::Take);
    Append(stream, 1, &atOnce);
    Blocks parts;
    OverlapBlockBuffer inParts(window, 48000, 0, overlap, &parts, Blocks::Take);
    std::size_t done = 0;
    while (done < length) {
      std::size_t count = RandomLength(&noise, 2 * window);
      if (count > length - done) count = length - done;
      inParts.Append(stream.data() + done, static_cast<int>(count), 1);
      done += count;
    }
    ASSERT_EQ(whole.samples.size(), parts.samples.size());
    for (std::size_t k = 0; k < whole.samples.size(); ++k) {
      ASSERT_TRUE(support::SameLists(whole.samples[k], parts.samples[k])) << "block " << k;
    }
  });
}

}  // namespace
}  // namespace harvane
