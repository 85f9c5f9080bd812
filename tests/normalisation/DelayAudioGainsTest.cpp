#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "normalisation/GainDecision.h"
#include "tests/support/Bits.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/LinkedJob.h"
#include "tests/support/Signals.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

constexpr int kRate = 48000;
constexpr int kMomentaryWindow = 19200;

// A two-pass job with two stereo tracks and a mono track, at the end of its first pass.
class DelayAudioGains : public testing::Test {
 protected:
  DelayAudioGains() : job(Texts(), kRate, 9) {
    job.Session().StartPass(0);
    Set(0, -23.0F, -18.0F, -4.0F);
    Set(1, -33.0F, -28.0F, -3.0F);
  }

  static support::ParameterTexts Texts() {
    support::ParameterTexts texts;
    texts.numberOfGroups = "2";
    texts.formats = {"3", "1", "1", "1"};
    return texts;
  }

  DelayAudio& Instance() { return job.Instance(); }

  void Set(std::size_t track, float integratedLoudness, float maxShortTerm, float maxTruePeak) {
    TrackMeasurement& result = DelayAudioProbe::Results(Instance())[track];
    result = {-10.0F, 1, maxShortTerm, 2, integratedLoudness, 5.0F, maxTruePeak, 3};
  }

  // `count` samples of full-scale square wave to both windows of track 0, both channels.
  void Feed(int count) {
    const std::vector<float> square = support::Square(8, 1.0F, static_cast<std::size_t>(count));
    LoudnessMeter& meter = *DelayAudioProbe::Meters(Instance())[0];
    for (int channel = 0; channel < 2; ++channel) {
      meter.FeedMomentary(channel, square.data(), count, 7);
      meter.FeedShortTerm(channel, square.data(), count, 7);
    }
  }

  support::LinkedJob job;
};

TEST_F(DelayAudioGains, EachTrackGetsItsOwnDecisionInOrder) {
  Instance().DecideGains();
  ASSERT_EQ(3U, Instance().TrackGains().Size());
  ASSERT_EQ(3U, Instance().LimiterNeeded().Size());
  EXPECT_BITS_EQ(1.0F, Instance().TrackGains()[0]);
  EXPECT_FALSE(Instance().LimiterNeeded()[0]);
  EXPECT_BITS_EQ(twin::Pow(10.0F, 0.5F), Instance().TrackGains()[1]);
  EXPECT_TRUE(Instance().LimiterNeeded()[1]);
  EXPECT_BITS_EQ(twin::Pow(10.0F, 2.35F), Instance().TrackGains()[2]);
  EXPECT_FALSE(Instance().LimiterNeeded()[2]);
}

TEST_F(DelayAudioGains, ListsAreRebuiltFromEmpty) {
  Instance().DecideGains();
  Set(0, -13.0F, -8.0F, -4.0F);
  Instance().DecideGains();
  ASSERT_EQ(3U, Instance().TrackGains().Size());
  ASSERT_EQ(3U, Instance().LimiterNeeded().Size());
  EXPECT_BITS_EQ(twin::Pow(10.0F, -0.5F), Instance().TrackGains()[0]);
}

TEST_F(DelayAudioGains, TargetsAreThoseOfTheParameters) {
  DelayAudioProbe::NormalisationMode(Instance()) = 1;
  DelayAudioProbe::ShortTermLoudness(Instance()) = -28.0F;
  DelayAudioProbe::MaxTP(Instance()) = -20.0F;
  Instance().DecideGains();
  EXPECT_BITS_EQ(twin::Pow(10.0F, -0.5F), Instance().TrackGains()[0]);
  EXPECT_TRUE(Instance().LimiterNeeded()[0]);
  EXPECT_BITS_EQ(1.0F, Instance().TrackGains()[1]);
  EXPECT_BITS_EQ(1.0F, Instance().TrackGains()[2]);
}

TEST_F(DelayAudioGains, EveryLimiterGetsTheThresholdAlsoIfItIsNotNeeded) {
  DelayAudioProbe::MaxTP(Instance()) = -3.0F;
  Instance().DecideGains();
  for (const TruePeakLimiter* limiter : Instance().Limiters()) {
    EXPECT_BITS_EQ(-3.2F, limiter->Threshold());
  }
}

TEST_F(DelayAudioGains, LimitersAreInitialisedASecondTime) {
  DelayAudioProbe::Limiters(Instance())[1]->SetMakeup(6.0F);
  Instance().DecideGains();
  TruePeakLimiter& limiter = *DelayAudioProbe::Limiters(Instance())[1];
  EXPECT_BITS_EQ(0.0F, limiter.PeakHold(3));
  limiter.ApplyMakeup(0);
  EXPECT_BITS_EQ(0.0F, limiter.Control(0));
}

using DelayAudioGainsDeathTest = DelayAudioGains;

TEST_F(DelayAudioGainsDeathTest, LimiterHasTwiceTheEntriesAfterwards) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(static_cast<void>(Instance().Limiters()[1]->PeakHold(2)), "out of range");
  Instance().DecideGains();
  EXPECT_DEATH(static_cast<void>(Instance().Limiters()[1]->PeakHold(4)), "out of range");
}

TEST_F(DelayAudioGains, MeasurementsAreReset) {
  Instance().DecideGains();
  for (const TrackMeasurement& result : Instance().Results()) {
    for (const float level : {result.maxMomentary, result.maxShortTerm, result.integratedLoudness,
                              result.loudnessRange, result.maxTruePeak}) {
      EXPECT_BITS_EQ(-70.0F, level);
    }
    EXPECT_EQ(0, result.maxMomentaryPosition);
    EXPECT_EQ(0, result.maxShortTermPosition);
    EXPECT_EQ(0, result.maxTruePeakPosition);
  }
}

TEST_F(DelayAudioGains, SeriesOfTheFirstPassAreForgotten) {
  Feed(4 * kMomentaryWindow);
  const LoudnessMeter& meter = *Instance().Meters()[0];
  ASSERT_FALSE(meter.IntegratedSeries().Accepted().IsEmpty());
  Instance().DecideGains();
  EXPECT_TRUE(meter.IntegratedSeries().Accepted().IsEmpty());
  EXPECT_TRUE(meter.RangeSeries().Accepted().IsEmpty());
}

TEST_F(DelayAudioGains, WindowsStartEmptyInTheSecondPass) {
  LoudnessMeter& meter = *DelayAudioProbe::Meters(Instance())[0];
  Feed(kMomentaryWindow - 1);
  meter.SetMode(LoudnessMeter::kMaximaOnly);
  Feed(kMomentaryWindow - 1);
  Instance().DecideGains();
  Feed(kMomentaryWindow - 1);
  Feed(1);
  EXPECT_BITS_EQ(-70.0F, Instance().Results()[0].maxMomentary);
  Feed(1);
  EXPECT_GT(Instance().Results()[0].maxMomentary, -70.0F);
}

TEST_F(DelayAudioGains, MetersBuildTheGatedSeriesAgain) {
  DelayAudioProbe::Meters(Instance())[0]->SetMode(LoudnessMeter::kMaximaOnly);
  Instance().DecideGains();
  Feed(kMomentaryWindow + 1);
  EXPECT_EQ(1U, Instance().Meters()[0]->IntegratedSeries().Accepted().Size());
}

TEST_F(DelayAudioGains, SampleCounterStays) {
  DelayAudioProbe::SampleCounter(Instance()) = 1234;
  Instance().DecideGains();
  EXPECT_EQ(1234, DelayAudioProbe::SampleCounter(Instance()));
}

TEST_F(DelayAudioGains, FiltersAndOversamplersRunOn) {
  // Two jobs differ in the last samples of the first pass only. Were the histories
  // cleared, the same second pass would measure the same.
  float peaks[2];
  for (int i = 0; i < 2; ++i) {
    support::LinkedJob other(support::ParameterTexts(), kRate, 2);
    std::vector<std::int16_t> first(2 * 478, 0);
    for (std::size_t s = first.size() - 20; s < first.size(); ++s) {
      first[s] = static_cast<std::int16_t>(i == 0 ? 0 : 16000);
    }
    other.RunPass(0, first, 2, 478);
    DelayAudioProbe::LimiterNeeded(other.Instance()).Clear();
    DelayAudioProbe::LimiterNeeded(other.Instance()).Append(false);
    DelayAudioProbe::TrackGains(other.Instance()).Clear();
    DelayAudioProbe::TrackGains(other.Instance()).Append(1.0F);
    other.RunPass(1, std::vector<std::int16_t>(2 * 239, 1), 2, 239);
    peaks[i] = other.Instance().Results()[0].maxTruePeak;
  }
  EXPECT_GT(peaks[1], peaks[0] + 10.0F);
}

TEST_F(DelayAudioGains, KWeightingRunsOn) {
  // All that the silent second pass measures is what the filters of the first have kept.
  constexpr std::size_t kChunk = 239;
  constexpr std::size_t kChunks = 81;  // the first that fill a window and go past it
  support::ParameterTexts texts;
  texts.formats[0] = "1";
  support::LinkedJob mono(texts, kRate, 1);
  const std::vector<std::int16_t> loud(2 * kChunk, 16000);
  mono.RunPass(0, loud, 1, 100);
  mono.RunPass(1, std::vector<std::int16_t>(kChunks * kChunk, 0), 1, 1000);

  std::vector<float> stream = support::ToFloat(loud);
  stream.resize(stream.size() + kChunks * kChunk, 0.0F);
  const twin::KWeighting row = twin::KWeightingOf(kRate);
  std::vector<float> pasts[4];
  const std::vector<float> weighted = twin::FilterBlock(
      twin::FilterBlock(stream, row.first, &pasts[0], &pasts[1]), row.second, &pasts[2], &pasts[3]);
  const float wanted =
      twin::LoudnessOf({twin::WeightedPower(weighted.data() + loud.size(), kMomentaryWindow, 0)});
  ASSERT_GT(wanted, -70.0F);
  EXPECT_BITS_EQ(wanted, mono.Instance().Results()[0].maxMomentary);
  EXPECT_EQ(static_cast<int>(kChunks * kChunk) - 1,
            mono.Instance().Results()[0].maxMomentaryPosition);
}

// Every level and line of a stereo limiter of `entries` entries is as Init made it. The look-ahead
// lines are seen through the filter, the delay lines by pushing them empty.
void ExpectUntouched(TruePeakLimiter* limiter, int entries, const TruePeakMeter& meter) {
  for (int i = 0; i < entries; ++i) {
    SCOPED_TRACE(i);
    for (const float level : {limiter->InputLevel(i), limiter->CurveOutput(i),
                              limiter->Reduction(i), limiter->PeakHold(i), limiter->Smoothed(i),
                              limiter->Control(i), limiter->LinearGain(i)}) {
      EXPECT_BITS_EQ(0.0F, level);
    }
    EXPECT_BITS_EQ(0.0F, limiter->PeakEstimate(i, meter.GetPhases(), meter.GetBank()));
    for (int age = kDelaySamples - 1; age >= 0; --age) {
      ASSERT_BITS_EQ(0.0F, limiter->DelayedSample(i)) << "age " << age;
      limiter->PushDelay(0.0F, i);
    }
  }
}

TEST_F(DelayAudioGains, LimiterIsIdleInTheFirstPass) {
  support::LinkedJob loud(support::ParameterTexts(), kRate, 2);
  const std::vector<std::int16_t> noise = support::NoiseInt16(1, 2 * 1000, 32767);
  DelayAudio& instance = loud.Instance();
  const TruePeakMeter& meter = *DelayAudioProbe::TruePeakMeters(instance)[0];
  std::vector<std::int16_t> output;
  loud.Session().StartPass(0);
  loud.Session().Deliver(noise.data(), 1000, &output);
  ASSERT_GT(instance.Results()[0].maxTruePeak, -3.0F);
  ExpectUntouched(DelayAudioProbe::Limiters(instance)[0], 2, meter);
  loud.EndPass();
  ExpectUntouched(DelayAudioProbe::Limiters(instance)[0], 4, meter);
}

TEST_F(DelayAudioGains, SinglePassNeverDecides) {
  support::ParameterTexts texts;
  texts.numberOfPasses = "1";
  support::LinkedJob single(texts, kRate, 2);
  single.RunPass(0, std::vector<std::int16_t>(960, 1000), 2, 480);
  EXPECT_EQ(0U, single.Instance().TrackGains().Size());
  EXPECT_EQ(0U, single.Instance().LimiterNeeded().Size());
}

TEST_F(DelayAudioGains, FirstPassIsLoggedBeforeTheMeasurementsAreReset) {
  Set(0, -23.4F, -18.0F, -4.0F);
  job.EndPass();
  EXPECT_BITS_EQ(-70.0F, Instance().Results()[0].integratedLoudness);
  EXPECT_NE(std::string::npos, job.LogBytes().find(",Analysis,0,1,Stereo,-23.4,5.0,-4.0,"));
}

}  // namespace
}  // namespace harvane
