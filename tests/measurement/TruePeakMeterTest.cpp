#include "measurement/TruePeakMeter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "measurement/ChunkKernels.h"
#include "measurement/SampleHistory.h"
#include "measurement/SampleMath.h"
#include "measurement/TrackMeasurement.h"
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

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kUntouched = 77.0F;

// Taps of the published filter, phases 0 and 1; the others are these backwards.
const std::vector<float> kPhase0 = {0.001708984375F,  0.010986328125F,   -0.0196533203125F,
                                    0.033203125F,     -0.0594482421875F, 0.1373291015625F,
                                    0.97216796875F,   -0.102294921875F,  0.047607421875F,
                                    -0.026611328125F, 0.014892578125F,   -0.00830078125F};
const std::vector<float> kPhase1 = {-0.0291748046875F, 0.029296875F,      -0.0517578125F,
                                    0.089111328125F,   -0.16650390625F,   0.465087890625F,
                                    0.77978515625F,    -0.2003173828125F, 0.1015625F,
                                    -0.0582275390625F, 0.0330810546875F,  -0.0189208984375F};
const std::vector<float> kPhase2(kPhase1.rbegin(), kPhase1.rend());
const std::vector<float> kPhase3(kPhase0.rbegin(), kPhase0.rend());

std::vector<std::vector<float>> TapsOf(const PolyphaseBank* bank) {
  std::vector<std::vector<float>> taps;
  for (int p = 0; bank != nullptr && p < bank->count; ++p) {
    const PolyphaseBranch& branch = bank->branches[p];
    taps.emplace_back(branch.coefficients, branch.coefficients + branch.length);
  }
  return taps;
}

void ExpectTaps(const std::vector<std::vector<float>>& wanted, const PolyphaseBank* bank) {
  const std::vector<std::vector<float>> got = TapsOf(bank);
  ASSERT_EQ(wanted.size(), got.size());
  for (std::size_t p = 0; p < wanted.size(); ++p) {
    EXPECT_TRUE(support::SameLists(wanted[p], got[p])) << "phase " << p;
  }
}

float NewsOf(TruePeakMeter* meter, int channel, const std::vector<float>& chunk) {
  std::vector<float> scratch(chunk.size() + kPeakHistory, kUntouched);
  return meter->MeasureChunk(channel, chunk.data(), static_cast<int>(chunk.size()), scratch.data());
}

// A meter of one channel and the scratch its chunks go through.
struct Channel {
  TruePeakMeter meter;
  std::vector<float> scratch;

  explicit Channel(int sampleRate) { meter.Init(sampleRate, 1); }

  // What is news of this chunk, by MeasureChunk.
  float News(const std::vector<float>& chunk) { return NewsOf(&meter, 0, chunk); }

  float Measure(const std::vector<float>& chunk) {
    scratch.assign(4 * chunk.size() + 4, kUntouched);
    return MeasureTruePeak(meter, 0, chunk.data(), static_cast<int>(chunk.size()), scratch.data());
  }
};

float Decibels(float peak) {
  return static_cast<float>(double(static_cast<float>(std::log10(double(peak)))) * 20.0);
}

// ---- classes of rates

struct ClassCase {
  int sampleRate;
  const char* name;
  int rateClass;
  int phases;
  int oversampling;
};

class TruePeakMeterRates : public testing::TestWithParam<ClassCase> {};

TEST_P(TruePeakMeterRates, ClassIsThatOfTheRate) {
  TruePeakMeter meter;
  meter.Init(GetParam().sampleRate, 2);
  EXPECT_STREQ(GetParam().name, meter.ClassName());
  EXPECT_EQ(GetParam().rateClass, meter.RateClass());
  EXPECT_EQ(GetParam().phases, meter.GetPhases());
  EXPECT_EQ(GetParam().oversampling, meter.Oversampling());
}

TEST_P(TruePeakMeterRates, BankHoldsThePhasesOfTheClass) {
  TruePeakMeter meter;
  meter.Init(GetParam().sampleRate, 1);
  switch (GetParam().phases) {
    case 4:
      ExpectTaps({kPhase0, kPhase1, kPhase2, kPhase3}, meter.GetBank());
      break;
    case 2:
      ExpectTaps({kPhase1, kPhase3}, meter.GetBank());
      break;
    default:
      EXPECT_EQ(nullptr, meter.GetBank());
  }
}

TEST_P(TruePeakMeterRates, HistoriesHoldTwelveZeros) {
  TruePeakMeter meter;
  meter.Init(GetParam().sampleRate, 2);
  for (int c = 0; c < 2; ++c) {
    SampleHistory* const history = meter.GetHistory(c);
    std::vector<float> values(12, kUntouched);
    history->ReadNewestFirst(values.data(), 12);
    EXPECT_TRUE(support::SameLists(std::vector<float>(12, 0.0F), values));
    for (int i = 1; i <= 13; ++i) history->Push(static_cast<float>(i));
    values.resize(13);
    history->ReadNewestFirst(values.data(), 13);
    EXPECT_BITS_EQ(2.0F, values[11]);
    EXPECT_BITS_EQ(13.0F, values[12]);
  }
  EXPECT_NE(meter.GetHistory(0), meter.GetHistory(1));
}

TEST_P(TruePeakMeterRates, SilenceIsMinusInfinity) {
  Channel channel(GetParam().sampleRate);
  EXPECT_BITS_EQ(-kInfinity, channel.Measure(std::vector<float>(239, 0.0F)));
}

INSTANTIATE_TEST_SUITE_P(
    Rates, TruePeakMeterRates,
    testing::Values(ClassCase{44100, "normal", 0, 4, 4}, ClassCase{48000, "normal", 0, 4, 4},
                    ClassCase{88200, "double", 1, 2, 2}, ClassCase{96000, "double", 1, 2, 2},
                    ClassCase{176400, "quad", 2, 0, 1}, ClassCase{192000, "quad", 2, 0, 1}),
    [](const testing::TestParamInfo<ClassCase>& info) {
      return "Rate" + std::to_string(info.param.sampleRate);
    });

TEST(TruePeakMeter, UnknownRateIsOfClassNormal) {
  for (const int rate : {0, -1, 32000, 47999, 384000}) {
    SCOPED_TRACE(rate);
    TruePeakMeter meter;
    meter.Init(rate, 1);
    EXPECT_STREQ("normal", meter.ClassName());
    EXPECT_EQ(0, meter.RateClass());
    EXPECT_EQ(4, meter.GetPhases());
    ExpectTaps({kPhase0, kPhase1, kPhase2, kPhase3}, meter.GetBank());
  }
}

TEST(TruePeakMeter, NoChannelsHaveNoHistories) {
  TruePeakMeter meter;
  meter.Init(48000, 0);
  EXPECT_EQ(4, meter.GetPhases());
}

TEST(TruePeakMeter, EveryPhasePassesAConstantAlmostUnchanged) {
  // The taps of a phase sum up to about 1, as those of any interpolator: 1.0016 and 0.9730 for the
  // published ones.
  for (const int rate : {48000, 96000}) {
    TruePeakMeter meter;
    meter.Init(rate, 1);
    const std::vector<std::vector<float>> phases = TapsOf(meter.GetBank());
    ASSERT_FALSE(phases.empty());
    for (const std::vector<float>& taps : phases) {
      double sum = 0.0;
      for (const float tap : taps) sum += double(tap);
      EXPECT_NEAR(1.0, sum, 0.03) << rate;
    }
  }
}

// ---- measuring

TEST(TruePeakMeter, FirstSampleSeesZeroesBeforeIt) {
  Channel channel(48000);
  // An impulse meets tap 0 of each phase; the largest is that of phase 1.
  EXPECT_BITS_EQ(Decibels(0.0291748046875F), channel.Measure({1.0F}));
}

TEST(TruePeakMeter, NextChunkSeesTheTailOfTheOneBefore) {
  Channel channel(48000);
  channel.Measure({1.0F});
  // Taps 1 to 6 of each phase; the largest is tap 6 of phase 0.
  EXPECT_BITS_EQ(Decibels(0.97216796875F), channel.Measure(std::vector<float>(6, 0.0F)));
  // Taps 7 to 11: the largest is tap 7 of phase 1.
  EXPECT_BITS_EQ(Decibels(0.2003173828125F), channel.Measure(std::vector<float>(5, 0.0F)));
  EXPECT_BITS_EQ(-kInfinity, channel.Measure({0.0F}));
}

TEST(TruePeakMeter, SineNearAQuarterOfTheRatePeaksAboveItsSamples) {
  // Samples at 45, 135, 225 ... degrees: none above 0.7072, that is -3.01 dB.
  const std::vector<float> sine = support::Sine(12000.0, 48000, 1.0F, 0.125, 2390);
  const float largest = *std::max_element(sine.begin(), sine.end());
  EXPECT_GT(0.7072F, largest);
  Channel channel(48000);
  const float peak = channel.Measure(sine);
  // The published filter under-reads a full-scale sine here by less than 0.7 dB.
  EXPECT_LT(Decibels(largest) + 2.0F, peak);
  EXPECT_GT(1.0F, peak);
}

TEST(TruePeakMeter, PeakIsTakenOfTheRectifiedValues) {
  Channel channel(48000);
  EXPECT_BITS_EQ(Decibels(0.97216796875F),
                 channel.Measure({-1.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F}));
}

TEST(TruePeakMeter, DoubleRateUsesPhasesOneAndThree) {
  Channel channel(96000);
  // Tap 6 is the largest of phase 1, tap 5 the largest of phase 3.
  channel.Measure({1.0F, 0.0F});
  EXPECT_TRUE(
      support::SameLists({-0.0291748046875F, -0.00830078125F, 0.029296875F, 0.014892578125F},
                         {channel.meter.GetBank()->branches[0].coefficients[0],
                          channel.meter.GetBank()->branches[1].coefficients[0],
                          channel.meter.GetBank()->branches[0].coefficients[1],
                          channel.meter.GetBank()->branches[1].coefficients[1]}));
  // The scratch holds them rectified.
  EXPECT_TRUE(support::SameLists({0.0291748046875F, 0.00830078125F, 0.029296875F, 0.014892578125F},
                                 {channel.scratch.begin(), channel.scratch.begin() + 4}));
  // Taps 2 to 5, then tap 6: phase 3 peaks with tap 5, phase 1 with tap 6.
  EXPECT_BITS_EQ(Decibels(0.97216796875F), channel.Measure(std::vector<float>(4, 0.0F)));
  EXPECT_BITS_EQ(Decibels(0.77978515625F), channel.Measure({0.0F}));
}

TEST(TruePeakMeter, ChunkAt96000YieldsTwoValuesASample) {
  Channel channel(96000);
  channel.Measure(std::vector<float>(479, 1.0F));
  EXPECT_NE(kUntouched, channel.scratch[957]);
  EXPECT_EQ(kUntouched, channel.scratch[958]);
}

TEST(TruePeakMeter, ChunkAt48000YieldsFourValuesASample) {
  Channel channel(48000);
  channel.Measure(std::vector<float>(239, 1.0F));
  EXPECT_NE(kUntouched, channel.scratch[955]);
  EXPECT_EQ(kUntouched, channel.scratch[956]);
}

TEST(TruePeakMeter, QuadRateLooksAtTheFirstSampleOnly) {
  Channel channel(192000);
  EXPECT_BITS_EQ(Decibels(0.25F), channel.Measure({0.25F, 1.0F, -1.0F}));
  EXPECT_BITS_EQ(0.0F, channel.Measure({1.0F, 2.0F, 4.0F}));
}

TEST(TruePeakMeter, QuadRateCopiesTheChunkAndLeavesTheHistory) {
  Channel channel(192000);
  channel.Measure({0.5F, -1.0F, -2.0F});
  EXPECT_TRUE(support::SameLists({0.5F, -1.0F, -2.0F, kUntouched},
                                 {channel.scratch.begin(), channel.scratch.begin() + 4}));
  std::vector<float> past(12, kUntouched);
  channel.meter.GetHistory(0)->ReadNewestFirst(past.data(), 12);
  EXPECT_TRUE(support::SameLists(std::vector<float>(12, 0.0F), past));
}

TEST(TruePeakMeter, NegativeFirstSampleAtAQuadRateIsNotANumber) {
  for (const int rate : {176400, 192000}) {
    Channel channel(rate);
    const float peak = channel.Measure({-0.5F, 1.0F});
    EXPECT_TRUE(std::isnan(peak));
    // What is not a number passes no strict maximum.
    EXPECT_FALSE(peak > -70.0F);
  }
}

TEST(TruePeakMeter, ZeroFirstSampleAtAQuadRateIsMinusInfinity) {
  Channel channel(192000);
  EXPECT_BITS_EQ(-kInfinity, channel.Measure({0.0F, 1.0F}));
}

TEST(TruePeakMeter, ChannelsReportPeaksOfTheirOwn) {
  TruePeakMeter meter;
  meter.Init(48000, 2);
  std::vector<float> scratch(4 * 7);
  const std::vector<float> loud = {1.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F};
  const std::vector<float> quiet = {0.5F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F};
  EXPECT_BITS_EQ(Decibels(0.97216796875F),
                 MeasureTruePeak(meter, 0, loud.data(), 7, scratch.data()));
  EXPECT_BITS_EQ(Decibels(0.97216796875F / 2.0F),
                 MeasureTruePeak(meter, 1, quiet.data(), 7, scratch.data()));
}

// ---- what is news of a chunk

// An impulse of 1 and zeros up to the largest tap, 0.97216796875 of phase 0.
const std::vector<float> kWholeImpulse = {1.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F};

TEST(TruePeakMeter, FirstPeakIsNews) {
  Channel channel(48000);
  EXPECT_BITS_EQ(Decibels(0.97216796875F), channel.News(kWholeImpulse));
}

TEST(TruePeakMeter, SilenceIsNoNews) {
  Channel channel(48000);
  EXPECT_BITS_EQ(-kInfinity, channel.News(std::vector<float>(239, 0.0F)));
}

TEST(TruePeakMeter, OnlyALargerPeakIsNewsOnAnyChannel) {
  TruePeakMeter meter;
  meter.Init(48000, 2);
  std::vector<float> larger = kWholeImpulse;
  larger[0] = -1.5F;
  EXPECT_BITS_EQ(Decibels(0.97216796875F), NewsOf(&meter, 0, kWholeImpulse));
  EXPECT_BITS_EQ(-kInfinity, NewsOf(&meter, 1, kWholeImpulse));
  EXPECT_BITS_EQ(-kInfinity, NewsOf(&meter, 0, {0.1F, -0.1F}));
  EXPECT_BITS_EQ(Decibels(1.5F * 0.97216796875F), NewsOf(&meter, 1, larger));
}

TEST(TruePeakMeter, PeakOfTheTailOfTheChunkBeforeIsNews) {
  Channel channel(48000);
  EXPECT_BITS_EQ(Decibels(0.0291748046875F), channel.News({1.0F}));
  EXPECT_BITS_EQ(Decibels(0.97216796875F), channel.News(std::vector<float>(6, 0.0F)));
}

TEST(TruePeakMeter, HistoryRunsOnThroughChunksWithoutNews) {
  TruePeakMeter meter;
  meter.Init(48000, 2);
  NewsOf(&meter, 0, {100.0F});  // a peak of 2.9
  EXPECT_BITS_EQ(-kInfinity, NewsOf(&meter, 1, {1.25F}));
  EXPECT_BITS_EQ(-kInfinity, NewsOf(&meter, 1, std::vector<float>(5, 0.0F)));
  meter.StartOver();
  EXPECT_BITS_EQ(Decibels(1.25F * 0.97216796875F), NewsOf(&meter, 1, {0.0F}));
}

TEST(TruePeakMeter, StartOverForgetsThePeaksNotTheHistories) {
  Channel channel(48000);
  channel.News(kWholeImpulse);
  channel.News({0.5F});
  channel.meter.StartOver();
  // Tap 6 of phase 0 for the half, tap 11 of phase 1 for the one.
  EXPECT_BITS_EQ(Decibels(0.5F * 0.97216796875F), channel.News(std::vector<float>(6, 0.0F)));
}

TEST(TruePeakMeter, LargestPeakThatFullScaleCanHaveIsNews) {
  // Samples of the signs of phase 1's taps, so that all its products have one sign.
  std::vector<float> samples;
  float sum = 0.0F;  // exact: all taps are multiples of 2^-13
  for (std::size_t j = 12; j-- > 0;) {
    samples.push_back(kPhase1[j] < 0.0F ? -1.0F : 1.0F);
    sum += std::fabs(kPhase1[j]);
  }
  ASSERT_LT(2.0F, sum);
  std::vector<float> almost = samples;
  for (float& sample : almost) sample *= 1.0F - 0x1p-13F;
  std::vector<float> past;
  const float wanted = twin::TruePeakOfChunk(almost, twin::PolyphaseBankOf(48000), &past);
  TruePeakMeter meter;
  meter.Init(48000, 2);
  EXPECT_BITS_EQ(wanted, NewsOf(&meter, 0, almost));
  EXPECT_BITS_EQ(Decibels(sum), NewsOf(&meter, 1, samples));
}

TEST(TruePeakMeter, NaNInTheFirstValueIsNotANumber) {
  Channel channel(48000);
  EXPECT_TRUE(std::isnan(channel.News({std::numeric_limits<float>::quiet_NaN(), 1.0F})));
  EXPECT_TRUE(std::isnan(channel.News(std::vector<float>(11, 0.0F))));
  EXPECT_BITS_EQ(Decibels(0.0291748046875F), channel.News({1.0F}));
}

TEST(TruePeakMeter, QuadRateGivesTheFirstSampleOfEveryChunk) {
  Channel channel(192000);
  EXPECT_BITS_EQ(Decibels(0.5F), channel.News({0.5F, 1.0F}));
  EXPECT_BITS_EQ(Decibels(0.25F), channel.News({0.25F, 1.0F}));
  EXPECT_BITS_EQ(-kInfinity, channel.News({0.0F, 1.0F}));
  EXPECT_TRUE(std::isnan(channel.News({-1.0F, 1.0F})));
}

TEST(TruePeakMeter, InitPassesAllocationFailureOn) {
  EXPECT_LT(4U, measurement_tests::FailuresUntilSuccess([](std::size_t allowed) {
              TruePeakMeter meter;
              return measurement_tests::SucceedsWithAllocations(allowed,
                                                                [&] { meter.Init(48000, 2); });
            }));
}

TEST(TruePeakMeter, MeasuringPassesAllocationFailureOn) {
  TruePeakMeter meter;
  meter.Init(48000, 1);
  const float sample = 1.0F;
  float scratch[4];
  EXPECT_EQ(1U, measurement_tests::FailuresUntilSuccess([&](std::size_t allowed) {
              return measurement_tests::SucceedsWithAllocations(
                  allowed, [&] { MeasureTruePeak(meter, 0, &sample, 1, scratch); });
            }));
}

TEST(TruePeakMeterDeathTest, HistoryOfAnUnknownChannelStops) {
  TruePeakMeter meter;
  meter.Init(48000, 2);
  EXPECT_DEATH(meter.GetHistory(2), "list index out of range");
  EXPECT_DEATH(meter.GetHistory(-1), "list index out of range");
}

TEST(TruePeakMeterDeathTest, HistoryBeforeInitStops) {
  const TruePeakMeter meter;
  EXPECT_DEATH(meter.GetHistory(0), "list index out of range");
}

TEST(TruePeakMeterDeathTest, MeasuringAnUnknownChannelStops) {
  TruePeakMeter meter;
  meter.Init(192000, 1);
  const float sample = 1.0F;
  float scratch = 0.0F;
  EXPECT_DEATH(MeasureTruePeak(meter, 1, &sample, 1, &scratch), "list index out of range");
}

TEST(TruePeakMeter, PeaksAgreeWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    static const int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000, 32000};
    const int rate = kRates[noise.NextBelow(7)];
    const int channels = RandomInt(&noise, 1, 3);
    TruePeakMeter meter;
    meter.Init(rate, channels);
    const std::vector<std::vector<float>> bank = twin::PolyphaseBankOf(rate);
    std::vector<std::vector<float>> pasts(static_cast<std::size_t>(channels));
    for (int chunk = RandomInt(&noise, 1, 6); chunk > 0; --chunk) {
      const int channel = RandomInt(&noise, 0, channels - 1);
      const std::size_t length = RandomLength(&noise, 40) + 1;
      SCOPED_TRACE("rate " + std::to_string(rate) + ", channel " + std::to_string(channel) +
                   ", length " + std::to_string(length));
      const std::vector<float> x = RandomRun(&noise, length, OneIn(&noise, 3));
      std::vector<float> scratch(4 * length);
      ASSERT_BITS_EQ(
          twin::TruePeakOfChunk(x, bank, &pasts[static_cast<std::size_t>(channel)]),
          MeasureTruePeak(meter, channel, x.data(), static_cast<int>(length), scratch.data()));
    }
  });
}

// The largest peak of a pass and its position, as a track keeps them.
struct KeptPeak {
  float value = TrackMeasurement().maxTruePeak;
  int position = 0;

  void Keep(float peak, int at) {
    if (!(peak > value)) return;
    value = peak;
    position = at;
  }
};

// A run of samples at a level that rises and falls from chunk to chunk, as those of a programme.
std::vector<float> RandomChunk(support::NoiseSource* noise, std::size_t length) {
  static const float kLevels[] = {1.0F, 1.0F, 0.9F, 0.5F, 0.5F, 0.1F, 3e-4F, 4.0F};
  std::vector<float> chunk = RandomRun(noise, length, OneIn(noise, 6));
  const float level = kLevels[noise->NextBelow(8)];
  for (float& sample : chunk) sample *= level;
  return chunk;
}

TEST(TruePeakMeter, KeptPeaksAndPositionsAgreeWithTheTwin) {
  support::ForEachSeed(300, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    static const int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000, 22050};
    const int rate = kRates[noise.NextBelow(7)];
    const int channels = RandomInt(&noise, 1, 3);
    const int longest = OneIn(&noise, 3) ? 500 : 60;
    TruePeakMeter meter;
    meter.Init(rate, channels);
    const std::vector<std::vector<float>> bank = twin::PolyphaseBankOf(rate);
    std::vector<std::vector<float>> pasts(static_cast<std::size_t>(channels));
    KeptPeak wanted;
    KeptPeak got;
    const int chunks = RandomInt(&noise, 1, 15);
    for (int chunk = 1; chunk <= chunks; ++chunk) {
      if (OneIn(&noise, 8)) {
        meter.StartOver();
        wanted = KeptPeak();
        got = KeptPeak();
      }
      const std::size_t length =
          std::max<std::size_t>(1, RandomLength(&noise, OneIn(&noise, 3) ? 12 : longest));
      for (int channel = 0; channel < channels; ++channel) {
        SCOPED_TRACE("rate " + std::to_string(rate) + ", chunk " + std::to_string(chunk) +
                     " of channel " + std::to_string(channel) + ", length " +
                     std::to_string(length));
        const std::vector<float> x = RandomChunk(&noise, length);
        wanted.Keep(twin::TruePeakOfChunk(x, bank, &pasts[static_cast<std::size_t>(channel)]),
                    chunk);
        got.Keep(NewsOf(&meter, channel, x), chunk);
        ASSERT_BITS_EQ(wanted.value, got.value);
        ASSERT_EQ(wanted.position, got.position);
      }
    }
  });
}

}  // namespace
}  // namespace harvane
