#include "measurement/OverlapPowerSums.h"

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <string>
#include <vector>

#include "measurement/OverlapBlockBuffer.h"
#include "measurement/SampleMath.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

struct Windows {
  std::vector<float> meanSquares;
  std::vector<int> positions;

  static void Take(float meanSquare, int /*channel*/, void* owner, int position) {
    auto* const windows = static_cast<Windows*>(owner);
    windows->meanSquares.push_back(meanSquare);
    windows->positions.push_back(position);
  }
  static float TakeBlock(const float* block, int length, int channel, void* owner, int position) {
    Take(SampleMath().MeanSquare(block, length), channel, owner, position);
    return 0.0F;
  }
};

TEST(OverlapPowerSums, FullWindowWaitsForTheNextAppend) {
  Windows windows;
  OverlapPowerSums sums(8, 0, 0.75F, &windows, Windows::Take);
  const std::vector<float> ones(9, 1.0F);
  sums.Append(ones.data(), 8, 100);
  EXPECT_TRUE(windows.positions.empty());
  sums.Append(ones.data(), 1, 101);
  EXPECT_EQ(windows.positions, std::vector<int>{101});
  EXPECT_TRUE(support::SameLists({1.0F}, windows.meanSquares));
}

TEST(OverlapPowerSums, EachWindowSumsItsOwnSamples) {
  Windows windows;
  OverlapPowerSums sums(4, 0, 0.5F, &windows, Windows::Take);
  const std::vector<float> steps = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  sums.Append(steps.data(), 9, 0);
  // (1 + 4 + 9 + 16) / 4, (9 + 16 + 25 + 36) / 4, (25 + 36 + 49 + 64) / 4.
  EXPECT_TRUE(support::SameLists({7.5F, 21.5F, 43.5F}, windows.meanSquares));
}

TEST(OverlapPowerSums, AfterResetAWindowNeedsItsFullLength) {
  Windows windows;
  OverlapPowerSums sums(4, 0, 0.5F, &windows, Windows::Take);
  const std::vector<float> twos(5, 2.0F);
  sums.Append(twos.data(), 4, 0);
  sums.Reset();
  sums.Append(twos.data(), 4, 1);
  EXPECT_TRUE(windows.positions.empty());
  sums.Append(twos.data(), 1, 2);
  EXPECT_TRUE(support::SameLists({4.0F}, windows.meanSquares));
}

TEST(OverlapPowerSums, ChunksOf239FillAWindowDuringTheEightyFirst) {
  Windows windows;
  OverlapPowerSums sums(19200, 0, 0.75F, &windows, Windows::Take);
  const std::vector<float> noise = support::NoiseFloat(1, 239 * 101, 1.0F);
  const auto append = [&](int chunk) {
    sums.Append(noise.data() + 239 * (chunk - 1), 239, 239 * chunk);
  };
  for (int chunk = 1; chunk <= 80; ++chunk) append(chunk);
  EXPECT_TRUE(windows.positions.empty());
  append(81);
  EXPECT_EQ(windows.positions, std::vector<int>{239 * 81});
  // 14400 are kept and 159 join them; 4641 more fill the window: 19 chunks and 100 samples.
  EXPECT_EQ(4641, sums.SamplesToBorder());
  for (int chunk = 82; chunk <= 100; ++chunk) append(chunk);
  EXPECT_EQ(100, sums.SamplesToBorder());
  EXPECT_EQ(1U, windows.positions.size());
  append(101);
  EXPECT_EQ(windows.positions, (std::vector<int>{239 * 81, 239 * 101}));
  EXPECT_TRUE(support::SameLists(
      {twin::MeanSquare(noise.data(), 19200), twin::MeanSquare(noise.data() + 4800, 19200)},
      windows.meanSquares));
}

TEST(OverlapPowerSums, OnesWithoutACallbackGatherAndShiftAsUsual) {
  Windows windows;
  OverlapPowerSums heard(8, 0, 0.75F, &windows, Windows::Take);
  OverlapPowerSums unheard(8, 0, 0.75F, nullptr, nullptr);
  const std::vector<float> noise = support::NoiseFloat(2, 350, 1.0F);
  for (int run = 0; run < 50; ++run) {
    for (OverlapPowerSums* sums : {&heard, &unheard}) sums->Append(noise.data() + 7 * run, 7, run);
    ASSERT_EQ(heard.SamplesToBorder(), unheard.SamplesToBorder()) << run;
    ASSERT_TRUE(support::SameLists({heard.Sums(), heard.Sums() + heard.SumCount()},
                                   {unheard.Sums(), unheard.Sums() + unheard.SumCount()}))
        << run;
  }
  // Hops of 2: 350 samples are 171 windows and a full one that waits.
  EXPECT_EQ(171U, windows.positions.size());
}

TEST(OverlapPowerSums, DetachedOnesCallNobody) {
  Windows windows;
  OverlapPowerSums sums(2, 0, 0.0F, &windows, Windows::Take);
  const std::vector<float> ones(9, 1.0F);
  sums.Detach();
  sums.Append(ones.data(), 9, 0);
  EXPECT_TRUE(windows.positions.empty());
}

TEST(OverlapPowerSums, NegativeWindowIsRefusedLikeABufferOfThatLength) {
  for (const int window : {-1, -3, -600, INT_MIN}) {
    SCOPED_TRACE(window);
    EXPECT_THROW(OverlapBlockBuffer(window, 48000, 0, 0.75F, nullptr, nullptr), std::bad_alloc);
    EXPECT_THROW(OverlapPowerSums(window, 0, 0.75F, nullptr, nullptr), std::bad_alloc);
    EXPECT_THROW(OverlapPowerSums(window, 0, 0.0F, nullptr, nullptr), std::bad_alloc);
  }
}

TEST(OverlapPowerSums, EachOpenWindowHasASum) {
  // Hops of 1, 2, 2, 2, 2 and a quarter: as many as begin within one window.
  EXPECT_EQ(7, OverlapPowerSums(7, 0, 0.75F, nullptr, nullptr).SumCount());
  EXPECT_EQ(4, OverlapPowerSums(8, 0, 0.75F, nullptr, nullptr).SumCount());
  EXPECT_EQ(5, OverlapPowerSums(9, 0, 0.75F, nullptr, nullptr).SumCount());
  EXPECT_EQ(5, OverlapPowerSums(10, 0, 0.75F, nullptr, nullptr).SumCount());
  EXPECT_EQ(6, OverlapPowerSums(11, 0, 0.75F, nullptr, nullptr).SumCount());
  EXPECT_EQ(4, OverlapPowerSums(2147483520, 0, 0.75F, nullptr, nullptr).SumCount());
  EXPECT_EQ(1, OverlapPowerSums(0, 0, 0.75F, nullptr, nullptr).SumCount());
  EXPECT_EQ(1, OverlapPowerSums(INT_MAX, 0, 0.0F, nullptr, nullptr).SumCount());
}

TEST(OverlapPowerSums, AgreesWithWindowsThatAreKept) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int window = measurement_tests::RandomInt(&noise, 1, 40);
    const float overlap = static_cast<float>(noise.NextBelow(8)) / 8.0F;
    SCOPED_TRACE("window " + std::to_string(window) + ", overlap " + std::to_string(overlap));
    Windows wanted;
    Windows got;
    OverlapBlockBuffer buffer(window, 48000, 0, overlap, &wanted, Windows::TakeBlock);
    OverlapPowerSums sums(window, 0, overlap, &got, Windows::Take);
    for (int run = 0; run < 12; ++run) {
      const std::vector<float> samples = measurement_tests::RandomRun(
          &noise, measurement_tests::RandomLength(&noise, 50), noise.NextBelow(8) == 0);
      if (noise.NextBelow(10) == 0) {
        buffer.Reset();
        sums.Reset();
      }
      buffer.Append(samples.data(), static_cast<int>(samples.size()), run);
      sums.Append(samples.data(), static_cast<int>(samples.size()), run);
    }
    ASSERT_EQ(wanted.positions, got.positions);
    ASSERT_TRUE(support::SameLists(wanted.meanSquares, got.meanSquares));
  });
}

}  // namespace
}  // namespace harvane
