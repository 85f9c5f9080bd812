#include "measurement/LoudnessMeter.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "measurement/SampleHistory.h"
#include "measurement/SampleMath.h"
#include "tests/measurement/FailingAllocations.h"
#include "tests/measurement/MeterTwin.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

using measurement_tests::Event;
using measurement_tests::kAllCallbacks;
using measurement_tests::Kind;
using measurement_tests::kTrack;
using measurement_tests::Listener;
using measurement_tests::MeterTwin;
using measurement_tests::OneIn;
using measurement_tests::RandomInt;
using measurement_tests::RandomLength;
using measurement_tests::RandomRun;
using measurement_tests::SameEvents;
using measurement_tests::WeightingTwin;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// At this rate the windows are small: 40 and 300 samples, hops of 10 and 75.
constexpr int kRate = 100;
constexpr int kMomentaryWindow = 40;
constexpr int kShortTermWindow = 300;

// A meter with its listener, fed past the filters.
struct Meter {
  Listener listener;
  LoudnessMeter meter{kAllCallbacks, kTrack, &listener};

  explicit Meter(int channels, int mode = LoudnessMeter::kGated) {
    meter.Init(kRate, channels);
    meter.ClearSeries();
    meter.SetMode(mode);
  }

  void FeedMomentary(int channel, float value, int count, int position) {
    const std::vector<float> samples(static_cast<std::size_t>(count), value);
    meter.FeedMomentary(channel, samples.data(), count, position);
  }
  void FeedShortTerm(int channel, float value, int count, int position) {
    const std::vector<float> samples(static_cast<std::size_t>(count), value);
    meter.FeedShortTerm(channel, samples.data(), count, position);
  }

  // One momentary or short-term block of one value in a mono meter: a reset window, filled and
  // overrun by one sample.
  void MomentaryBlock(float value, int position) {
    Drop();
    FeedMomentary(0, value, kMomentaryWindow + 1, position);
  }
  void ShortTermBlock(float value, int position) {
    Drop();
    FeedShortTerm(0, value, kShortTermWindow + 1, position);
  }
  void Drop() {
    meter.SetMode(LoudnessMeter::kMaximaOnly);
    meter.SetMode(LoudnessMeter::kGated);
  }

  std::vector<Event> Of(Kind kind) const { return listener.Of(kind); }
};

// Loudness of a block whose mean square is `power`: 10 log10(power) - 0.691.
float LoudnessOfPower(float power) {
  const float logarithm = static_cast<float>(std::log10(double(power)));
  return static_cast<float>(double(logarithm) * 10.0 + double(-0.691F));
}

// ---- blocks and channels

TEST(LoudnessMeter, ConstantFullScaleIsTheOffset) {
  Meter mono(1);
  mono.FeedMomentary(0, 1.0F, kMomentaryWindow + 1, 55);
  ASSERT_EQ(1U, mono.Of(Kind::kMomentary).size());
  // log10(1) is 0, so the offset stands alone, in single precision.
  EXPECT_BITS_EQ(-0.6909999847412109F, mono.Of(Kind::kMomentary)[0].value);
  EXPECT_EQ(55, mono.Of(Kind::kMomentary)[0].position);
  EXPECT_EQ(kTrack, mono.Of(Kind::kMomentary)[0].track);
}

TEST(LoudnessMeter, ChannelsAddTheirPowers) {
  Meter stereo(2);
  stereo.FeedMomentary(0, 1.0F, kMomentaryWindow + 1, 1);
  stereo.FeedMomentary(1, -2.0F, kMomentaryWindow + 1, 2);
  ASSERT_EQ(1U, stereo.Of(Kind::kMomentary).size());
  EXPECT_BITS_EQ(LoudnessOfPower(5.0F), stereo.Of(Kind::kMomentary)[0].value);
}

TEST(LoudnessMeter, PositionIsThatOfTheFirstChannelValue) {
  Meter stereo(2);
  stereo.FeedMomentary(1, 1.0F, kMomentaryWindow + 1, 30);
  stereo.FeedMomentary(0, 1.0F, kMomentaryWindow + 1, 20);
  ASSERT_EQ(1U, stereo.Of(Kind::kMomentary).size());
  EXPECT_EQ(30, stereo.Of(Kind::kMomentary)[0].position);
}

struct WeightCase {
  int position;
  float weight;
};

class LoudnessMeterWeights : public testing::TestWithParam<WeightCase> {};

TEST_P(LoudnessMeterWeights, ApplyToTheMeanSquare) {
  constexpr int kChannels = 8;
  Meter meter(kChannels);
  for (int c = 0; c < kChannels; ++c) {
    const float sample = c == GetParam().position ? 1.0F : 0.0F;
    meter.FeedMomentary(c, sample, kMomentaryWindow + 1, 1);
    meter.FeedShortTerm(c, sample, kShortTermWindow + 1, 1);
  }
  const float wanted = LoudnessOfPower(GetParam().weight);
  ASSERT_EQ(1U, meter.Of(Kind::kMomentary).size());
  EXPECT_BITS_EQ(wanted, meter.Of(Kind::kMomentary)[0].value);
  ASSERT_EQ(1U, meter.Of(Kind::kShortTerm).size());
  EXPECT_BITS_EQ(wanted, meter.Of(Kind::kShortTerm)[0].value);
}

INSTANTIATE_TEST_SUITE_P(Positions, LoudnessMeterWeights,
                         testing::Values(WeightCase{0, 1.0F}, WeightCase{1, 1.0F},
                                         WeightCase{2, 1.0F}, WeightCase{3, 0.0F},
                                         WeightCase{4, 1.409999966621399F},
                                         WeightCase{5, 1.409999966621399F}, WeightCase{6, 1.0F},
                                         WeightCase{7, 1.0F}),
                         [](const testing::TestParamInfo<WeightCase>& info) {
                           return "Position" + std::to_string(info.param.position);
                         });

TEST(LoudnessMeter, SixChannelsAreSummedWhenAllHaveDelivered) {
  Meter surround(6);
  for (int c = 0; c < 5; ++c) surround.FeedMomentary(c, 1.0F, kMomentaryWindow + 1, c);
  EXPECT_TRUE(surround.listener.events.empty());
  surround.FeedMomentary(5, 1.0F, kMomentaryWindow + 1, 5);
  ASSERT_EQ(1U, surround.Of(Kind::kMomentary).size());
  // 1 + 1 + 1 + 0 + 1.41 + 1.41; the low-frequency channel adds nothing.
  const float sum =
      static_cast<float>(double(static_cast<float>(3.0 + double(1.41F))) + double(1.41F));
  EXPECT_BITS_EQ(LoudnessOfPower(sum), surround.Of(Kind::kMomentary)[0].value);
}

TEST(LoudnessMeter, BlockIsCompleteWhicheverChannelsItsValuesCameFrom) {
  Meter stereo(2);
  // Two windows of channel 0 in one run make up a block; channel 1 has delivered nothing.
  stereo.FeedMomentary(0, 1.0F, kMomentaryWindow + 11, 9);
  ASSERT_EQ(1U, stereo.Of(Kind::kMomentary).size());
  EXPECT_BITS_EQ(LoudnessOfPower(2.0F), stereo.Of(Kind::kMomentary)[0].value);
}

TEST(LoudnessMeter, ValuesAreSummedInOrderOfArrivalWithRounding) {
  // A hundred powers of 1 vanish one by one beside 2^24, but count when they come before it.
  constexpr int kChannels = 106;
  constexpr int kFirstOfWeightOne = 6;
  Meter largeFirst(kChannels);
  Meter largeLast(kChannels);
  largeFirst.FeedMomentary(0, 4096.0F, kMomentaryWindow + 1, 1);
  for (int c = 1; c < kChannels; ++c) {
    const float sample = c < kFirstOfWeightOne ? 0.0F : 1.0F;
    largeFirst.FeedMomentary(c, sample, kMomentaryWindow + 1, 1);
    largeLast.FeedMomentary(c, sample, kMomentaryWindow + 1, 1);
  }
  largeLast.FeedMomentary(0, 4096.0F, kMomentaryWindow + 1, 1);
  const float without = LoudnessOfPower(16777216.0F);
  const float with = LoudnessOfPower(16777316.0F);
  ASSERT_LT(without, with);
  EXPECT_BITS_EQ(without, largeFirst.Of(Kind::kMomentary).at(0).value);
  EXPECT_BITS_EQ(with, largeLast.Of(Kind::kMomentary).at(0).value);
}

TEST(LoudnessMeter, UnknownChannelIsIgnored) {
  Meter stereo(2);
  stereo.FeedMomentary(2, 1.0F, 1000, 1);
  stereo.FeedShortTerm(2, 1.0F, 1000, 1);
  stereo.FeedMomentary(99, 1.0F, 1000, 1);
  EXPECT_TRUE(stereo.listener.events.empty());
}

TEST(LoudnessMeter, MeterOfNoChannelsIsSilent) {
  Meter none(0);
  none.FeedMomentary(0, 1.0F, 1000, 1);
  none.FeedShortTerm(0, 1.0F, 1000, 1);
  EXPECT_TRUE(none.listener.events.empty());
}

TEST(LoudnessMeter, SeriesAreFedApart) {
  Meter mono(1);
  mono.FeedMomentary(0, 1.0F, 1000, 1);
  EXPECT_TRUE(mono.Of(Kind::kShortTerm).empty());
  mono.listener.events.clear();
  mono.FeedShortTerm(0, 1.0F, 1000, 1);
  EXPECT_TRUE(mono.Of(Kind::kMomentary).empty());
  EXPECT_FALSE(mono.Of(Kind::kShortTerm).empty());
}

TEST(LoudnessMeter, WindowsFollowEachOtherByAQuarter) {
  Meter mono(1);
  for (int i = 1; i <= 700; ++i) {
    mono.FeedMomentary(0, 1.0F, 1, i);
    mono.FeedShortTerm(0, 1.0F, 1, i);
  }
  const std::vector<Event> momentary = mono.Of(Kind::kMomentary);
  ASSERT_EQ(66U, momentary.size());
  for (std::size_t k = 0; k < momentary.size(); ++k) {
    EXPECT_EQ(kMomentaryWindow + 1 + 10 * static_cast<int>(k), momentary[k].position);
  }
  const std::vector<Event> shortTerm = mono.Of(Kind::kShortTerm);
  ASSERT_EQ(6U, shortTerm.size());
  for (std::size_t k = 0; k < shortTerm.size(); ++k) {
    EXPECT_EQ(kShortTermWindow + 1 + 75 * static_cast<int>(k), shortTerm[k].position);
  }
}

TEST(LoudnessMeter, UnfinishedWindowIsNeverMeasured) {
  Listener listener;
  {
    LoudnessMeter meter(kAllCallbacks, kTrack, &listener);
    meter.Init(kRate, 1);
    meter.SetMode(LoudnessMeter::kGated);
    const std::vector<float> samples(kShortTermWindow, 1.0F);
    meter.FeedMomentary(0, samples.data(), kMomentaryWindow, 1);
    meter.FeedShortTerm(0, samples.data(), kShortTermWindow, 1);
    meter.SetMode(LoudnessMeter::kMaximaOnly);
  }
  EXPECT_TRUE(listener.events.empty());
}

TEST(LoudnessMeter, TrackShorterThanTheShortTermWindowHasNoRange) {
  Meter mono(1);
  mono.FeedMomentary(0, 0.5F, kShortTermWindow - 1, 1);
  mono.FeedShortTerm(0, 0.5F, kShortTermWindow - 1, 1);
  EXPECT_FALSE(mono.Of(Kind::kIntegrated).empty());
  EXPECT_TRUE(mono.Of(Kind::kShortTerm).empty());
  EXPECT_TRUE(mono.Of(Kind::kRange).empty());
}

TEST(LoudnessMeter, UnknownRateHasWindowsOfItsOwn) {
  Listener listener;
  LoudnessMeter meter(kAllCallbacks, kTrack, &listener);
  meter.Init(32000, 1);
  const std::vector<float> samples(96001, 1.0F);
  meter.FeedMomentary(0, samples.data(), 12800, 1);
  meter.FeedShortTerm(0, samples.data(), 96000, 1);
  EXPECT_TRUE(listener.events.empty());
  meter.FeedMomentary(0, samples.data(), 1, 2);
  meter.FeedShortTerm(0, samples.data(), 1, 2);
  EXPECT_EQ(1U, listener.Of(Kind::kMomentary).size());
  EXPECT_EQ(1U, listener.Of(Kind::kShortTerm).size());
}

// ---- silence, gates and maxima

TEST(LoudnessMeter, SilenceIsMinusInfinityAndPassesNoGate) {
  Meter mono(1);
  mono.MomentaryBlock(0.0F, 1);
  mono.ShortTermBlock(0.0F, 2);
  EXPECT_TRUE(SameEvents({{Kind::kMomentary, -kInfinity, 0.0F, 1, kTrack},
                          {Kind::kShortTerm, -kInfinity, 0.0F, 2, kTrack}},
                         mono.listener.events));
  EXPECT_TRUE(mono.meter.IntegratedSeries().Accepted().IsEmpty());
  EXPECT_TRUE(mono.meter.RangeSeries().Accepted().IsEmpty());
  EXPECT_EQ(0, mono.meter.Recent().writeIndex);
}

// A sample whose constant block has a loudness just under -70: a power of 1.16e-7 less a little.
constexpr float kUnderTheGate = 3.4e-4F;
constexpr float kOverTheGate = 3.5e-4F;

TEST(LoudnessMeter, BlocksAtOrUnderTheGateNeverReportGatedValues) {
  Meter mono(1);
  for (int i = 0; i < 5; ++i) {
    mono.MomentaryBlock(kUnderTheGate, i);
    mono.ShortTermBlock(kUnderTheGate, i);
  }
  EXPECT_EQ(5U, mono.Of(Kind::kMomentary).size());
  EXPECT_EQ(5U, mono.Of(Kind::kShortTerm).size());
  EXPECT_EQ(10U, mono.listener.events.size());
  // None of them exceeds the value of a level that was not measured.
  for (const Event& event : mono.listener.events) EXPECT_FALSE(event.value > -70.0F);
  mono.MomentaryBlock(kOverTheGate, 9);
  EXPECT_EQ(1U, mono.Of(Kind::kIntegrated).size());
}

TEST(LoudnessMeter, EqualBlocksReportEqualValuesInOrder) {
  Meter mono(1);
  mono.FeedMomentary(0, 0.5F, kMomentaryWindow, 10);
  mono.FeedMomentary(0, 0.5F, 10, 20);
  mono.FeedMomentary(0, 0.5F, 1, 30);
  const std::vector<Event> momentary = mono.Of(Kind::kMomentary);
  ASSERT_EQ(2U, momentary.size());
  // So a strict maximum keeps the first position.
  EXPECT_BITS_EQ(momentary[0].value, momentary[1].value);
  EXPECT_EQ(20, momentary[0].position);
  EXPECT_EQ(30, momentary[1].position);
}

TEST(LoudnessMeter, NewestBlockCountsTwice) {
  Meter mono(1);
  mono.MomentaryBlock(1.0F, 1);
  mono.MomentaryBlock(0.5F, 2);
  const std::vector<Event> integrated = mono.Of(Kind::kIntegrated);
  ASSERT_EQ(2U, integrated.size());
  // (1 + 0.25 + 0.25) / 3 = 0.5. Each loudness goes through a logarithm and back in single
  // precision, which leaves some 1e-6.
  EXPECT_NEAR(-0.691, double(integrated[0].value), 1e-5);
  EXPECT_NEAR(10.0 * std::log10(0.5) - 0.691, double(integrated[1].value), 1e-5);
}

TEST(LoudnessMeter, BlockUnderTheRelativeGateMovesOnlyTheGate) {
  Meter mono(1);
  mono.MomentaryBlock(1.0F, 1);
  const float gate = mono.meter.IntegratedSeries().RelativeGate();
  mono.MomentaryBlock(0.01F, 2);
  EXPECT_EQ(2U, mono.Of(Kind::kMomentary).size());
  EXPECT_EQ(1U, mono.Of(Kind::kIntegrated).size());
  EXPECT_EQ(2U, mono.meter.IntegratedSeries().Accepted().Size());
  EXPECT_GT(gate - 2.9F, mono.meter.IntegratedSeries().RelativeGate());
}

TEST(LoudnessMeter, QuietEndLeavesTheValueOfTheLastBlockThatPassed) {
  Meter mono(1);
  mono.MomentaryBlock(0.1F, 1);
  mono.MomentaryBlock(1.0F, 2);
  const float value = mono.Of(Kind::kIntegrated).back().value;
  for (int i = 0; i < 30; ++i) mono.MomentaryBlock(0.003F, 3 + i);
  EXPECT_EQ(2U, mono.Of(Kind::kIntegrated).size());
  EXPECT_BITS_EQ(value, mono.meter.IntegratedSeries().Result());
}

TEST(LoudnessMeter, FirstRangeIsZero) {
  Meter mono(1);
  mono.ShortTermBlock(0.1F, 4);
  ASSERT_EQ(1U, mono.Of(Kind::kRange).size());
  EXPECT_BITS_EQ(0.0F, mono.Of(Kind::kRange)[0].value);
}

TEST(LoudnessMeter, RangeIsTheDistanceOfTwoLevels) {
  Meter mono(1);
  mono.ShortTermBlock(1.0F, 1);
  mono.ShortTermBlock(0.5F, 2);
  ASSERT_EQ(2U, mono.Of(Kind::kRange).size());
  EXPECT_BITS_EQ(LoudnessOfPower(1.0F) - LoudnessOfPower(0.25F), mono.Of(Kind::kRange)[1].value);
}

TEST(LoudnessMeter, GatedValuesGoOutWithPositionZero) {
  Meter mono(1);
  mono.MomentaryBlock(1.0F, 1234);
  mono.ShortTermBlock(1.0F, 5678);
  EXPECT_EQ(0, mono.Of(Kind::kIntegrated).at(0).position);
  EXPECT_EQ(0, mono.Of(Kind::kRange).at(0).position);
}

// ---- callbacks

TEST(LoudnessMeter, MomentaryComesBeforeIntegrated) {
  Meter mono(1);
  mono.MomentaryBlock(1.0F, 1);
  ASSERT_EQ(2U, mono.listener.events.size());
  EXPECT_EQ(Kind::kMomentary, mono.listener.events[0].kind);
  EXPECT_EQ(Kind::kIntegrated, mono.listener.events[1].kind);
}

TEST(LoudnessMeter, ShortTermComesBeforeRecentRangeAndRange) {
  Meter mono(1);
  mono.ShortTermBlock(1.0F, 1);
  ASSERT_EQ(3U, mono.listener.events.size());
  EXPECT_EQ(Kind::kShortTerm, mono.listener.events[0].kind);
  EXPECT_EQ(Kind::kRecent, mono.listener.events[1].kind);
  EXPECT_EQ(Kind::kRange, mono.listener.events[2].kind);
}

TEST(LoudnessMeter, NullCallbacksAreNotCalled) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(kRate, 1);
  meter.SetMode(LoudnessMeter::kGated);
  const std::vector<float> samples(1000, 1.0F);
  meter.FeedMomentary(0, samples.data(), 1000, 1);
  meter.FeedShortTerm(0, samples.data(), 1000, 1);
  EXPECT_EQ(96U, meter.IntegratedSeries().Accepted().Size());
  EXPECT_EQ(10U, meter.RangeSeries().Accepted().Size());
  EXPECT_EQ(10, meter.Recent().writeIndex);
}

TEST(LoudnessMeter, RecentRangeRunsWithoutAListener) {
  Listener listener;
  MeterCallbacks callbacks = kAllCallbacks;
  callbacks.onRecentRange = nullptr;
  LoudnessMeter meter(callbacks, kTrack, &listener);
  meter.Init(kRate, 1);
  const std::vector<float> samples(kShortTermWindow + 1, 1.0F);
  meter.FeedShortTerm(0, samples.data(), kShortTermWindow + 1, 1);
  EXPECT_EQ(1U, listener.events.size());
  EXPECT_BITS_EQ(-0.691F, meter.Recent().high);
}

// ---- modes

TEST(LoudnessMeter, MaximaOnlyBuildsNoGatedSeries) {
  Meter mono(1, LoudnessMeter::kMaximaOnly);
  mono.FeedMomentary(0, 1.0F, kMomentaryWindow + 1, 1);
  mono.FeedShortTerm(0, 1.0F, kShortTermWindow + 1, 2);
  EXPECT_TRUE(SameEvents({{Kind::kMomentary, -0.691F, 0.0F, 1, kTrack},
                          {Kind::kShortTerm, -0.691F, 0.0F, 2, kTrack},
                          {Kind::kRecent, -0.691F, -0.691F, 0, kTrack}},
                         mono.listener.events));
  EXPECT_TRUE(mono.meter.IntegratedSeries().Accepted().IsEmpty());
  EXPECT_TRUE(mono.meter.RangeSeries().Accepted().IsEmpty());
}

TEST(LoudnessMeter, NewMeterMeasuresMaximaOnly) {
  Listener listener;
  LoudnessMeter meter(kAllCallbacks, kTrack, &listener);
  meter.Init(kRate, 1);
  const std::vector<float> samples(kMomentaryWindow + 1, 1.0F);
  meter.FeedMomentary(0, samples.data(), kMomentaryWindow + 1, 1);
  EXPECT_EQ(1U, listener.events.size());
}

TEST(LoudnessMeter, SettingTheSameModeResetsNothing) {
  Meter mono(1);
  mono.FeedMomentary(0, 1.0F, kMomentaryWindow, 1);
  mono.FeedShortTerm(0, 1.0F, kShortTermWindow, 1);
  mono.meter.SetMode(LoudnessMeter::kGated);
  mono.FeedMomentary(0, 1.0F, 1, 2);
  mono.FeedShortTerm(0, 1.0F, 1, 2);
  EXPECT_EQ(1U, mono.Of(Kind::kMomentary).size());
  EXPECT_EQ(1U, mono.Of(Kind::kShortTerm).size());
}

TEST(LoudnessMeter, ChangeOfModeDropsWhatEveryWindowHasGathered) {
  Meter stereo(2);
  for (int c = 0; c < 2; ++c) {
    stereo.FeedMomentary(c, 1.0F, kMomentaryWindow, 1);
    stereo.FeedShortTerm(c, 1.0F, kShortTermWindow, 1);
  }
  stereo.meter.SetMode(LoudnessMeter::kMaximaOnly);
  for (int c = 0; c < 2; ++c) {
    stereo.FeedMomentary(c, 0.5F, kMomentaryWindow, 2);
    stereo.FeedShortTerm(c, 0.5F, kShortTermWindow, 2);
  }
  EXPECT_TRUE(stereo.listener.events.empty());
  for (int c = 0; c < 2; ++c) stereo.FeedMomentary(c, 0.5F, 1, 3);
  ASSERT_EQ(1U, stereo.Of(Kind::kMomentary).size());
  EXPECT_BITS_EQ(LoudnessOfPower(0.5F), stereo.Of(Kind::kMomentary)[0].value);
}

TEST(LoudnessMeter, ChangeOfModeKeepsTheValuesOfAnUnfinishedBlock) {
  Meter stereo(2);
  stereo.FeedMomentary(0, 2.0F, kMomentaryWindow + 1, 1);
  stereo.Drop();
  stereo.FeedMomentary(1, 1.0F, kMomentaryWindow + 1, 2);
  ASSERT_EQ(1U, stereo.Of(Kind::kMomentary).size());
  EXPECT_BITS_EQ(LoudnessOfPower(5.0F), stereo.Of(Kind::kMomentary)[0].value);
  EXPECT_EQ(1, stereo.Of(Kind::kMomentary)[0].position);
}

TEST(LoudnessMeter, ClearSeriesEmptiesTheAcceptedBlocksOnly) {
  Meter mono(1);
  mono.MomentaryBlock(1.0F, 1);
  mono.ShortTermBlock(1.0F, 2);
  const GatedSeries integrated = mono.meter.IntegratedSeries();
  const GatedSeries range = mono.meter.RangeSeries();
  mono.meter.ClearSeries();
  EXPECT_TRUE(mono.meter.IntegratedSeries().Accepted().IsEmpty());
  EXPECT_TRUE(mono.meter.RangeSeries().Accepted().IsEmpty());
  EXPECT_BITS_EQ(integrated.RelativeGate(), mono.meter.IntegratedSeries().RelativeGate());
  EXPECT_BITS_EQ(range.RelativeGate(), mono.meter.RangeSeries().RelativeGate());
  EXPECT_BITS_EQ(integrated.Result(), mono.meter.IntegratedSeries().Result());
  EXPECT_BITS_EQ(range.Result(), mono.meter.RangeSeries().Result());
  EXPECT_EQ(1, mono.meter.Recent().writeIndex);
}

TEST(LoudnessMeter, SecondPassMeasuresAfreshButKeepsTheRecentRange) {
  Meter mono(1);
  mono.MomentaryBlock(1.0F, 1);
  mono.ShortTermBlock(1.0F, 2);
  mono.meter.SetMode(LoudnessMeter::kMaximaOnly);
  mono.meter.ClearSeries();
  mono.meter.SetMode(LoudnessMeter::kGated);
  mono.listener.events.clear();
  mono.FeedMomentary(0, 0.1F, kMomentaryWindow + 1, 1);
  mono.FeedShortTerm(0, 0.1F, kShortTermWindow + 1, 2);
  // A block 20 LU under those of the first pass stands alone again.
  const float level = mono.Of(Kind::kMomentary).at(0).value;
  EXPECT_NEAR(double(level), double(mono.Of(Kind::kIntegrated).at(0).value), 1e-5);
  EXPECT_BITS_EQ(0.0F, mono.Of(Kind::kRange).at(0).value);
  EXPECT_EQ(2, mono.meter.Recent().writeIndex);
  EXPECT_BITS_EQ(-0.691F, mono.Of(Kind::kRecent).at(0).high);
}

TEST(LoudnessMeter, RecentRangeHasTwentyCells) {
  Meter mono(1);
  EXPECT_EQ(20, mono.meter.Recent().capacity);
  EXPECT_EQ(20U, mono.meter.Recent().ring.Size());
}

// ---- failures

TEST(LoudnessMeter, InitPassesAllocationFailureOn) {
  EXPECT_LT(20U, measurement_tests::FailuresUntilSuccess([](std::size_t allowed) {
              LoudnessMeter meter(kAllCallbacks, kTrack, nullptr);
              return measurement_tests::SucceedsWithAllocations(allowed,
                                                                [&] { meter.Init(kRate, 2); });
            }));
}

TEST(LoudnessMeter, RateWithoutWindowsIsRefused) {
  // 3 s are a negative number of samples, or one that single precision rounds to 2^31, no int.
  for (const int rate : {-1, -200, -1000, INT_MIN, 715827862, INT_MAX}) {
    SCOPED_TRACE(rate);
    LoudnessMeter meter({}, kTrack, nullptr);
    EXPECT_THROW(meter.Init(rate, 2), std::bad_alloc);
  }
}

TEST(LoudnessMeter, HighestRateWithWindowsIsTaken) {
  LoudnessMeter meter({}, kTrack, nullptr);
  meter.Init(715827861, 1);
  EXPECT_EQ(4, meter.MomentaryWindows(0).SumCount());
  EXPECT_EQ(4, meter.ShortTermWindows(0).SumCount());
  // A quarter of the largest int that is a single, 2147483520.
  EXPECT_EQ(536870880, meter.ShortTermWindows(0).SamplesToBorder());
}

TEST(LoudnessMeter, FeedingPassesAllocationFailureOn) {
  const std::vector<float> samples(kShortTermWindow + 1, 1.0F);
  EXPECT_LT(2U, measurement_tests::FailuresUntilSuccess([&](std::size_t allowed) {
              LoudnessMeter meter({}, kTrack, nullptr);
              meter.Init(kRate, 1);
              meter.SetMode(LoudnessMeter::kGated);
              return measurement_tests::SucceedsWithAllocations(allowed, [&] {
                meter.FeedShortTerm(0, samples.data(), kShortTermWindow + 1, 1);
              });
            }));
}

TEST(LoudnessMeterDeathTest, StateOfAnUnknownChannelStops) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(kRate, 2);
  EXPECT_DEATH(meter.GetFirstStageState(2), "list index out of range");
  EXPECT_DEATH(meter.GetSecondStageState(2), "list index out of range");
  EXPECT_DEATH(meter.GetFirstStageState(-1), "list index out of range");
}

TEST(LoudnessMeterDeathTest, StateBeforeInitStops) {
  const LoudnessMeter meter({}, 0, nullptr);
  EXPECT_DEATH(meter.GetFirstStageState(0), "list index out of range");
}

TEST(LoudnessMeterDeathTest, FeedingANegativeChannelStops) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(kRate, 2);
  const float sample = 1.0F;
  EXPECT_DEATH(meter.FeedMomentary(-1, &sample, 1, 0), "list index out of range");
  EXPECT_DEATH(meter.FeedShortTerm(-1, &sample, 1, 0), "list index out of range");
}

// ---- a whole meter beside the twin

std::vector<float> Weight(const LoudnessMeter& meter, int channel, const std::vector<float>& x) {
  const SampleMath math;
  const int count = static_cast<int>(x.size());
  const StageCoefficients first = meter.GetFirstStageCoefficients();
  const StageCoefficients second = meter.GetSecondStageCoefficients();
  std::vector<float> shelved(x.size());
  std::vector<float> weighted(x.size());
  math.FilterBlock(x.data(), count, first.a, 3, first.b, 3, shelved.data(),
                   meter.GetFirstStageState(channel));
  math.FilterBlock(shelved.data(), count, second.a, 3, second.b, 3, weighted.data(),
                   meter.GetSecondStageState(channel));
  return weighted;
}

// Levels for the whole programme: jumps about the gates and long silences between loud parts.
class RandomProgramme {
 public:
  RandomProgramme(support::NoiseSource* noise, int sampleRate)
      : noise(noise), sampleRate(sampleRate) {}

  std::vector<float> Next(std::size_t length, bool special) {
    static const float kLevels[] = {0.0F,    0.0F,   1.0F,     0.5F,    0.3F,  0.1F,
                                    0.0316F, 0.017F, 3.42e-4F, 5.9e-4F, 1e-4F, 0.05F};
    if (left <= 0) {
      level = kLevels[noise->NextBelow(sizeof kLevels / sizeof kLevels[0])];
      plain = OneIn(noise, 2);
      left = RandomInt(noise, 1, 3 * sampleRate);
    }
    left -= static_cast<int>(length);
    if (special && OneIn(noise, 20)) return RandomRun(noise, length, true);
    std::vector<float> run;
    for (std::size_t i = 0; i < length; ++i) {
      const double factor = plain ? (OneIn(noise, 2) ? 1.0 : -1.0) : noise->NextBipolar();
      run.push_back(static_cast<float>(factor * double(level)));
    }
    return run;
  }

 private:
  support::NoiseSource* noise;
  int sampleRate;
  float level = 0.0F;
  bool plain = false;
  int left = 0;
};

struct WholeMeterCase {
  int rate;
  int channels;
  int frames;
  bool weighted;
  bool special;
  bool tidy;  // every channel gets every run, as a measuring pass feeds them
};

WholeMeterCase RandomWholeMeterCase(support::NoiseSource* noise) {
  static const int kChannels[] = {1, 2, 2, 3, 6, 8};
  WholeMeterCase one{};
  one.rate = RandomInt(noise, 3, 40);
  one.channels = kChannels[noise->NextBelow(6)];
  one.frames = one.rate * (OneIn(noise, 60) ? 24 : RandomInt(noise, 0, 7));
  one.weighted = OneIn(noise, 3);
  one.special = OneIn(noise, 8);
  one.tidy = !OneIn(noise, 4);
  return one;
}

std::string Text(const WholeMeterCase& one) {
  return "rate " + std::to_string(one.rate) + ", channels " + std::to_string(one.channels) +
         ", frames " + std::to_string(one.frames) + (one.weighted ? ", weighted" : "") +
         (one.special ? ", special" : "") + (one.tidy ? "" : ", untidy");
}

void CompareWholeMeters(std::uint64_t seed) {
  support::NoiseSource noise(seed);
  const WholeMeterCase one = RandomWholeMeterCase(&noise);
  SCOPED_TRACE(Text(one));
  Listener listener;
  LoudnessMeter meter(kAllCallbacks, kTrack, &listener);
  meter.Init(one.rate, one.channels);
  MeterTwin twinMeter(one.rate, one.channels);
  std::vector<WeightingTwin> weighting(static_cast<std::size_t>(one.channels));
  const twin::KWeighting row = twin::KWeightingOf(one.rate);
  RandomProgramme programme(&noise, one.rate);
  const int longestRun = OneIn(&noise, 3) ? 4 * one.rate : one.rate / 2 + 1;
  bool modeSet = false;
  for (int frame = 0; frame < one.frames || !modeSet;) {
    if (!modeSet || OneIn(&noise, 40)) {
      const int mode = OneIn(&noise, 4) ? LoudnessMeter::kMaximaOnly : LoudnessMeter::kGated;
      meter.SetMode(mode);
      twinMeter.SetMode(mode);
      if (OneIn(&noise, 2)) {
        meter.ClearSeries();
        twinMeter.ClearSeries();
      }
      modeSet = true;
    }
    const std::size_t length = RandomLength(&noise, longestRun);
    frame += static_cast<int>(length) + (one.tidy ? 0 : 1);
    for (int c = 0; c < one.channels + (one.tidy ? 0 : 1); ++c) {
      std::vector<float> run = programme.Next(length, one.special);
      if (!one.tidy && OneIn(&noise, 6)) continue;
      if (one.weighted && c < one.channels) {
        const std::vector<float> wanted = weighting[static_cast<std::size_t>(c)].Run(run, row);
        run = Weight(meter, c, run);
        ASSERT_TRUE(support::SameLists(wanted, run)) << "K-weighting of channel " << c;
      }
      const int count = static_cast<int>(run.size());
      meter.FeedMomentary(c, run.data(), count, frame);
      twinMeter.FeedMomentary(c, run, frame);
      if (!one.tidy && OneIn(&noise, 6)) continue;
      meter.FeedShortTerm(c, run.data(), count, frame);
      twinMeter.FeedShortTerm(c, run, frame);
    }
    ASSERT_EQ(twinMeter.events.size(), listener.events.size()) << "by frame " << frame;
    if (length == 0) frame += 1;
  }
  ASSERT_TRUE(SameEvents(twinMeter.events, listener.events));
}

TEST(LoudnessMeter, WholeMeterAgreesWithTheTwin) {
  support::ForEachSeed(10000, CompareWholeMeters);
}

// A programme at a real rate, in chunks of 5 ms, through filters and meter.
void ComparePasses(int rate, int channels, std::size_t frames, std::uint64_t seed) {
  SCOPED_TRACE("seed " + std::to_string(seed) + ", channels " + std::to_string(channels));
  const std::vector<float> programme =
      support::ToFloat(support::Programme(seed, rate, channels, frames));
  const std::size_t stride = static_cast<std::size_t>(channels);
  const std::size_t chunk = static_cast<std::size_t>(twin::ChunkFrames(rate));
  const twin::KWeighting row = twin::KWeightingOf(rate);
  Listener listener;
  LoudnessMeter meter(kAllCallbacks, kTrack, &listener);
  meter.Init(rate, channels);
  MeterTwin twinMeter(rate, channels);
  std::vector<WeightingTwin> weighting(stride);
  for (int pass = 0; pass < 2; ++pass) {
    meter.ClearSeries();
    twinMeter.ClearSeries();
    meter.SetMode(LoudnessMeter::kGated);
    twinMeter.SetMode(LoudnessMeter::kGated);
    for (std::size_t first = 0; first + chunk <= frames; first += chunk) {
      const int position = static_cast<int>(first + chunk);
      for (int c = 0; c < channels; ++c) {
        std::vector<float> samples;
        for (std::size_t i = first; i < first + chunk; ++i) {
          samples.push_back(programme[i * stride + static_cast<std::size_t>(c)]);
        }
        const std::vector<float> run = Weight(meter, c, samples);
        meter.FeedMomentary(c, run.data(), static_cast<int>(chunk), position);
        meter.FeedShortTerm(c, run.data(), static_cast<int>(chunk), position);
        const std::vector<float> wanted = weighting[static_cast<std::size_t>(c)].Run(samples, row);
        twinMeter.FeedMomentary(c, wanted, position);
        twinMeter.FeedShortTerm(c, wanted, position);
      }
    }
    meter.SetMode(LoudnessMeter::kMaximaOnly);
    twinMeter.SetMode(LoudnessMeter::kMaximaOnly);
  }
  ASSERT_FALSE(listener.Of(Kind::kRange).empty());
  ASSERT_TRUE(SameEvents(twinMeter.events, listener.events));
}

class LoudnessMeterRates : public testing::TestWithParam<int> {};

TEST_P(LoudnessMeterRates, TwoPassesOfStereoAgreeWithTheTwin) {
  ComparePasses(GetParam(), 2, static_cast<std::size_t>(GetParam()) * 4, 1);
}

INSTANTIATE_TEST_SUITE_P(Rates, LoudnessMeterRates,
                         testing::Values(44100, 48000, 88200, 96000, 176400, 192000),
                         [](const testing::TestParamInfo<int>& info) {
                           return "Rate" + std::to_string(info.param);
                         });

TEST(LoudnessMeter, TwoPassesOfSurroundAgreeWithTheTwin) { ComparePasses(48000, 6, 48000 * 4, 2); }

}  // namespace
}  // namespace harvane
