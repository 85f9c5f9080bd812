#include "measurement/GatedSeries.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tests/measurement/FailingAllocations.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/measurement/RecentRangeTwin.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

using measurement_tests::OneIn;
using measurement_tests::RandomInt;
using measurement_tests::RecentRangeTwin;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kJustAboveTheGate = std::nextafter(-70.0F, 0.0F);

std::vector<float> List(const CheckedList<float>& values) { return {values.begin(), values.end()}; }

std::vector<float> Values(const CheckedList<AcceptedLoudness>& values) {
  std::vector<float> list;
  for (const AcceptedLoudness& one : values) list.push_back(one.value);
  return list;
}

// Those above the relative gate, the newest twice if it is one of them.
std::vector<float> KeptOf(const GatedSeries& series) {
  std::vector<float> kept;
  for (const float value : Values(series.Accepted())) {
    if (value > series.RelativeGate()) kept.push_back(value);
  }
  if (series.Accepted().IsEmpty()) return kept;
  const float newest = series.Accepted()[series.Accepted().Size() - 1].value;
  if (newest > series.RelativeGate()) kept.push_back(newest);
  return kept;
}

std::vector<float> Sorted(std::vector<float> values) {
  std::sort(values.begin(), values.end());
  return values;
}

// ---- power mean

TEST(MeanPower, OfOneLoudnessIsItsPower) {
  EXPECT_BITS_EQ(0.1F, MeanPower({-10.0F}));
  EXPECT_BITS_EQ(1.0F, MeanPower({0.0F}));
}

TEST(MeanPower, OfSilenceIsZero) { EXPECT_BITS_EQ(0.0F, MeanPower({-kInfinity, -kInfinity})); }

TEST(MeanPower, OfNothingIsNotANumber) { EXPECT_TRUE(std::isnan(MeanPower({}))); }

TEST(MeanPower, SumsInOrderWithRoundingAtEachStep) {
  // 3e-8 vanishes beside 1 however often it comes; seven of them summed up before it count.
  CheckedList<float> loudFirst = {0.0F};
  CheckedList<float> loudLast;
  for (int i = 0; i < 7; ++i) {
    loudFirst.Append(-75.2F);
    loudLast.Append(-75.2F);
  }
  loudLast.Append(0.0F);
  EXPECT_BITS_EQ(0.125F, MeanPower(loudFirst));
  // 7 * 3.02e-8 = 2.1e-7, nearest to two steps of 2^-23 above 1.
  EXPECT_BITS_EQ((1.0F + 2.0F / 8388608.0F) / 8.0F, MeanPower(loudLast));
}

// ---- integrated loudness

TEST(GatedSeries, StartsEmptyWithBothGatesAtMinus70) {
  const GatedSeries series;
  EXPECT_TRUE(series.Accepted().IsEmpty());
  EXPECT_TRUE(KeptOf(series).empty());
  EXPECT_BITS_EQ(-70.0F, series.RelativeGate());
}

TEST(GatedSeries, SingleBlockIsTheIntegratedLoudness) {
  GatedSeries series;
  EXPECT_TRUE(series.UpdateIntegrated(-10.0F));
  EXPECT_TRUE(support::SameLists({-10.0F, -10.0F}, KeptOf(series)));
  // 0.1F twice is exact, and so is half of it.
  EXPECT_BITS_EQ(-10.0F, series.Result());
  EXPECT_BITS_EQ(-20.0F, series.RelativeGate());
}

TEST(GatedSeries, NewestBlockCountsTwice) {
  GatedSeries series;
  EXPECT_TRUE(series.UpdateIntegrated(-10.0F));
  EXPECT_TRUE(series.UpdateIntegrated(-16.0F));
  EXPECT_TRUE(support::SameLists({-10.0F, -16.0F, -16.0F}, KeptOf(series)));
  // (10^-1 + 2 * 10^-1.6) / 3 = 0.050079; once it would be 0.0625594, which is -12.0 dB. The steps
  // of single precision here are 1e-6 dB.
  EXPECT_NEAR(10.0 * std::log10((0.1 + 2.0 * std::pow(10.0, -1.6)) / 3.0), double(series.Result()),
              1e-5);
  EXPECT_TRUE(series.UpdateIntegrated(-10.0F));
  EXPECT_TRUE(support::SameLists({-10.0F, -16.0F, -10.0F, -10.0F}, KeptOf(series)));
}

TEST(GatedSeries, BlockExactlyAtTheGateIsRefused) {
  GatedSeries series;
  EXPECT_FALSE(series.UpdateIntegrated(-70.0F));
  EXPECT_FALSE(series.UpdateRange(-70.0F));
  EXPECT_TRUE(series.Accepted().IsEmpty());
  EXPECT_TRUE(KeptOf(series).empty());
  EXPECT_BITS_EQ(-70.0F, series.RelativeGate());
  EXPECT_TRUE(series.UpdateIntegrated(kJustAboveTheGate));
  EXPECT_EQ(1U, series.Accepted().Size());
}

TEST(GatedSeries, SilenceAndNaNAreRefused) {
  GatedSeries series;
  for (const float value : {-kInfinity, kNaN, -100.0F}) {
    EXPECT_FALSE(series.UpdateIntegrated(value));
    EXPECT_FALSE(series.UpdateRange(value));
  }
  EXPECT_TRUE(series.Accepted().IsEmpty());
}

TEST(GatedSeries, BlockUnderTheRelativeGateMovesOnlyTheGate) {
  GatedSeries series;
  EXPECT_TRUE(series.UpdateIntegrated(-10.0F));
  const float before = series.Result();
  EXPECT_FALSE(series.UpdateIntegrated(-60.0F));
  EXPECT_BITS_EQ(before, series.Result());
  EXPECT_TRUE(support::SameLists({-10.0F, -60.0F}, Values(series.Accepted())));
  EXPECT_TRUE(support::SameLists({-10.0F}, KeptOf(series)));
  // Half the power: 3.01 LU lower.
  EXPECT_NEAR(-23.0103, double(series.RelativeGate()), 1e-4);
}

TEST(GatedSeries, KeptAndGateFollowBlocksUnderTheGateWhileTheResultStays) {
  GatedSeries series;
  series.UpdateIntegrated(-25.0F);
  series.UpdateIntegrated(-10.0F);
  // The power mean is -12.87, so -25 is out.
  EXPECT_TRUE(support::SameLists({-10.0F, -10.0F}, KeptOf(series)));
  const float before = series.Result();
  for (int i = 0; i < 20; ++i) EXPECT_FALSE(series.UpdateIntegrated(-60.0F));
  // 22 blocks share the power of two: the gate sinks by 10.4 LU and lets -25 in again.
  EXPECT_NEAR(-33.28, double(series.RelativeGate()), 0.02);
  EXPECT_TRUE(support::SameLists({-25.0F, -10.0F}, KeptOf(series)));
  EXPECT_BITS_EQ(before, series.Result());
}

TEST(GatedSeries, BlockExactlyAtTheRelativeGateIsRefused) {
  // Beside a block of -10 there is one value that is the gate of both, near -22.8: the gate hardly
  // moves with the quieter block, so putting the gate in its place again and again finds it.
  float candidate = -20.0F;
  GatedSeries series;
  for (int i = 0; i < 100; ++i) {
    series = GatedSeries();
    series.UpdateIntegrated(-10.0F);
    series.UpdateIntegrated(candidate);
    if (support::SameBits(series.RelativeGate(), candidate)) break;
    candidate = series.RelativeGate();
  }
  ASSERT_BITS_EQ(candidate, series.RelativeGate());
  EXPECT_TRUE(support::SameLists({-10.0F}, KeptOf(series)));
  EXPECT_BITS_EQ(-10.0F, series.Result());
}

TEST(GatedSeries, AcceptedBlocksStandInOrderOfArrival) {
  GatedSeries series;
  for (const float value : {-20.0F, -80.0F, -25.0F}) series.UpdateIntegrated(value);
  EXPECT_TRUE(support::SameLists({-20.0F, -25.0F}, Values(series.Accepted())));
}

TEST(GatedSeries, InfiniteLoudnessKeepsNothing) {
  GatedSeries series;
  EXPECT_TRUE(series.UpdateIntegrated(-20.0F));
  const float before = series.Result();
  EXPECT_FALSE(series.UpdateIntegrated(kInfinity));
  EXPECT_TRUE(KeptOf(series).empty());
  EXPECT_BITS_EQ(kInfinity, series.RelativeGate());
  EXPECT_BITS_EQ(before, series.Result());
}

// ---- loudness range

struct IndexCase {
  int count;
  int low;
  int high;
};

class GatedSeriesIndices : public testing::TestWithParam<IndexCase> {};

TEST_P(GatedSeriesIndices, LieOnePlaceAboveTheUsualReading) {
  const RangeIndices indices = RangeIndicesFor(GetParam().count);
  EXPECT_EQ(GetParam().low, indices.low);
  EXPECT_EQ(GetParam().high, indices.high);
}

INSTANTIATE_TEST_SUITE_P(Counts, GatedSeriesIndices,
                         testing::Values(IndexCase{2, 1, 1}, IndexCase{3, 1, 2},
                                         IndexCase{10, 1, 9}, IndexCase{11, 2, 10},
                                         IndexCase{21, 3, 20}, IndexCase{100, 10, 95},
                                         IndexCase{101, 11, 96}),
                         [](const testing::TestParamInfo<IndexCase>& info) {
                           return "Count" + std::to_string(info.param.count);
                         });

TEST(GatedSeries, IndicesNeverLeaveTheList) {
  for (int count = 2; count <= 100000; ++count) {
    const RangeIndices indices = RangeIndicesFor(count);
    ASSERT_LE(indices.low, indices.high) << count;
    ASSERT_LT(indices.high, count);
    ASSERT_EQ(twin::PercentileIndex(std::size_t(count), 10.0), std::size_t(indices.low)) << count;
    ASSERT_EQ(twin::PercentileIndex(std::size_t(count), 95.0), std::size_t(indices.high)) << count;
  }
}

TEST(GatedSeries, FirstRangeIsZero) {
  GatedSeries series;
  EXPECT_TRUE(series.UpdateRange(-23.0F));
  EXPECT_BITS_EQ(0.0F, series.Result());
  EXPECT_TRUE(support::SameLists({-23.0F, -23.0F}, KeptOf(series)));
}

TEST(GatedSeries, RangeOfTenBlocksIsTakenBetweenTheThirdAndTheLastOfEleven) {
  GatedSeries series;
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(series.UpdateRange(-30.0F + static_cast<float>(i)));
  }
  EXPECT_EQ(11U, KeptOf(series).size());
  EXPECT_BITS_EQ(-28.0F, Sorted(KeptOf(series))[2]);
  EXPECT_BITS_EQ(-21.0F, Sorted(KeptOf(series))[10]);
  EXPECT_BITS_EQ(7.0F, series.Result());
}

TEST(GatedSeries, NewestBlockCountsTwiceInTheRange) {
  GatedSeries series;
  series.UpdateRange(-20.0F);
  series.UpdateRange(-30.0F);
  // Sorted: -30, -30, -20, with indices 1 and 2. Counted once it would be index 1 of two: 0.
  EXPECT_TRUE(support::SameLists({-30.0F, -30.0F, -20.0F}, Sorted(KeptOf(series))));
  EXPECT_BITS_EQ(10.0F, series.Result());
}

TEST(GatedSeries, RangeGateLiesTwentyUnderTheMean) {
  GatedSeries series;
  series.UpdateRange(-10.0F);
  EXPECT_BITS_EQ(-30.0F, series.RelativeGate());
}

TEST(GatedSeries, BlockUnderTheRangeGateMovesOnlyTheGate) {
  GatedSeries series;
  series.UpdateRange(-10.0F);
  series.UpdateRange(-20.0F);
  const float before = series.Result();
  EXPECT_FALSE(series.UpdateRange(-60.0F));
  EXPECT_BITS_EQ(before, series.Result());
  EXPECT_TRUE(support::SameLists({-10.0F, -20.0F}, KeptOf(series)));
  EXPECT_EQ(3U, series.Accepted().Size());
}

TEST(GatedSeries, AcceptedStayInOrderWhileKeptAreSorted) {
  GatedSeries series;
  for (const float value : {-20.0F, -25.0F, -15.0F}) series.UpdateRange(value);
  EXPECT_TRUE(support::SameLists({-20.0F, -25.0F, -15.0F}, Values(series.Accepted())));
  EXPECT_TRUE(support::SameLists({-25.0F, -20.0F, -15.0F, -15.0F}, Sorted(KeptOf(series))));
}

TEST(GatedSeries, AllocationFailureReachesTheCaller) {
  EXPECT_LT(0U, measurement_tests::FailuresUntilSuccess([&](std::size_t allowed) {
              GatedSeries series;
              return measurement_tests::SucceedsWithAllocations(
                  allowed, [&] { series.UpdateIntegrated(-20.0F); });
            }));
}

// ---- recent range

RecentRange FreshRecentRange() {
  RecentRange range;
  range.Init(20);
  return range;
}

TEST(RecentRange, StartsWithAllCellsAtTheGate) {
  const RecentRange range = FreshRecentRange();
  EXPECT_EQ(20, range.capacity);
  EXPECT_EQ(0, range.writeIndex);
  EXPECT_TRUE(support::SameLists(std::vector<float>(20, -70.0F), List(range.ring)));
  EXPECT_TRUE(range.kept.IsEmpty());
  EXPECT_BITS_EQ(-70.0F, range.absoluteGate);
  EXPECT_BITS_EQ(-70.0F, range.relativeGate);
}

TEST(RecentRange, OneValueAmongUnwrittenCellsLeavesLowAtMinus70) {
  RecentRange range = FreshRecentRange();
  EXPECT_TRUE(range.Update(-60.0F));
  // (10^-6 + 19 * 10^-7) / 20 = 1.45e-7, that is -68.39; the gate lies 20 lower.
  EXPECT_NEAR(-88.386, double(range.relativeGate), 1e-3);
  EXPECT_BITS_EQ(-70.0F, range.low);
  EXPECT_BITS_EQ(-60.0F, range.high);
  EXPECT_EQ(20U, range.kept.Size());
}

TEST(RecentRange, LoudValueShutsTheUnwrittenCellsOut) {
  RecentRange range = FreshRecentRange();
  EXPECT_TRUE(range.Update(-20.0F));
  EXPECT_TRUE(range.Update(-30.0F));
  EXPECT_BITS_EQ(-30.0F, range.low);
  EXPECT_BITS_EQ(-20.0F, range.high);
  EXPECT_TRUE(support::SameLists({-30.0F, -20.0F}, List(range.kept)));
}

TEST(RecentRange, ValueExactlyAtTheGateIsRefused) {
  RecentRange range = FreshRecentRange();
  EXPECT_FALSE(range.Update(-70.0F));
  EXPECT_FALSE(range.Update(-kInfinity));
  EXPECT_FALSE(range.Update(kNaN));
  EXPECT_EQ(0, range.writeIndex);
  EXPECT_TRUE(range.Update(kJustAboveTheGate));
  EXPECT_EQ(1, range.writeIndex);
}

TEST(RecentRange, TwentyFirstValueOverwritesTheFirst) {
  RecentRange range = FreshRecentRange();
  range.Update(-5.0F);
  for (int i = 0; i < 19; ++i) range.Update(-20.0F);
  EXPECT_BITS_EQ(-5.0F, range.high);
  range.Update(-21.0F);
  EXPECT_EQ(21, range.writeIndex);
  EXPECT_BITS_EQ(-20.0F, range.high);
  EXPECT_BITS_EQ(-21.0F, range.low);
  EXPECT_BITS_EQ(-21.0F, range.ring[0]);
}

TEST(RecentRange, InfiniteLoudnessLeavesLowAndHighUntilItIsOverwritten) {
  RecentRange range = FreshRecentRange();
  range.Update(-20.0F);
  EXPECT_FALSE(range.Update(kInfinity));
  EXPECT_TRUE(range.kept.IsEmpty());
  EXPECT_BITS_EQ(-20.0F, range.low);
  EXPECT_BITS_EQ(-20.0F, range.high);
  for (int i = 0; i < 19; ++i) EXPECT_FALSE(range.Update(-30.0F));
  EXPECT_TRUE(range.Update(-25.0F));
  EXPECT_BITS_EQ(-30.0F, range.low);
  EXPECT_BITS_EQ(-25.0F, range.high);
}

// ---- properties

// Loudnesses with jumps across the gates, runs of equal values, and long silences.
class RandomLoudness {
 public:
  explicit RandomLoudness(support::NoiseSource* noise) : noise(noise) {}

  float Next(float relativeGate) {
    if (left == 0) {
      level = RandomInt(noise, 0, 8);
      left = RandomInt(noise, 1, 12);
      centre = static_cast<float>(noise->NextBipolar() * 30.0 - 30.0);
    }
    --left;
    switch (level) {
      case 0:
        return -kInfinity;
      case 1:
        return Near(-70.0F);
      case 2:
        return Near(relativeGate);
      case 3:
        return centre;
      case 4:
        return Near(centre - 10.0F);
      case 5:
        return Near(centre - 20.0F);
      case 6:
        return static_cast<float>(RandomInt(noise, -80, 0));
      case 7:
        if (OneIn(noise, 30)) return Special();
        [[fallthrough]];
      default:
        return centre + static_cast<float>(noise->NextBipolar() * 6.0);
    }
  }

 private:
  float Near(float value) {
    for (int i = RandomInt(noise, 0, 2); i > 0; --i) {
      value = std::nextafter(value, OneIn(noise, 2) ? kInfinity : -kInfinity);
    }
    return value;
  }

  float Special() {
    static const float kSpecials[] = {kInfinity, kNaN, 300.0F, 384.0F, 0.0F, -0.0F};
    return kSpecials[noise->NextBelow(sizeof kSpecials / sizeof kSpecials[0])];
  }

  support::NoiseSource* noise;
  int level = 0;
  int left = 0;
  float centre = 0.0F;
};

template <class Update, class Twin>
void CompareSeries(std::uint64_t seed, int longest, Update update, Twin twinUpdate) {
  support::NoiseSource noise(seed);
  RandomLoudness loudness(&noise);
  const int count = RandomInt(&noise, 0, longest);
  GatedSeries series;
  twin::SeriesState state;
  for (int i = 0; i < count; ++i) {
    if (OneIn(&noise, 3 * longest)) {
      series.Clear();
      state.accepted.clear();
    }
    const float value = loudness.Next(series.RelativeGate());
    SCOPED_TRACE("block " + std::to_string(i) + " of " + std::to_string(count) + ": " +
                 support::Show(value));
    const float before = series.Result();
    const std::vector<twin::SeriesUpdate> wanted = twinUpdate({value}, &state);
    ASSERT_EQ(!wanted.empty(), update(&series, value));
    const float result = wanted.empty() ? before : wanted[0].value;
    // The order among 0.0 and -0.0 is open, and with it the sign of their difference.
    if (result == 0.0F) {
      ASSERT_EQ(0.0F, series.Result());
    } else {
      ASSERT_BITS_EQ(result, series.Result());
    }
    ASSERT_BITS_EQ(state.relativeGate, series.RelativeGate());
    ASSERT_TRUE(support::SameLists(state.accepted, Values(series.Accepted())));
  }
}

bool Integrate(GatedSeries* series, float block) { return series->UpdateIntegrated(block); }
bool Range(GatedSeries* series, float block) { return series->UpdateRange(block); }

constexpr int kFewBlocks = 40;
// Past the places at which the sums and the ordered values are divided.
constexpr int kManyBlocks = 2500;

TEST(GatedSeries, IntegratedLoudnessAgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    CompareSeries(seed, kFewBlocks, Integrate, twin::IntegratedSeries);
  });
}

TEST(GatedSeries, IntegratedLoudnessOfLongProgrammesAgreesWithTheTwin) {
  support::ForEachSeed(12, [](std::uint64_t seed) {
    CompareSeries(seed, kManyBlocks, Integrate, twin::IntegratedSeries);
  });
}

TEST(GatedSeries, RangeAgreesWithTheTwin) {
  support::ForEachSeed(
      10000, [](std::uint64_t seed) { CompareSeries(seed, kFewBlocks, Range, twin::RangeSeries); });
}

TEST(GatedSeries, RangeOfLongProgrammesAgreesWithTheTwin) {
  support::ForEachSeed(
      12, [](std::uint64_t seed) { CompareSeries(seed, kManyBlocks, Range, twin::RangeSeries); });
}

TEST(MeanPower, AgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    RandomLoudness loudness(&noise);
    std::vector<float> values;
    CheckedList<float> list;
    for (int i = RandomInt(&noise, 1, 60); i > 0; --i) {
      values.push_back(loudness.Next(-40.0F));
      list.Append(values.back());
    }
    SCOPED_TRACE("count " + std::to_string(values.size()));
    ASSERT_BITS_EQ(twin::MeanPower(values), MeanPower(list));
  });
}

TEST(RecentRange, AgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    RandomLoudness loudness(&noise);
    const int count = RandomInt(&noise, 0, 50);
    RecentRange range = FreshRecentRange();
    std::vector<float> values;
    for (int i = 0; i < count; ++i) {
      values.push_back(loudness.Next(range.relativeGate));
      SCOPED_TRACE("block " + std::to_string(i) + " of " + std::to_string(count) + ": " +
                   support::Show(values.back()));
      const float lowBefore = range.low;
      const float highBefore = range.high;
      const int indexBefore = range.writeIndex;
      const bool accepted = -70.0F < values.back();
      const bool updated = range.Update(values.back());
      ASSERT_EQ(indexBefore + (accepted ? 1 : 0), range.writeIndex);
      const std::optional<twin::RecentRange> wanted = RecentRangeTwin(values);
      ASSERT_EQ(accepted && wanted.has_value(), updated);
      ASSERT_BITS_EQ(updated ? wanted->low : lowBefore, range.low);
      ASSERT_BITS_EQ(updated ? wanted->high : highBefore, range.high);
      if (updated) {
        ASSERT_BITS_EQ(wanted->relativeGate, range.relativeGate);
      }
    }
  });
}

}  // namespace
}  // namespace harvane
