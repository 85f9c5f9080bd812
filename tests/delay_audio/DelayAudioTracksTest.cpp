// Track objects, the callbacks, and the measuring of one chunk.

#include <gtest/gtest.h>

#include <limits>

#include "delay_audio/PluginException.h"
#include "tests/delay_audio/Jobs.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/twin/Job.h"

namespace harvane {
namespace {

support::ParameterTexts TextsOfFormat(const std::string& format, int passes = 1) {
  auto texts = TextsOfPasses(passes);
  texts.formats[0] = format;
  return texts;
}

void ExpectReset(const TrackMeasurement& result) {
  EXPECT_BITS_EQ(-70.0F, result.maxMomentary);
  EXPECT_BITS_EQ(-70.0F, result.maxShortTerm);
  EXPECT_BITS_EQ(-70.0F, result.integratedLoudness);
  EXPECT_BITS_EQ(-70.0F, result.loudnessRange);
  EXPECT_BITS_EQ(-70.0F, result.maxTruePeak);
  EXPECT_EQ(result.maxMomentaryPosition, 0);
  EXPECT_EQ(result.maxShortTermPosition, 0);
  EXPECT_EQ(result.maxTruePeakPosition, 0);
}

TEST(DelayAudioTracks, SequenceMakesOneObjectOfEachKindPerTrack) {
  auto texts = TextsOfFormat("7");
  texts.numberOfGroups = "2";
  texts.formats[1] = "8";
  TestJob job(texts, 48000, 16);
  for (int round = 0; round < 2; ++round) {
    job->StartSequence();
    EXPECT_EQ(job->Results().Size(), 4U);
    EXPECT_EQ(job->Meters().Size(), 4U);
    EXPECT_EQ(Probe::TruePeakMeters(*job).Size(), 4U);
    EXPECT_EQ(job->Limiters().Size(), 4U);
    EXPECT_NE(Probe::TruePeakScratch(*job), nullptr);
    for (const TrackMeasurement& result : job->Results()) ExpectReset(result);
  }
}

TEST(DelayAudioTracks, EndOfTheSequenceFreesThem) {
  TestJob job(TextsOfFormat("7"), 48000, 8);
  job->StartSequence();
  for (int round = 0; round < 2; ++round) {
    job->EndSequence();
    EXPECT_TRUE(job->Results().IsEmpty());
    EXPECT_TRUE(job->Meters().IsEmpty());
    EXPECT_TRUE(Probe::TruePeakMeters(*job).IsEmpty());
    EXPECT_TRUE(job->Limiters().IsEmpty());
    EXPECT_EQ(Probe::TruePeakScratch(*job), nullptr);
  }
}

TEST(DelayAudioTracks, GainsAndFlagsOutliveTheSequence) {
  TestJob job(TextsOfFormat("2", 2));
  job->StartSequence();
  job->StartPass(0);
  job->EndPass();
  const float gain = job->TrackGains()[0];
  job->EndSequence();
  ASSERT_EQ(job->TrackGains().Size(), 1U);
  EXPECT_EQ(job->LimiterNeeded().Size(), 1U);
  job->StartSequence();
  EXPECT_BITS_EQ(gain, job->TrackGains()[0]);
}

TEST(DelayAudioTracks, UnusableTablesThrowAfterTheOldObjectsWent) {
  TestJob job(TextsOfFormat("2"));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver({32767, 32767});
  job->SetParameter(support::ParameterDocument(TextsOfFormat("9")).c_str());
  EXPECT_EQ(Probe::TrackCount(*job), -1);
  try {
    job->StartSequence();
    FAIL() << "nothing was thrown";
  } catch (const PluginException& failure) {
    EXPECT_STREQ(failure.what(), "Incorrect initialization of input channels tables!");
    EXPECT_EQ(failure.code, 3U);
  }
  EXPECT_TRUE(job->Meters().IsEmpty());
  ASSERT_EQ(Probe::OutputAccumulators(*job).Size(), 2U);
  EXPECT_EQ(Probe::OutputAccumulators(*job)[0].Size(), 1U);
  EXPECT_EQ(Probe::InputAccumulators(*job)[1].Size(), 1U);
}

TEST(DelayAudioTracks, SequenceBeforeAnyParameterIsRefused) {
  DelayAudio job;
  EXPECT_THROW(job.StartSequence(), PluginException);
}

TEST(DelayAudioTracksDeathTest, NoTrackAtAllStops) {
  auto texts = TextsOfPasses(1);
  texts.numberOfGroups = "0";
  TestJob job(texts);
  EXPECT_EQ(Probe::TrackCount(*job), 0);
  EXPECT_DEATH(job->StartSequence(), "list index");
}

// ---- one chunk

constexpr int kChunk = 239;  // at 48000 Hz

TEST(DelayAudioTracks, PositionIsThatOfTheChunksLastFrameOnEveryChannel) {
  TestJob job(TextsOfFormat("3"), 48000, 4);
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(std::vector<std::int16_t>(4 * kChunk, 1000));
  EXPECT_EQ(job->Results()[0].maxTruePeakPosition, kChunk - 1);
  EXPECT_EQ(job->Results()[1].maxTruePeakPosition, kChunk - 1);
  EXPECT_TRUE(Probe::InputAccumulators(*job)[3].IsEmpty());
}

TEST(DelayAudioTracks, TruePeakOfATrackIsTheLargestOfItsChannels) {
  std::vector<std::int16_t> samples(3 * 2 * kChunk, 0);
  for (std::size_t s = 0; s < 2 * kChunk; ++s) {
    samples[3 * s] = s < kChunk ? 1000 : 0;
    samples[3 * s + 1] = s < kChunk ? 0 : 8000;
    samples[3 * s + 2] = 20000;  // belongs to no track
  }
  TestJob job(TextsOfFormat("2"), 48000, 3);
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(samples);
  std::vector<float> second(kChunk, static_cast<float>(8000 / 32767.0));
  std::vector<float> past(12, 0.0F);
  const float wanted = twin::TruePeakOfChunk(second, twin::PolyphaseBankOf(48000), &past);
  EXPECT_BITS_EQ(wanted, job->Results()[0].maxTruePeak);
  EXPECT_EQ(job->Results()[0].maxTruePeakPosition, 2 * kChunk - 1);
}

TEST(DelayAudioTracks, FirstOfEqualPeaksKeepsItsPosition) {
  TestJob job(TextsOfFormat("1"), 176400, 1);
  job->StartSequence();
  job->StartPass(0);
  // Without phases a chunk's peak is its first sample.
  job.Deliver(std::vector<std::int16_t>(5 * 881, 16384));
  EXPECT_EQ(job->Results()[0].maxTruePeakPosition, 880);
}

TEST(DelayAudioTracks, PeakThatIsNoNumberEntersNoMaximum) {
  TestJob job(TextsOfFormat("1"), 176400, 1);
  job->StartSequence();
  job->StartPass(0);
  // Without phases a chunk's peak is its first sample with its sign, and has no logarithm.
  job.Deliver(std::vector<std::int16_t>(5 * 881, -16384));
  EXPECT_BITS_EQ(-70.0F, job->Results()[0].maxTruePeak);
  EXPECT_EQ(job->Results()[0].maxTruePeakPosition, 0);
  job.Deliver(std::vector<std::int16_t>(881, 16384));
  EXPECT_GT(job->Results()[0].maxTruePeak, -70.0F) << "the next number does";
  EXPECT_EQ(job->Results()[0].maxTruePeakPosition, 6 * 881 - 1);
}

// ---- callbacks

using Callback = void (*)(float value, int position, int track, void* context);

// A callback that keeps maxima, and where.
struct MaximumCase {
  const char* name;
  Callback call;
  float TrackMeasurement::*maximum;
  int TrackMeasurement::*position;
};

class DelayAudioMaxima : public testing::TestWithParam<MaximumCase> {
 protected:
  DelayAudioMaxima() : job(TextsOfFormat("3"), 48000, 4) { job->StartSequence(); }
  // Of track 1, with the first track looked at, too.
  void Call(float value, int position) { GetParam().call(value, position, 1, &*job); }
  void ExpectMaximum(float value, int position) {
    EXPECT_BITS_EQ(value, job->Results()[1].*GetParam().maximum);
    EXPECT_EQ(position, job->Results()[1].*GetParam().position);
    ExpectReset(job->Results()[0]);
  }

  TestJob job;
};

TEST_P(DelayAudioMaxima, GreaterValueIsStoredWithItsPosition) {
  Call(-20.0F, 100);
  ExpectMaximum(-20.0F, 100);
  Call(-20.5F, 200);
  ExpectMaximum(-20.0F, 100);
  Call(-19.5F, 300);
  ExpectMaximum(-19.5F, 300);
}

TEST_P(DelayAudioMaxima, TieKeepsTheEarlierOne) {
  Call(-20.0F, 100);
  Call(-20.0F, 200);
  ExpectMaximum(-20.0F, 100);
  Call(-20.0F, 50);
  ExpectMaximum(-20.0F, 100);
}

TEST_P(DelayAudioMaxima, ResetValueIsNoMaximumOfItsOwn) {
  Call(-70.0F, 100);
  ExpectMaximum(-70.0F, 0);
}

TEST_P(DelayAudioMaxima, SilenceAndWhatIsNoNumberNeverEnter) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  constexpr float kNoNumber = std::numeric_limits<float>::quiet_NaN();
  for (const float value : {-kInfinity, kNoNumber, -kNoNumber}) {
    Call(value, 100);
    ExpectMaximum(-70.0F, 0);
  }
  Call(-20.0F, 200);
  for (const float value : {-kInfinity, kNoNumber, -kNoNumber}) {
    Call(value, 300);
    ExpectMaximum(-20.0F, 200);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Of, DelayAudioMaxima,
    testing::Values(MaximumCase{"Momentary", Probe::kMeterCallbacks.onMomentary,
                                &TrackMeasurement::maxMomentary,
                                &TrackMeasurement::maxMomentaryPosition},
                    MaximumCase{"ShortTerm", Probe::kMeterCallbacks.onShortTerm,
                                &TrackMeasurement::maxShortTerm,
                                &TrackMeasurement::maxShortTermPosition},
                    MaximumCase{"TruePeak", Probe::OnTruePeak, &TrackMeasurement::maxTruePeak,
                                &TrackMeasurement::maxTruePeakPosition}),
    [](const auto& info) { return info.param.name; });

TEST(DelayAudioCallbacks, IntegratedLoudnessAndRangeAreStoredAlways) {
  TestJob job(TextsOfFormat("2"));
  job->StartSequence();
  for (const float value : {-20.0F, -30.0F, -std::numeric_limits<float>::infinity()}) {
    Probe::kMeterCallbacks.onIntegrated(value, 100, 0, &*job);
    Probe::kMeterCallbacks.onRange(value + 1.0F, 100, 0, &*job);
    EXPECT_BITS_EQ(value, job->Results()[0].integratedLoudness);
    EXPECT_BITS_EQ(value + 1.0F, job->Results()[0].loudnessRange);
  }
}

TEST(DelayAudioCallbacks, DoNothingWithoutAnInstance) {
  TestJob job(TextsOfFormat("2"));
  job->StartSequence();
  for (const Callback call :
       {Probe::kMeterCallbacks.onMomentary, Probe::kMeterCallbacks.onShortTerm,
        Probe::kMeterCallbacks.onIntegrated, Probe::kMeterCallbacks.onRange, +Probe::OnTruePeak}) {
    for (const int track : {0, 1, -1}) call(-1.0F, 100, track, nullptr);
  }
  ExpectReset(job->Results()[0]);
}

TEST(DelayAudioTracks, WindowsReportThroughTheCallbacks) {
  const std::size_t frames = 5 * 48000;
  const auto signal = support::Programme(3, 48000, 2, frames);
  TestJob job(TextsOfFormat("2"));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(signal);
  twin::JobSpec spec;
  spec.numberOfPasses = 1;
  const twin::TrackValues wanted = twin::RunJob(spec, signal).passes[0][0].values;
  const TrackMeasurement& result = job->Results()[0];
  EXPECT_BITS_EQ(wanted.maxMomentary, result.maxMomentary);
  EXPECT_EQ(wanted.maxMomentaryPosition, result.maxMomentaryPosition);
  EXPECT_BITS_EQ(wanted.maxShortTerm, result.maxShortTerm);
  EXPECT_EQ(wanted.maxShortTermPosition, result.maxShortTermPosition);
  EXPECT_BITS_EQ(wanted.integratedLoudness, result.integratedLoudness);
  EXPECT_BITS_EQ(wanted.loudnessRange, result.loudnessRange);
  EXPECT_BITS_EQ(wanted.maxTruePeak, result.maxTruePeak);
  EXPECT_EQ(wanted.maxTruePeakPosition, result.maxTruePeakPosition);
  EXPECT_GT(result.maxShortTerm, -70.0F) << "the signal is long enough";
}

TEST(DelayAudioTracks, SilenceEntersNoMaximum) {
  TestJob job(TextsOfFormat("2"));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(std::vector<std::int16_t>(2 * 48000 * 4, 0));
  ExpectReset(job->Results()[0]);
}

TEST(DelayAudioTracks, CuttingTheStreamDifferentlyMeasuresTheSame) {
  constexpr std::uint64_t kSeed = 77;
  const auto signal = support::Programme(kSeed, 48000, 2, 40000);
  std::vector<TrackMeasurement> results;
  for (const std::size_t unitFrames : {40000U, 1U, 239U, 240U, 1013U}) {
    TestJob job(TextsOfFormat("2"));
    job->StartSequence();
    job->StartPass(0);
    for (std::size_t frame = 0; frame < 40000; frame += unitFrames) {
      const std::size_t end = std::min<std::size_t>(frame + unitFrames, 40000);
      job.Deliver({signal.begin() + static_cast<std::ptrdiff_t>(2 * frame),
                   signal.begin() + static_cast<std::ptrdiff_t>(2 * end)});
    }
    results.push_back(job->Results()[0]);
    EXPECT_BITS_EQ(results[0].maxMomentary, results.back().maxMomentary)
        << "seed " << kSeed << " unit " << unitFrames;
    EXPECT_BITS_EQ(results[0].integratedLoudness, results.back().integratedLoudness) << unitFrames;
    EXPECT_BITS_EQ(results[0].maxTruePeak, results.back().maxTruePeak) << unitFrames;
    EXPECT_EQ(results[0].maxMomentaryPosition, results.back().maxMomentaryPosition) << unitFrames;
    EXPECT_EQ(results[0].maxTruePeakPosition, results.back().maxTruePeakPosition) << unitFrames;
  }
}

}  // namespace
}  // namespace harvane
