#include "measurement/SampleHistory.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/measurement/FailingAllocations.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"

namespace harvane {
namespace {

using measurement_tests::OneIn;
using measurement_tests::RandomBits;
using measurement_tests::RandomInt;

std::vector<float> Read(const SampleHistory& history, int count) {
  std::vector<float> values(static_cast<std::size_t>(count));
  history.ReadNewestFirst(values.data(), count);
  return values;
}

void PushAll(const std::vector<float>& values, SampleHistory* history) {
  for (const float value : values) history->Push(value);
}

TEST(SampleHistory, StartsAsZeros) {
  const SampleHistory history(3);
  EXPECT_TRUE(support::SameLists({0.0F, 0.0F, 0.0F}, Read(history, 3)));
}

TEST(SampleHistory, FourPushesIntoThreeCellsReadFourThreeTwo) {
  SampleHistory history(3);
  PushAll({1.0F, 2.0F, 3.0F, 4.0F}, &history);
  EXPECT_TRUE(support::SameLists({4.0F, 3.0F, 2.0F}, Read(history, 3)));
}

TEST(SampleHistory, FullRoundReadsFromTheLastCell) {
  SampleHistory history(3);
  PushAll({1.0F, 2.0F, 3.0F}, &history);
  EXPECT_TRUE(support::SameLists({3.0F, 2.0F, 1.0F}, Read(history, 3)));
}

TEST(SampleHistory, ZerosFillThePastBeforeTheFirstPush) {
  SampleHistory history(3);
  history.Push(5.0F);
  EXPECT_TRUE(support::SameLists({5.0F, 0.0F, 0.0F}, Read(history, 3)));
}

TEST(SampleHistory, ShortReadGivesTheNewestOnly) {
  SampleHistory history(12);
  PushAll({1.0F, 2.0F, 3.0F}, &history);
  EXPECT_TRUE(support::SameLists({3.0F, 2.0F}, Read(history, 2)));
  EXPECT_TRUE(Read(history, 0).empty());
}

TEST(SampleHistory, LongReadWrapsRoundToOldValues) {
  SampleHistory history(3);
  PushAll({1.0F, 2.0F, 3.0F, 4.0F}, &history);
  EXPECT_TRUE(support::SameLists({4.0F, 3.0F, 2.0F, 4.0F, 3.0F, 2.0F, 4.0F}, Read(history, 7)));
}

TEST(SampleHistory, SingleCellHoldsTheNewest) {
  SampleHistory history(1);
  PushAll({1.0F, 2.0F}, &history);
  EXPECT_TRUE(support::SameLists({2.0F, 2.0F}, Read(history, 2)));
}

TEST(SampleHistory, ReadingLeavesTheHistoryAsItWas) {
  SampleHistory history(2);
  PushAll({1.0F, 2.0F}, &history);
  Read(history, 2);
  EXPECT_TRUE(support::SameLists({2.0F, 1.0F}, Read(history, 2)));
  history.Push(3.0F);
  EXPECT_TRUE(support::SameLists({3.0F, 2.0F}, Read(history, 2)));
}

TEST(SampleHistory, AllocationFailureReachesTheCreator) {
  const auto create = [] { std::make_unique<SampleHistory>(12); };
  EXPECT_EQ(2U, measurement_tests::FailuresUntilSuccess([&](std::size_t allowed) {
              return measurement_tests::SucceedsWithAllocations(allowed, create);
            }));
}

TEST(SampleHistory, AgreesWithAnEndlessList) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int length = RandomInt(&noise, 1, 16);
    const int steps = RandomInt(&noise, 0, 60);
    SCOPED_TRACE("length " + std::to_string(length) + ", steps " + std::to_string(steps));
    SampleHistory history(length);
    std::vector<float> all(static_cast<std::size_t>(length), 0.0F);
    for (int step = 0; step < steps; ++step) {
      all.push_back(RandomBits(&noise));
      history.Push(all.back());
      if (!OneIn(&noise, 4)) continue;
      const int count = RandomInt(&noise, 0, length);
      ASSERT_TRUE(support::SameLists({all.rbegin(), all.rbegin() + count}, Read(history, count)));
    }
  });
}

}  // namespace
}  // namespace harvane
