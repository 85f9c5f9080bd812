#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "measurement/ChunkKernels.h"
#include "normalisation/GainDecision.h"
#include "tests/support/AnyFloat.h"
#include "tests/support/Bits.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/LinkedJob.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Job.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

using Samples = std::vector<std::int16_t>;

constexpr std::size_t kDelay = 95;
constexpr std::uint32_t kRate = 48000;
constexpr float kTarget = -1.0F;  // dBTP

struct TrackSetting {
  float gain;
  bool isLimited;
};

uint32_t HARVANE_CALL KeepRecord(void* /*record*/) { return 0; }

// The second pass of a job whose gains the test has decided.
class SecondPass {
 public:
  SecondPass(const std::vector<std::string>& formats, std::uint32_t channelCount,
             std::uint32_t rate, const std::vector<TrackSetting>& tracks)
      : job(Texts(formats), rate, channelCount), channels(channelCount) {
    DelayAudio& instance = job.Instance();
    for (const TrackSetting& track : tracks) {
      DelayAudioProbe::TrackGains(instance).Append(track.gain);
      DelayAudioProbe::LimiterNeeded(instance).Append(track.isLimited);
    }
    for (TruePeakLimiter* limiter : DelayAudioProbe::Limiters(instance)) {
      limiter->SetThreshold(LimiterThreshold(kTarget));
    }
    job.Session().StartPass(1);
  }

  // One unit with these channels; it is not fetched.
  void Deliver(std::vector<Samples> input) {
    PcmUnit unit{};
    unit.release = KeepRecord;
    unit.sampleCount = static_cast<std::uint32_t>(input[0].size());
    for (std::size_t c = 0; c < input.size(); ++c) {
      unit.data[c] = input[c].data();
      unit.stride[c] = 1;
    }
    std::uint32_t outFlag = 0;
    job.Instance().DeliverPcmUnit(&unit, &outFlag);
  }

  // All that one channel has given out so far, before it is made 16 bits.
  std::vector<float> Output(std::size_t channel) {
    const CheckedList<float>& output = DelayAudioProbe::OutputAccumulators(job.Instance())[channel];
    return {output.begin(), output.end()};
  }
  std::vector<float> Gathered(std::size_t channel) {
    const CheckedList<float>& gathered =
        DelayAudioProbe::InputAccumulators(job.Instance())[channel];
    return {gathered.begin(), gathered.end()};
  }
  const TruePeakLimiter& Limiter(std::size_t track) { return *job.Instance().Limiters()[track]; }
  DelayAudio& Instance() { return job.Instance(); }

 private:
  static support::ParameterTexts Texts(std::vector<std::string> formats) {
    support::ParameterTexts texts;
    texts.numberOfGroups = std::to_string(formats.size());
    formats.resize(4, "1");
    texts.formats = formats;
    return texts;
  }

  support::LinkedJob job;
  std::uint32_t channels;
};

std::vector<float> Gained(const Samples& input, float gain) {
  std::vector<float> gained;
  for (const std::int16_t sample : input) {
    gained.push_back(static_cast<float>(static_cast<double>(twin::FromInt16(sample)) *
                                        static_cast<double>(gain)));
  }
  return gained;
}

Samples Loud(std::uint64_t seed, std::size_t count) {
  return support::NoiseInt16(seed, count, 32767);
}

std::vector<float> Part(const std::vector<float>& list, std::size_t first, std::size_t count) {
  const auto start = list.begin() + static_cast<std::ptrdiff_t>(first);
  return {start, start + static_cast<std::ptrdiff_t>(count)};
}

// ---- tracks without a limiter

TEST(DelayAudioFrame, UnflaggedTrackGetsItsGainWithoutDelay) {
  SecondPass pass({"2"}, 2, kRate, {{0.3F, false}});
  const std::vector<Samples> input = {Loud(1, 300), Loud(2, 300)};
  pass.Deliver(input);
  for (std::size_t c = 0; c < 2; ++c) {
    EXPECT_TRUE(support::SameLists(Gained(input[c], 0.3F), pass.Output(c)));
  }
}

TEST(DelayAudioFrame, LimiterOfAnUnflaggedTrackIsNeverTouched) {
  SecondPass pass({"2"}, 2, kRate, {{8.0F, false}});
  pass.Deliver({Loud(1, 300), Loud(2, 300)});
  EXPECT_BITS_EQ(0.0F, pass.Limiter(0).PeakHold(0));
  EXPECT_BITS_EQ(0.0F, pass.Limiter(0).InputLevel(0));
  EXPECT_BITS_EQ(0.0F, pass.Limiter(0).DelayedSample(0));
}

TEST(DelayAudioFrame, UnflaggedTrackIsNotDelayedBesideALimitedOne) {
  SecondPass pass({"3"}, 4, kRate, {{1.0F, false}, {2.0F, true}});
  const std::vector<Samples> input = {Loud(1, 300), Loud(2, 300), Loud(3, 300), Loud(4, 300)};
  pass.Deliver(input);
  EXPECT_TRUE(support::SameLists(Gained(input[0], 1.0F), pass.Output(0)));
  EXPECT_TRUE(support::SameLists(Gained(input[1], 1.0F), pass.Output(1)));
  const std::vector<float> limited = pass.Output(2);
  EXPECT_TRUE(support::SameLists(std::vector<float>(kDelay, 0.0F), Part(limited, 0, kDelay)));
  EXPECT_NE(0.0F, limited[kDelay]);
}

TEST(DelayAudioFrame, GainWithoutLimiterMayExceedFullScale) {
  SecondPass pass({"1"}, 1, kRate, {{3.0F, false}});
  pass.Deliver({{32767, -32768}});
  EXPECT_BITS_EQ(3.0F, pass.Output(0)[0]);
  EXPECT_LT(pass.Output(0)[1], -3.0F);
}

TEST(DelayAudioFrame, ChannelWithoutATrackPassesUnchangedAndUnmeasured) {
  SecondPass pass({"1"}, 3, kRate, {{2.0F, true}});
  const std::vector<Samples> input = {Loud(1, 200), Loud(2, 200), Loud(3, 200)};
  pass.Deliver(input);
  for (std::size_t c = 1; c < 3; ++c) {
    EXPECT_TRUE(support::SameLists(support::ToFloat(input[c]), pass.Output(c)));
    EXPECT_TRUE(pass.Gathered(c).empty());
  }
}

TEST(DelayAudioFrame, ChannelWithoutATrackHasNoPartInThePeaks) {
  // The mono track of channel 0, seven channels without a track, the stereo track of 8 and 9.
  SecondPass pass({"1", "2"}, 10, kRate, {{1.0F, true}, {1.0F, true}});
  std::vector<Samples> input(10, Samples(200, 32767));
  for (const std::size_t c : {0, 8, 9}) input[c] = Samples(200, 100);
  pass.Deliver(input);
  EXPECT_BITS_EQ(0.0F, pass.Limiter(0).PeakHold(0));
  EXPECT_BITS_EQ(0.0F, pass.Limiter(1).PeakHold(0));
}

// ---- the delay

struct RateDelay {
  std::uint32_t rate;
  double milliseconds;
};

class DelayAudioFrameDelay : public testing::TestWithParam<RateDelay> {};

TEST_P(DelayAudioFrameDelay, IsNinetyFiveFrames) {
  SecondPass pass({"1"}, 1, GetParam().rate, {{1.0F, true}});
  // Under the knee throughout, so that what comes out is the input itself.
  Samples input = support::NoiseInt16(1, 400, 1000);
  input[0] = 1000;
  pass.Deliver({input});
  std::vector<float> wanted(kDelay, 0.0F);
  const std::vector<float> gained = Gained(input, 1.0F);
  wanted.insert(wanted.end(), gained.begin(), gained.end() - static_cast<std::ptrdiff_t>(kDelay));
  const std::vector<float> output = pass.Output(0);
  EXPECT_TRUE(support::SameLists(wanted, output));
  const auto isHeard = [](float v) { return v != 0.0F; };
  const auto silence = std::find_if(output.begin(), output.end(), isHeard) - output.begin();
  // Published to the microsecond.
  EXPECT_NEAR(GetParam().milliseconds, 1000.0 * static_cast<double>(silence) / GetParam().rate,
              0.0005);
}

INSTANTIATE_TEST_SUITE_P(Rates, DelayAudioFrameDelay,
                         testing::Values(RateDelay{44100, 2.154}, RateDelay{48000, 1.979},
                                         RateDelay{88200, 1.077}, RateDelay{96000, 0.990}),
                         [](const auto& info) { return "Rate" + std::to_string(info.param.rate); });

TEST(DelayAudioFrame, LastNinetyFiveGainedSamplesNeverLeave) {
  SecondPass pass({"1"}, 1, kRate, {{1.0F, true}});
  Samples input(400, 0);
  std::fill(input.end() - kDelay, input.end(), static_cast<std::int16_t>(1000));
  pass.Deliver({input});
  const std::vector<float> output = pass.Output(0);
  EXPECT_EQ(input.size(), output.size());
  EXPECT_TRUE(support::SameLists(std::vector<float>(400, 0.0F), output));
}

TEST(DelayAudioFrame, GainMeetsTheSampleThatLeavesTheLine) {
  // One peak: its reduction begins 95 frames before it comes out.
  SecondPass pass({"1"}, 1, kRate, {{1.0F, true}});
  Samples input(300, 1000);
  input[200] = 32767;
  pass.Deliver({input});
  const std::vector<float> output = pass.Output(0);
  const std::vector<float> gained = Gained(input, 1.0F);
  EXPECT_BITS_EQ(gained[200 - kDelay - 1], output[199]);
  EXPECT_LT(output[206], gained[206 - kDelay]);  // the filter's centre is six samples long
  EXPECT_LT(output[295], gained[200]);
}

TEST(DelayAudioFrame, StateRunsOnFromUnitToUnit) {
  const Samples left = Loud(1, 700);
  const Samples right = Loud(2, 700);
  SecondPass whole({"2"}, 2, kRate, {{2.0F, true}});
  whole.Deliver({left, right});
  SecondPass cut({"2"}, 2, kRate, {{2.0F, true}});
  std::size_t first = 0;
  for (const std::size_t count : {1, 0, 94, 105, 500}) {
    const auto part = [&](const Samples& samples) {
      const auto start = samples.begin() + static_cast<std::ptrdiff_t>(first);
      return Samples(start, start + static_cast<std::ptrdiff_t>(count));
    };
    cut.Deliver({part(left), part(right)});
    first += count;
  }
  for (std::size_t c = 0; c < 2; ++c) {
    EXPECT_TRUE(support::SameLists(whole.Output(c), cut.Output(c)));
  }
}

// ---- the limiter

TEST(DelayAudioFrame, SilenceFreezesTheReduction) {
  SecondPass pass({"1"}, 1, kRate, {{4.0F, true}});
  const Samples loud = Loud(1, 300);
  pass.Deliver({loud});
  pass.Deliver({Samples(11, 0)});
  const float afterElevenZeros = pass.Limiter(0).PeakHold(0);
  ASSERT_GT(afterElevenZeros, 1.0F);
  pass.Deliver({Samples(1, 0)});
  EXPECT_BITS_EQ(afterElevenZeros, pass.Limiter(0).PeakHold(0));
  pass.Deliver({Samples(1000, 0)});
  EXPECT_BITS_EQ(afterElevenZeros, pass.Limiter(0).PeakHold(0));

  // A sound under the knee goes on from there: one frame of release.
  pass.Deliver({Samples(1, 10)});
  const float release = pass.Limiter(0).ReleaseCoefficient();
  EXPECT_BITS_EQ(
      static_cast<float>(static_cast<double>(release) * static_cast<double>(afterElevenZeros)),
      pass.Limiter(0).PeakHold(0));
}

TEST(DelayAudioFrame, EightyFourLoudSamplesLeaveUnreducedAfterTwelveZeros) {
  SecondPass pass({"1"}, 1, kRate, {{4.0F, true}});
  const Samples loud = Loud(1, 300);
  pass.Deliver({loud});
  pass.Deliver({Samples(200, 0)});
  const std::vector<float> output = pass.Output(0);
  const std::vector<float> gained = Gained(loud, 4.0F);
  // Frames 300 to 310 are still reduced, 311 to 394 give the last 84 loud samples at gain 1.0.
  EXPECT_LT(std::fabs(output[310]), std::fabs(gained[310 - kDelay]));
  EXPECT_TRUE(support::SameLists(Part(gained, 216, 84), Part(output, 311, 84)));
  EXPECT_TRUE(support::SameLists(std::vector<float>(105, 0.0F), Part(output, 395, 105)));
}

TEST(DelayAudioFrame, HoldDecaysUnderTheKnee) {
  SecondPass pass({"1"}, 1, kRate, {{4.0F, true}});
  pass.Deliver({Loud(1, 300)});
  pass.Deliver({Samples(50, 10)});
  float wanted = pass.Limiter(0).PeakHold(0);
  for (int i = 0; i < 100; ++i) {
    pass.Deliver({{10}});
    wanted = static_cast<float>(static_cast<double>(pass.Limiter(0).ReleaseCoefficient()) *
                                static_cast<double>(wanted));
    ASSERT_BITS_EQ(0.0F, pass.Limiter(0).Reduction(0));
    ASSERT_BITS_EQ(wanted, pass.Limiter(0).PeakHold(0));
  }
}

TEST(DelayAudioFrame, SingleChannelTrackIsLimited) {
  SecondPass pass({"1"}, 1, kRate, {{4.0F, true}});
  pass.Deliver({Loud(1, 4000)});
  const std::vector<float> output = pass.Output(0);
  const float largest = *std::max_element(output.begin(), output.end());
  EXPECT_LT(largest, 1.0F);
  EXPECT_GT(largest, 0.5F);
}

TEST(DelayAudioFrame, LouderChannelSetsTheGainOfBoth) {
  const Samples loud = Loud(1, 1000);
  Samples quiet;
  for (const std::int16_t sample : loud) quiet.push_back(static_cast<std::int16_t>(sample / 64));
  for (const bool isFirstLoud : {true, false}) {
    SecondPass both({"2"}, 2, kRate, {{4.0F, true}});
    both.Deliver(isFirstLoud ? std::vector<Samples>{loud, quiet}
                             : std::vector<Samples>{quiet, loud});
    SecondPass alone({"1"}, 1, kRate, {{4.0F, true}});
    alone.Deliver({loud});
    EXPECT_TRUE(support::SameLists(alone.Output(0), both.Output(isFirstLoud ? 0 : 1)));
    const std::vector<float> gained = Gained(quiet, 4.0F);
    const std::vector<float> output = both.Output(isFirstLoud ? 1 : 0);
    int lowered = 0;
    for (std::size_t i = kDelay; i < 1000; ++i) {
      if (std::fabs(output[i]) < std::fabs(gained[i - kDelay]) * 0.7F) ++lowered;
    }
    EXPECT_GT(lowered, 800);
  }
}

TEST(DelayAudioFrame, TracksHaveGainsOfTheirOwn) {
  const std::vector<Samples> input = {Loud(1, 500), Loud(2, 500), Loud(3, 500), Loud(4, 500)};
  SecondPass together({"3"}, 4, kRate, {{4.0F, true}, {1.5F, true}});
  together.Deliver(input);
  SecondPass second({"2"}, 2, kRate, {{1.5F, true}});
  second.Deliver({input[2], input[3]});
  EXPECT_TRUE(support::SameLists(second.Output(0), together.Output(2)));
  EXPECT_TRUE(support::SameLists(second.Output(1), together.Output(3)));
}

TEST(DelayAudioFrame, OnlyEntryZeroOfTheLevelsIsUsed) {
  SecondPass pass({"6"}, 6, kRate, {{4.0F, true}});
  pass.Deliver(std::vector<Samples>(6, Loud(1, 300)));
  EXPECT_GT(pass.Limiter(0).PeakHold(0), 1.0F);
  for (int index = 1; index < 6; ++index) {
    EXPECT_BITS_EQ(0.0F, pass.Limiter(0).InputLevel(index));
    EXPECT_BITS_EQ(0.0F, pass.Limiter(0).CurveOutput(index));
    EXPECT_BITS_EQ(0.0F, pass.Limiter(0).Reduction(index));
    EXPECT_BITS_EQ(0.0F, pass.Limiter(0).PeakHold(index));
    EXPECT_BITS_EQ(0.0F, pass.Limiter(0).Smoothed(index));
    EXPECT_BITS_EQ(0.0F, pass.Limiter(0).Control(index));
    EXPECT_BITS_EQ(0.0F, pass.Limiter(0).LinearGain(index));
  }
}

TEST(DelayAudioFrame, LimiterDoesNotClip) {
  SecondPass pass({"1"}, 1, kRate, {{4.0F, true}});
  pass.Deliver({Samples(300, 32767)});
  pass.Deliver({Samples(100, 0)});
  EXPECT_BITS_EQ(4.0F, pass.Output(0)[320]);
  PcmUnit* unit = nullptr;
  std::uint32_t outFlag = 1;
  pass.Instance().FetchPcmUnit(&unit, &outFlag);
  EXPECT_EQ(32767, unit->data[0][320]);
  unit->release(unit);
}

TEST(DelayAudioFrame, OutputIsMeasuredNotInput) {
  SecondPass pass({"2"}, 2, kRate, {{4.0F, true}});
  pass.Deliver({Loud(1, 238), Loud(2, 238)});
  EXPECT_TRUE(support::SameLists(pass.Output(0), pass.Gathered(0)));
  EXPECT_TRUE(support::SameLists(pass.Output(1), pass.Gathered(1)));
}

TEST(DelayAudioFrame, FullChunkIsMeasuredAtTheFrameThatFillsIt) {
  SecondPass pass({"1"}, 1, kRate, {{1.0F, false}});
  pass.Deliver({Samples(238, 16384)});
  EXPECT_BITS_EQ(-70.0F, pass.Instance().Results()[0].maxTruePeak);
  pass.Deliver({Samples(1, 16384)});
  EXPECT_GT(pass.Instance().Results()[0].maxTruePeak, -7.0F);
  EXPECT_EQ(238, pass.Instance().Results()[0].maxTruePeakPosition);
  EXPECT_TRUE(pass.Gathered(0).empty());
}

// ---- gains that are no numbers

// At this rate a chunk has 9 frames, and 7000 frames hold windows of both lengths.
constexpr std::uint32_t kLowRate = 2000;
constexpr int kLowRateChunk = 9;

TrackMeasurement MeasuredAfter(float gain, bool isLimited) {
  SecondPass pass({"1"}, 1, kLowRate, {{gain, isLimited}});
  pass.Deliver({Samples(7000, 1000)});
  return pass.Instance().Results()[0];
}

void ExpectNothingHeard(const TrackMeasurement& measured) {
  EXPECT_BITS_EQ(-70.0F, measured.maxMomentary);
  EXPECT_EQ(0, measured.maxMomentaryPosition);
  EXPECT_BITS_EQ(-70.0F, measured.maxShortTerm);
  EXPECT_EQ(0, measured.maxShortTermPosition);
  EXPECT_BITS_EQ(-70.0F, measured.integratedLoudness);
  EXPECT_BITS_EQ(-70.0F, measured.loudnessRange);
}

void ExpectNoPeak(const TrackMeasurement& measured) {
  EXPECT_BITS_EQ(-70.0F, measured.maxTruePeak);
  EXPECT_EQ(0, measured.maxTruePeakPosition);
}

TEST(DelayAudioFrame, GainOfANumberIsHeardInEveryValue) {
  for (const bool isLimited : {false, true}) {
    const TrackMeasurement measured = MeasuredAfter(1.0F, isLimited);
    for (const float value :
         {measured.maxMomentary, measured.maxShortTerm, measured.integratedLoudness,
          measured.loudnessRange, measured.maxTruePeak}) {
      EXPECT_GT(value, -70.0F);
    }
  }
}

TEST(DelayAudioFrame, GainThatIsNoNumberPassesNoGateAndEntersNoMaximum) {
  for (const bool isLimited : {false, true}) {
    const TrackMeasurement measured =
        MeasuredAfter(std::numeric_limits<float>::quiet_NaN(), isLimited);
    ExpectNothingHeard(measured);
    ExpectNoPeak(measured);
  }
}

TEST(DelayAudioFrame, InfiniteGainIsHeardAsAPeakOnly) {
  const float infinity = std::numeric_limits<float>::infinity();
  for (const float gain : {infinity, -infinity}) {
    // The first interpolated value is an infinite product, all later ones differences of some.
    const TrackMeasurement measured = MeasuredAfter(gain, false);
    ExpectNothingHeard(measured);
    EXPECT_BITS_EQ(infinity, measured.maxTruePeak);
    EXPECT_EQ(kLowRateChunk - 1, measured.maxTruePeakPosition);
    // The reduction is infinity less infinity, and so is no gain.
    const TrackMeasurement limited = MeasuredAfter(gain, true);
    ExpectNothingHeard(limited);
    ExpectNoPeak(limited);
  }
}

TEST(DelayAudioFrame, TrackWithoutNumbersLeavesTheOthersAlone) {
  const Samples steady(7000, 1000);
  const float gain = std::numeric_limits<float>::quiet_NaN();
  SecondPass pass({"3"}, 4, kLowRate, {{gain, true}, {1.0F, true}});
  pass.Deliver({steady, steady, steady, steady});
  ExpectNothingHeard(pass.Instance().Results()[0]);
  ExpectNoPeak(pass.Instance().Results()[0]);
  SecondPass alone({"2"}, 2, kLowRate, {{1.0F, true}});
  alone.Deliver({steady, steady});
  EXPECT_TRUE(support::SameLists(alone.Output(0), pass.Output(2)));
  const TrackMeasurement& wanted = alone.Instance().Results()[0];
  const TrackMeasurement& got = pass.Instance().Results()[1];
  EXPECT_GT(wanted.integratedLoudness, -70.0F);
  EXPECT_BITS_EQ(wanted.maxMomentary, got.maxMomentary);
  EXPECT_BITS_EQ(wanted.maxShortTerm, got.maxShortTerm);
  EXPECT_BITS_EQ(wanted.integratedLoudness, got.integratedLoudness);
  EXPECT_BITS_EQ(wanted.loudnessRange, got.loudnessRange);
  EXPECT_BITS_EQ(wanted.maxTruePeak, got.maxTruePeak);
}

// ---- stops

class DelayAudioFrameQuad : public testing::TestWithParam<std::uint32_t> {};
using DelayAudioFrameQuadDeathTest = DelayAudioFrameQuad;

TEST_P(DelayAudioFrameQuadDeathTest, LimitedTrackStopsAtItsFirstFrame) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  SecondPass pass({"1"}, 1, GetParam(), {{1.0F, true}});
  EXPECT_DEATH(pass.Deliver({{0}}), "fatal stop");
}

TEST_P(DelayAudioFrameQuad, TrackWithoutLimiterRuns) {
  SecondPass pass({"1"}, 1, GetParam(), {{0.5F, false}});
  const Samples input = Loud(1, 2000);
  pass.Deliver({input});
  EXPECT_TRUE(support::SameLists(Gained(input, 0.5F), pass.Output(0)));
}

std::string RateName(const testing::TestParamInfo<std::uint32_t>& info) {
  return "Rate" + std::to_string(info.param);
}
INSTANTIATE_TEST_SUITE_P(Rates, DelayAudioFrameQuad, testing::Values(176400, 192000), RateName);
INSTANTIATE_TEST_SUITE_P(Rates, DelayAudioFrameQuadDeathTest, testing::Values(176400, 192000),
                         RateName);

TEST(DelayAudioFrameDeathTest, StreamWithFewerChannelsThanItsTrackStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  SecondPass pass({"2"}, 1, kRate, {{1.0F, false}});
  EXPECT_DEATH(pass.Deliver({{1}}), "fatal stop");
}

TEST(DelayAudioFrameDeathTest, SecondPassWithoutADecisionStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  SecondPass pass({"2"}, 2, kRate, {});
  EXPECT_DEATH(pass.Deliver({{1}, {1}}), "fatal stop");
}

// ---- against the twin

std::vector<Samples> AnyInput(support::NoiseSource* noise, std::size_t channels,
                              std::size_t frames) {
  std::vector<Samples> input(channels);
  for (Samples& samples : input) {
    while (samples.size() < frames) {
      const std::size_t run = 1 + noise->NextBelow(80);
      const std::uint32_t kind = noise->NextBelow(5);
      const int amplitude = kind == 1 ? 3 : 32767;
      for (std::size_t i = 0; i < run && samples.size() < frames; ++i) {
        int value = static_cast<int>(noise->NextBipolar() * amplitude);
        if (kind == 2) value = 0;
        if (kind == 3) value = -32768;
        samples.push_back(static_cast<std::int16_t>(value));
      }
    }
  }
  return input;
}

// What the frames of a second pass must give, per channel, from the twin's kernels.
std::vector<std::vector<float>> WantedOutput(const twin::Layout& layout, std::uint32_t rate,
                                             const std::vector<TrackSetting>& tracks,
                                             const std::vector<Samples>& input) {
  const std::vector<std::vector<float>> bank = twin::PolyphaseBankOf(static_cast<int>(rate));
  std::vector<std::vector<float>> output;
  for (const Samples& samples : input) output.push_back(support::ToFloat(samples));
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    std::vector<std::size_t> own;
    for (std::size_t c = 0; c < input.size(); ++c) {
      int position = 0;
      int track = 0;
      if (twin::LookupChannel(layout, static_cast<int>(c), &position, &track) &&
          static_cast<std::size_t>(track) == t) {
        own.push_back(c);
      }
    }
    for (const std::size_t c : own) output[c] = Gained(input[c], tracks[t].gain);
    if (!tracks[t].isLimited) continue;
    const std::vector<std::vector<float>> gained = output;
    twin::LimiterSettings settings = twin::DefaultLimiterSettings(static_cast<int>(rate));
    settings.threshold = static_cast<float>(static_cast<double>(kTarget) - 0.20000000298023224);
    twin::LimiterLevels levels;
    for (std::size_t i = 0; i < input[0].size(); ++i) {
      std::vector<float> peaks;
      for (const std::size_t c : own) {
        const std::size_t first = i < 11 ? 0 : i - 11;
        peaks.push_back(twin::Abs(twin::PeakEstimate(Part(gained[c], first, i + 1 - first), bank)));
      }
      const float peak = twin::MaxOf(peaks, peaks.size());
      float gain = 1.0F;
      if (peak != 0.0F) {
        levels = twin::NextLevels(levels, peak, settings);
        gain = levels.linearGain;
      }
      for (const std::size_t c : own) {
        const double delayed = i < kDelay ? 0.0 : static_cast<double>(gained[c][i - kDelay]);
        output[c][i] = static_cast<float>(static_cast<double>(gain) * delayed);
      }
    }
  }
  return output;
}

// One set of kernels for as long as it lives; each seed has another.
struct KernelsOfSeed {
  explicit KernelsOfSeed(std::uint64_t seed) {
    int count = 0;
    const ChunkKernels* const* const all = AvailableKernels(&count);
    name = all[seed % static_cast<std::uint64_t>(count)]->name;
    ForceKernels(all[seed % static_cast<std::uint64_t>(count)]);
  }
  ~KernelsOfSeed() { ForceKernels(nullptr); }

  const char* name;
};

// 25 jobs of 400 frames in the usual run.
TEST(DelayAudioFrame, AgreesWithTheTwin) {
  constexpr std::uint32_t kRates[] = {44100, 48000, 88200, 96000};
  support::ForEachSeed(25, [&](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const KernelsOfSeed kernels(seed);
    const std::uint32_t rate = kRates[noise.NextBelow(4)];
    const int groups = 1 + static_cast<int>(noise.NextBelow(2));
    int formats[4] = {1, 1, 1, 1};
    std::vector<std::string> formatTexts;
    for (int g = 0; g < groups; ++g) {
      formats[g] = 1 + static_cast<int>(noise.NextBelow(8));
      formatTexts.push_back(std::to_string(formats[g]));
    }
    const twin::Layout layout = twin::LayoutOf(groups, formats);
    std::vector<TrackSetting> tracks;
    std::string trackTexts;
    for (int t = 0; t < layout.trackCount; ++t) {
      // A gain that is no number silences nothing later, but one job in five has any.
      const float gain = seed % 5 == 0 ? support::AnyFloat(&noise, 8.0F)
                                       : static_cast<float>(noise.NextBipolar()) * 8.0F;
      tracks.push_back({gain, noise.NextBelow(3) != 0});
      trackTexts += " " + support::Show(gain) + (tracks.back().isLimited ? " limited" : "");
    }
    const auto channels = static_cast<std::uint32_t>(8 * groups);
    const std::vector<Samples> input = AnyInput(&noise, channels, 400);
    SecondPass pass(formatTexts, channels, rate, tracks);
    pass.Deliver(input);
    const std::vector<std::vector<float>> wanted = WantedOutput(layout, rate, tracks, input);
    for (std::size_t c = 0; c < channels; ++c) {
      ASSERT_TRUE(support::SameLists(wanted[c], pass.Output(c)))
          << kernels.name << ", rate " << rate << ", formats " << formats[0] << " and "
          << formats[1] << " of " << groups << " groups, channel " << c
          << ", tracks:" << trackTexts;
    }
  });
}

// A signal that rises through the knee: each peak is the highest so far, and its reduction is
// heard. A little noise on it keeps the largest of the phases from being always the same.
TEST(DelayAudioFrame, EveryPeakOfARisingSignalIsHeardWithEachSetOfKernels) {
  constexpr std::uint32_t kRates[] = {48000, 96000};
  support::ForEachSeed(12, [&](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const KernelsOfSeed kernels(seed);
    const std::uint32_t rate = kRates[noise.NextBelow(2)];
    Samples input;
    for (int i = 0; i < 400; ++i) {
      input.push_back(static_cast<std::int16_t>(80 * i + static_cast<int>(noise.NextBelow(40))));
    }
    const std::vector<TrackSetting> tracks = {
        {1.0F + static_cast<float>(noise.NextBipolar()) / 4, true}};
    SecondPass pass({"1"}, 1, rate, tracks);
    pass.Deliver({input});
    const int formats[4] = {1, 1, 1, 1};
    const auto wanted = WantedOutput(twin::LayoutOf(1, formats), rate, tracks, {input});
    ASSERT_TRUE(support::SameLists(wanted[0], pass.Output(0)))
        << kernels.name << ", rate " << rate << ", gain " << support::Show(tracks[0].gain);
  });
}

// Two-pass jobs through the exports: samples, rows and decisions.
TEST(DelayAudioFrame, WholeJobsAgreeWithTheTwin) {
  support::ForEachSeed(6, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    twin::JobSpec spec;
    spec.sampleRate = seed % 2 == 0 ? 44100 : 96000;
    spec.channels = 3;
    spec.numberOfGroups = 1;
    spec.formats[0] = seed % 3 == 0 ? 1 : 2;
    spec.normalisationMode = static_cast<int>(seed % 2);
    spec.loudness = -16.0F + static_cast<float>(noise.NextBelow(10));
    spec.shortTermLoudness = -10.0F;
    spec.maxTp = -6.0F + static_cast<float>(noise.NextBelow(5));
    spec.entryName = "Job";
    const std::vector<std::int16_t> input =
        support::Programme(seed, spec.sampleRate, spec.channels, 60000 + noise.NextBelow(500));
    const twin::JobResult wanted = twin::RunJob(spec, input);

    support::ParameterTexts texts;
    texts.formats[0] = std::to_string(spec.formats[0]);
    texts.normalisationMode = std::to_string(spec.normalisationMode);
    texts.Loudness = std::to_string(spec.loudness);
    texts.ShortTermLoudness = std::to_string(spec.shortTermLoudness);
    texts.MaxTP = std::to_string(spec.maxTp);
    texts.logEntryName = spec.entryName;
    support::LinkedJob job(texts, static_cast<std::uint32_t>(spec.sampleRate), 3);
    job.RunPass(0, input, 3, 4096);
    for (std::size_t t = 0; t < wanted.decisions.size(); ++t) {
      EXPECT_BITS_EQ(wanted.decisions[t].trackGain, job.Instance().TrackGains()[t]);
      EXPECT_EQ(wanted.decisions[t].limiterNeeded, job.Instance().LimiterNeeded()[t]);
    }
    const std::vector<std::int16_t> output = job.RunPass(1, input, 3, 1000);
    EXPECT_EQ(wanted.output, output);
    for (std::size_t t = 0; t < wanted.limiterFinalPeakHold.size(); ++t) {
      EXPECT_BITS_EQ(wanted.limiterFinalPeakHold[t], job.Instance().Limiters()[t]->PeakHold(0));
    }
    std::string rows;
    for (const std::string& row : wanted.rows) rows += twin::RowBytes(row);
    const std::string log = job.LogBytes();
    ASSERT_GE(log.size(), rows.size());
    EXPECT_EQ(rows, log.substr(log.size() - rows.size()));
  });
}

}  // namespace
}  // namespace harvane
