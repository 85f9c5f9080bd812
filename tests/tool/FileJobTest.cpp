#include "tool/FileJob.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/support/Signals.h"
#include "tests/tool/JobSupport.h"
#include "tool/results/ResultNumbers.h"

namespace harvane {
namespace {

using support::ChannelOf;
using support::ChannelsOf;
using support::JobPlace;
using support::ParameterTexts;
using support::PeakyNoise;
using support::QuietNoise;
using support::RunDirectly;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr int kRate = 48000;

std::vector<std::int16_t> SideBySide(const std::vector<std::vector<std::int16_t>>& channels) {
  return support::Interleave(channels);
}

std::vector<std::int16_t> MonoNoise(std::uint64_t seed, double seconds, int amplitude) {
  return support::NoiseInt16(seed, static_cast<std::size_t>(seconds * kRate), amplitude);
}

// Channels of different loudness.
std::vector<std::vector<std::int16_t>> NoiseChannels(int count) {
  std::vector<std::vector<std::int16_t>> channels;
  for (int c = 0; c < count; ++c) {
    channels.push_back(MonoNoise(static_cast<std::uint64_t>(c), 3.0, 1000 + 600 * c));
  }
  return channels;
}

// What a job of one pass measures of one track.
LogMeasurement Fresh(int rate, int channels, const std::vector<std::int16_t>& samples) {
  ParameterTexts texts;
  texts.formats[0] = std::to_string(channels);
  texts.numberOfPasses = "1";
  return RunDirectly(texts, rate, channels, samples).measurements.at(0);
}

void ExpectValuesOf(const LogMeasurement& wanted, const TrackValues& values) {
  EXPECT_EQ(values.integratedLoudness, ShortestDouble(wanted.integratedLoudness));
  EXPECT_EQ(values.loudnessRange, ShortestDouble(wanted.loudnessRange));
  EXPECT_EQ(values.maxTruePeak.value().value, ShortestDouble(wanted.maxTruePeak));
  EXPECT_EQ(values.maxTruePeak.value().seconds,
            static_cast<double>(wanted.maxTruePeakPosition) / kRate);
  EXPECT_EQ(values.maxShortTerm.value().value, ShortestDouble(wanted.maxShortTerm));
  EXPECT_EQ(values.maxShortTerm.value().seconds,
            static_cast<double>(wanted.maxShortTermPosition) / kRate);
  EXPECT_EQ(values.maxMomentary.value().value, ShortestDouble(wanted.maxMomentary));
  EXPECT_EQ(values.maxMomentary.value().seconds,
            static_cast<double>(wanted.maxMomentaryPosition) / kRate);
}

ParameterTexts Mono() {
  ParameterTexts texts;
  texts.formats[0] = "1";
  return texts;
}

TEST(FileJob, MeasuringTellsTheModulesValuesAndWritesNothing) {
  const std::vector<std::int16_t> samples = QuietNoise(kRate, 2, 4.0);
  const JobPlace place(kRate, 2, samples);
  const FileResult result = place.Measure();
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  EXPECT_EQ(result.sampleRate, kRate);
  EXPECT_EQ(result.channels, 2);
  EXPECT_EQ(result.frames, 4 * kRate);
  EXPECT_EQ(result.layout, "2");
  ASSERT_EQ(result.tracks.size(), 1U);
  const TrackResult& track = result.tracks[0];
  EXPECT_EQ(track.layout, "stereo");
  EXPECT_EQ(track.firstChannel, 1);
  EXPECT_EQ(track.lastChannel, 2);
  EXPECT_EQ(track.action, TrackAction::kMeasured);
  ExpectValuesOf(Fresh(kRate, 2, samples), track.before);
  EXPECT_FALSE(track.after);
  EXPECT_FALSE(track.gainDb);
  EXPECT_THAT(track.verdicts, IsEmpty());
}

TEST(FileJob, APeakIsFoundWhereItLies) {
  std::vector<std::int16_t> samples = MonoNoise(3, 2.0, 300);
  samples[kRate] = 20000;
  const JobPlace place(kRate, 1, samples);
  const FileResult result = place.Measure("--frame-rate 25");
  // Positions are those of the chunk of 239 frames in which the peak lies.
  EXPECT_NEAR(result.tracks.at(0).before.maxTruePeak.value().seconds, 1.0, 0.005);
}

TEST(FileJob, WhatWasNotMeasuredIsEmpty) {
  const JobPlace place(kRate, 1, std::vector<std::int16_t>(4800, 0));
  const FileResult result = place.Check();
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  const TrackResult& track = result.tracks.at(0);
  EXPECT_FALSE(track.before.integratedLoudness);
  EXPECT_FALSE(track.before.loudnessRange);
  EXPECT_FALSE(track.before.maxTruePeak);
  EXPECT_FALSE(track.before.maxShortTerm);
  EXPECT_FALSE(track.before.maxMomentary);
  for (const RuleVerdict& verdict : track.verdicts) {
    EXPECT_EQ(verdict.verdict, Verdict::kNotMeasured);
    EXPECT_FALSE(verdict.value);
  }
  EXPECT_EQ(track.verdicts.size(), 2U);
}

TEST(FileJob, APlainJobWritesWhatTheExportsGiveBack) {
  for (const int channels : {1, 2, 6}) {
    const std::vector<std::int16_t> samples = PeakyNoise(kRate, channels, 4.0);
    const JobPlace place(kRate, channels, samples);
    const FileResult result = place.Normalise();
    ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
    ParameterTexts texts;
    texts.formats[0] = std::to_string(channels);
    const support::DirectResult direct = RunDirectly(texts, kRate, channels, samples);
    EXPECT_EQ(place.Output(), direct.output) << channels;
    const TrackResult& track = result.tracks.at(0);
    EXPECT_EQ(track.action, TrackAction::kProcessed);
    ExpectValuesOf(direct.measurements.at(0), track.before);
    ExpectValuesOf(Fresh(kRate, channels, direct.output), track.after.value());
    EXPECT_EQ(track.gainDb, ShortestDouble(-23.0F - direct.measurements.at(0).integratedLoudness));
    EXPECT_TRUE(track.isLimited);
    EXPECT_EQ(track.delayFrames, 95);
    EXPECT_THAT(result.notes, Contains(HasSubstr("comes out 95 frames (1.979 ms) late")));
  }
}

// The module's second pass begins with what its filters remember of the first: a low tone that
// breaks off rings on in the silence before the output has any sound.
TEST(FileJob, ValuesAfterAreThoseOfTheFileWhateverTheModuleRemembers) {
  std::vector<std::int16_t> samples(5 * kRate, 0);
  const std::vector<std::int16_t> noise = MonoNoise(1, 3.0, 600);
  std::copy(noise.begin(), noise.end(), samples.begin() + kRate);
  std::fill(samples.end() - 2000, samples.end(), std::int16_t{32000});
  const JobPlace place(kRate, 1, samples);
  for (const std::string options : {"", "--align ", "--cross-check "}) {
    const FileResult result =
        place.Normalise(options + "--loudness -30 --true-peak 0 --preset r128");
    ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
    ExpectValuesOf(Fresh(kRate, 1, place.Output()), result.tracks.at(0).after.value());
    EXPECT_EQ(result.tracks[0].verdicts.at(0).value,
              result.tracks[0].after.value().integratedLoudness);
  }
  const LogMeasurement row = RunDirectly(Mono(), kRate, 1, samples).measurements.at(1);
  EXPECT_NE(row.integratedLoudness,
            Fresh(kRate, 1, RunDirectly(Mono(), kRate, 1, samples).output).integratedLoudness);
}

// Past a minute, at a rate at which that is soon done.
TEST(FileJob, OfALongFileTheModuleIsBelievedUnlessItRemembersSomething) {
  constexpr int kLowRate = 8000;
  std::vector<std::int16_t> samples = support::NoiseInt16(1, 65 * kLowRate, 6000);
  std::fill(samples.end() - kLowRate, samples.end(), std::int16_t{0});
  const JobPlace quiet(kLowRate, 1, samples);
  const TrackValues believed = quiet.Normalise().tracks.at(0).after.value();
  const LogMeasurement row = RunDirectly(Mono(), kLowRate, 1, samples).measurements.at(1);
  EXPECT_EQ(believed.integratedLoudness, ShortestDouble(row.integratedLoudness));
  EXPECT_EQ(believed.maxMomentary.value().value, ShortestDouble(row.maxMomentary));
  const LogMeasurement file = Fresh(kLowRate, 1, quiet.Output());
  EXPECT_NE(row.integratedLoudness, file.integratedLoudness);
  EXPECT_NEAR(row.integratedLoudness, file.integratedLoudness, 0.01);
  EXPECT_NEAR(row.maxMomentary, file.maxMomentary, 0.01);
  EXPECT_NEAR(row.maxTruePeak, file.maxTruePeak, 0.01);

  std::fill(samples.begin(), samples.begin() + kLowRate, std::int16_t{0});
  std::fill(samples.end() - 600, samples.end(), std::int16_t{20000});
  const JobPlace loud(kLowRate, 1, samples);
  const TrackValues measured = loud.Normalise().tracks.at(0).after.value();
  const LogMeasurement other = Fresh(kLowRate, 1, loud.Output());
  EXPECT_EQ(measured.integratedLoudness, ShortestDouble(other.integratedLoudness));
  EXPECT_EQ(measured.maxTruePeak.value().value, ShortestDouble(other.maxTruePeak));
}

TEST(FileJob, GroupsBeginAtMultiplesOfEightInTheModule) {
  const std::vector<std::int16_t> mono = MonoNoise(1, 3.0, 2000);
  const std::vector<std::int16_t> left = MonoNoise(2, 3.0, 1000);
  const std::vector<std::int16_t> right = MonoNoise(3, 3.0, 1500);
  const JobPlace place(kRate, 3, SideBySide({mono, left, right}));
  ASSERT_EQ(place.Normalise("--layout 1,2").status, FileStatus::kDone);
  EXPECT_EQ(ChannelOf(place.Output(), 3, 0), RunDirectly(Mono(), kRate, 1, mono).output);
  EXPECT_EQ(ChannelsOf(place.Output(), 3, {1, 2}),
            RunDirectly({}, kRate, 2, SideBySide({left, right})).output);
}

TEST(FileJob, MoreMonoTracksThanAJobTakesGoThroughSeveral) {
  const std::vector<std::vector<std::int16_t>> channels = NoiseChannels(6);
  const JobPlace place(kRate, 6, SideBySide(channels));
  const FileResult result = place.Normalise("--allocation 6xmono");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  EXPECT_EQ(result.layout, "1,1,1,1,1,1");
  ASSERT_EQ(result.tracks.size(), 6U);
  const std::vector<std::int16_t> output = place.Output();
  for (std::size_t c = 0; c < 6; ++c) {
    EXPECT_EQ(result.tracks[c].firstChannel, static_cast<int>(c) + 1);
    EXPECT_EQ(ChannelOf(output, 6, c), RunDirectly(Mono(), kRate, 1, channels[c]).output) << c;
  }
  EXPECT_THAT(result.notes, Contains(HasSubstr("went through 2 jobs")));
}

TEST(FileJob, AMapPicksChannelsAndLeavesTheOthersAlone) {
  const std::vector<std::vector<std::int16_t>> channels = NoiseChannels(4);
  const JobPlace place(kRate, 4, SideBySide(channels));
  const FileResult result = place.Normalise("--map 4,2");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  const std::vector<std::int16_t> output = place.Output();
  EXPECT_EQ(ChannelsOf(output, 4, {3, 1}),
            RunDirectly({}, kRate, 2, SideBySide({channels[3], channels[1]})).output);
  EXPECT_EQ(ChannelOf(output, 4, 0), channels[0]);
  EXPECT_EQ(ChannelOf(output, 4, 2), channels[2]);
  ASSERT_EQ(result.tracks.size(), 1U);
  EXPECT_EQ(result.tracks[0].firstChannel, 2);
  EXPECT_EQ(result.tracks[0].lastChannel, 4);
  EXPECT_THAT(result.tracks[0].channelOrder, ElementsAre(4, 2));
}

TEST(FileJob, ASilentTrackKeepsItsLevelUnlessAskedOtherwise) {
  const std::vector<std::int16_t> loud = MonoNoise(1, 3.0, 2000);
  // Under the absolute gate, and not all zeros.
  const std::vector<std::int16_t> silent = MonoNoise(2, 3.0, 3);
  const JobPlace place(kRate, 2, SideBySide({loud, silent}));
  const FileResult kept = place.Normalise("--layout 1,1");
  ASSERT_EQ(kept.status, FileStatus::kDone) << kept.error;
  EXPECT_EQ(kept.tracks.at(0).action, TrackAction::kProcessed);
  EXPECT_EQ(kept.tracks.at(1).action, TrackAction::kKeptQuiet);
  EXPECT_EQ(kept.tracks.at(1).gainDb, 0.0);
  EXPECT_FALSE(kept.tracks.at(1).after.value().integratedLoudness);
  EXPECT_EQ(ChannelOf(place.Output(), 2, 1), silent);
  EXPECT_EQ(ChannelOf(place.Output(), 2, 0), RunDirectly(Mono(), kRate, 1, loud).output);

  const FileResult raised = place.Normalise("--layout 1,1 --quiet-tracks process");
  EXPECT_EQ(raised.tracks.at(1).action, TrackAction::kProcessed);
  EXPECT_EQ(raised.tracks.at(1).gainDb, 47.0);
  EXPECT_EQ(ChannelOf(place.Output(), 2, 1), RunDirectly(Mono(), kRate, 1, silent).output);
}

TEST(FileJob, LowerOnlyLeavesAloneWhatWouldBeRaised) {
  const std::vector<std::int16_t> loud = MonoNoise(1, 3.0, 20000);
  const std::vector<std::int16_t> quiet = MonoNoise(2, 3.0, 500);
  const JobPlace place(kRate, 2, SideBySide({loud, quiet}));
  const FileResult result = place.Normalise("--layout 1,1 --lower-only");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  EXPECT_EQ(result.tracks.at(0).action, TrackAction::kProcessed);
  EXPECT_LT(result.tracks.at(0).gainDb.value(), 0.0);
  EXPECT_EQ(result.tracks.at(1).action, TrackAction::kNotRaised);
  EXPECT_EQ(result.tracks.at(1).after.value().integratedLoudness,
            result.tracks.at(1).before.integratedLoudness);
  EXPECT_EQ(ChannelOf(place.Output(), 2, 1), quiet);
}

TEST(FileJob, WithinTheToleranceATrackKeepsItsLevelAndAFileIsSkipped) {
  const std::vector<std::int16_t> loud = MonoNoise(1, 3.0, 8000);
  const std::vector<std::int16_t> quiet = MonoNoise(2, 3.0, 500);
  const JobPlace place(kRate, 2, SideBySide({loud, quiet}));
  const double loudness =
      place.Measure("--layout 1,1").tracks.at(0).before.integratedLoudness.value();
  const std::string target = fmt::format("--layout 1,1 --loudness {}", loudness - 0.5);
  const FileResult one = place.Normalise(target + " --tolerance 0.6");
  ASSERT_EQ(one.status, FileStatus::kDone) << one.error;
  EXPECT_EQ(one.tracks.at(0).action, TrackAction::kWithinTolerance);
  EXPECT_EQ(one.tracks.at(1).action, TrackAction::kProcessed);
  EXPECT_EQ(ChannelOf(place.Output(), 2, 0), loud);
  EXPECT_EQ(place.Normalise(target + " --tolerance 0.4").tracks.at(0).action,
            TrackAction::kProcessed);

  const JobPlace alone(kRate, 1, loud);
  const FileResult skipped =
      alone.Normalise(fmt::format("--loudness {} --tolerance 0.6 --preset r128", loudness - 0.5));
  EXPECT_EQ(skipped.status, FileStatus::kSkipped);
  EXPECT_EQ(skipped.output, "");
  EXPECT_FALSE(alone.HasOutput());
  EXPECT_EQ(skipped.tracks.at(0).action, TrackAction::kWithinTolerance);
  EXPECT_FALSE(skipped.tracks.at(0).after);
  EXPECT_EQ(skipped.tracks.at(0).verdicts.at(0).value, loudness);
}

TEST(FileJob, ATrackAtTheTargetWithATooHighPeakIsNotWithinTheTolerance) {
  const JobPlace place(kRate, 1, PeakyNoise(kRate, 1, 4.0));
  const TrackValues values = place.Measure().tracks.at(0).before;
  const FileResult result = place.Normalise(
      fmt::format("--loudness {} --tolerance 1 --true-peak {}", values.integratedLoudness.value(),
                  values.maxTruePeak.value().value - 1.0));
  EXPECT_EQ(result.tracks.at(0).action, TrackAction::kProcessed);
}

TEST(FileJob, AligningTakesTheDelayBackAndTheEndIsThere) {
  const std::vector<std::int16_t> limited = PeakyNoise(kRate, 1, 4.0);
  const std::vector<std::int16_t> other = MonoNoise(2, 4.0, 2000);
  const JobPlace place(kRate, 2, SideBySide({limited, other}));
  const FileResult result = place.Normalise("--layout 1,1 --align");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  ASSERT_TRUE(result.tracks.at(0).isLimited);
  ASSERT_FALSE(result.tracks.at(1).isLimited);
  EXPECT_EQ(result.tracks.at(0).delayFrames, 0);
  EXPECT_THAT(result.notes, Not(Contains(HasSubstr("late"))));
  const std::vector<std::int16_t> late = RunDirectly(Mono(), kRate, 1, limited).output;
  const std::vector<std::int16_t> aligned = ChannelOf(place.Output(), 2, 0);
  ASSERT_EQ(aligned.size(), late.size());
  EXPECT_TRUE(std::equal(late.begin() + 95, late.end(), aligned.begin()));
  EXPECT_TRUE(std::any_of(aligned.end() - 95, aligned.end(), [](int v) { return v != 0; }));
  EXPECT_EQ(ChannelOf(place.Output(), 2, 1), RunDirectly(Mono(), kRate, 1, other).output);
}

TEST(FileJob, ADocumentIsHandedOverAsItStands) {
  const std::vector<std::int16_t> samples = MonoNoise(4, 3.0, 3000);
  const JobPlace place(kRate, 1, samples);
  ParameterTexts texts = Mono();
  texts.Loudness = "-35.5";  // which no option would take
  texts.logPath = place.FileIn("logs");
  support::WriteBytes(place.FileIn("p.xml"), support::ParameterDocument(texts));
  const FileResult result = place.Normalise("--param " + place.FileIn("p.xml"));
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  EXPECT_EQ(place.Output(), RunDirectly(texts, kRate, 1, samples).output);
  EXPECT_NEAR(result.tracks.at(0).after.value().integratedLoudness.value(), -35.5, 0.05);
}

TEST(FileJob, WhatTheModuleRefusesIsRefusedWithItsCode) {
  const JobPlace place(kRate, 1, MonoNoise(4, 1.0, 3000));
  const auto run = [&place](const ParameterTexts& texts) {
    support::WriteBytes(place.FileIn("p.xml"), support::ParameterDocument(texts));
    return place.Normalise("--param " + place.FileIn("p.xml"));
  };
  ParameterTexts missing = Mono();
  missing.MaxTP = "(absent)";
  const FileResult withoutPeak = run(missing);
  EXPECT_EQ(withoutPeak.status, FileStatus::kRefused);
  EXPECT_THAT(withoutPeak.error, HasSubstr("xSetParameter answered 4"));
  ParameterTexts unknown = Mono();
  unknown.formats[0] = "9";
  const FileResult withNine = run(unknown);
  EXPECT_EQ(withNine.status, FileStatus::kRefused);
  EXPECT_THAT(withNine.error, HasSubstr("xStartSequenceEx answered 3"));
  support::WriteBytes(place.FileIn("p.xml"), "<parameter>");
  EXPECT_EQ(place.Normalise("--param " + place.FileIn("p.xml")).status, FileStatus::kRefused);
  EXPECT_FALSE(place.HasOutput());
}

TEST(FileJob, ADocumentThatWouldEndTheProcessIsAnErrorOfTheFile) {
  const JobPlace place(kRate, 1, MonoNoise(4, 1.0, 3000));
  for (const char* groups : {"0", "5", "-1"}) {
    ParameterTexts texts = Mono();
    texts.numberOfGroups = groups;
    support::WriteBytes(place.FileIn("p.xml"), support::ParameterDocument(texts));
    const FileResult result = place.Normalise("--param " + place.FileIn("p.xml"));
    EXPECT_EQ(result.status, FileStatus::kFailed);
    EXPECT_THAT(result.error, HasSubstr("1 to 4 would be right"));
  }
}

TEST(FileJob, AFileWithoutALayoutOfItsOwnIsToldTheChoices) {
  const JobPlace place(kRate, 8, support::NoiseInt16(1, 8 * 4800, 1000));
  const FileResult result = place.Measure();
  EXPECT_EQ(result.status, FileStatus::kFailed);
  EXPECT_EQ(result.error,
            "has 8 channels, which stand for no layout by themselves; --layout 2+2+2+2 or 5.1+2 "
            "or 2+5.1 would be right");
  EXPECT_THAT(result.tracks, IsEmpty());
}

TEST(FileJob, TheLimiterIsRefusedWhereTheModuleHasNone) {
  const JobPlace place(192000, 1, QuietNoise(192000, 1, 2.0));
  const FileResult result = place.Normalise("--loudness -12 --true-peak -12");
  EXPECT_EQ(result.status, FileStatus::kFailed);
  EXPECT_THAT(result.error, HasSubstr("which the module does not have at 192000 Hz"));
  EXPECT_FALSE(place.HasOutput());
}

TEST(FileJob, AKeptTrackThatTheModuleWouldLimitCostsNoOtherItsJob) {
  const int rate = 192000;
  // Bursts that are longer than a chunk of 959 frames, of whose samples the first is looked at.
  std::vector<std::int16_t> peaky(2 * rate, 0);
  for (std::size_t i = 0; i < peaky.size(); i += rate) std::fill_n(peaky.begin() + i, 1000, 20000);
  const std::vector<std::int16_t> loud = support::NoiseInt16(2, peaky.size(), 30000);
  const JobPlace place(rate, 2, SideBySide({peaky, loud}));
  const std::string targets = "--layout 1,1 --loudness -20 --true-peak -6";
  ASSERT_THAT(place.Normalise(targets).error, HasSubstr("track 1 (channel 1) would need the"));
  const FileResult result = place.Normalise(targets + " --lower-only");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  EXPECT_EQ(result.tracks.at(0).action, TrackAction::kNotRaised);
  EXPECT_EQ(ChannelOf(place.Output(), 2, 0), peaky);
  ParameterTexts texts = Mono();
  texts.Loudness = "-20";
  texts.MaxTP = "-6";
  EXPECT_EQ(ChannelOf(place.Output(), 2, 1), RunDirectly(texts, rate, 1, loud).output);
}

TEST(FileJob, FaultsOfTheFileAreOneLineWithoutItsName) {
  const JobPlace place(kRate, 1, {});
  EXPECT_EQ(place.Measure().error, "is empty: it holds no frame of audio");
  support::WriteBytes(place.FileIn("in.wav"), "no sound");
  const FileResult result = place.Measure();
  EXPECT_EQ(result.status, FileStatus::kFailed);
  EXPECT_THAT(result.error, Not(HasSubstr("in.wav")));
  EXPECT_THAT(result.error, Not(IsEmpty()));
}

TEST(FileJob, AnOutputThatIsThereIsLeftAloneUnlessAskedOtherwise) {
  const JobPlace place(kRate, 1, MonoNoise(4, 2.0, 3000));
  support::WriteBytes(place.FileIn("out.wav"), "mine");
  const JobOptions options = support::OptionsFor(JobKind::kNormalise, "-L " + place.FileIn("logs"));
  const FileResult result =
      RunFileJob(options, place.FileIn("in.wav"), place.FileIn("out.wav"), nullptr);
  EXPECT_EQ(result.status, FileStatus::kFailed);
  EXPECT_THAT(result.error, HasSubstr("out.wav: is there already"));
  EXPECT_EQ(support::ReadBytes(place.FileIn("out.wav")), "mine");
  EXPECT_EQ(place.Normalise().status, FileStatus::kDone);
}

TEST(FileJob, AModuleFileGivesTheSameAudioAndValuesOfWhatWentInAndOut) {
  const JobPlace place(kRate, 2, PeakyNoise(kRate, 2, 4.0));
  const std::string targets = "--layout 1,1 --align --converge ";
  const TrackResult linked = place.Normalise(targets).tracks.at(1);
  const FileResult loaded = place.Normalise(targets + "--module " HARVANE_MODULE);
  ASSERT_EQ(loaded.status, FileStatus::kDone) << loaded.error;
  EXPECT_EQ(loaded.tracks.at(1).before.integratedLoudness, linked.before.integratedLoudness);
  EXPECT_EQ(loaded.tracks.at(1).after.value().integratedLoudness,
            linked.after.value().integratedLoudness);
  EXPECT_THAT(loaded.notes, Contains(HasSubstr("a module file tells no values")));
  EXPECT_THAT(loaded.notes, Contains(HasSubstr("--wait-for-log")));
  const FileResult plain = place.Normalise("--layout 1,1 --module " HARVANE_MODULE);
  ASSERT_EQ(plain.status, FileStatus::kDone) << plain.error;
  const std::vector<std::int16_t> fromFile = place.Output();
  ASSERT_EQ(place.Normalise("--layout 1,1").status, FileStatus::kDone);
  EXPECT_EQ(fromFile, place.Output());
}

TEST(FileJob, AModuleThatCannotBeLoadedIsAnErrorOfTheFile) {
  const JobPlace place(kRate, 1, MonoNoise(4, 2.0, 3000));
  const FileResult result = place.Measure("--module /nowhere/no.so");
  EXPECT_EQ(result.status, FileStatus::kFailed);
  EXPECT_THAT(result.error, HasSubstr("/nowhere/no.so"));
}

TEST(FileJob, ProgressCanStopTheJob) {
  const JobPlace place(kRate, 1, MonoNoise(4, 3.0, 3000));
  JobOptions options = support::OptionsFor(JobKind::kNormalise, "");
  options.parameters.logPath = place.FileIn("logs");
  std::vector<JobProgress> seen;
  ProgressSink sink = [&seen](const JobProgress& progress) {
    seen.push_back(progress);
    return progress.step == "pass 1 of 2";
  };
  const FileResult result =
      RunFileJob(options, place.FileIn("in.wav"), place.FileIn("out.wav"), &sink);
  EXPECT_EQ(result.status, FileStatus::kInterrupted);
  EXPECT_FALSE(place.HasOutput());
  ASSERT_EQ(seen.size(), 4U);  // 3 units of the first pass, one of the second
  EXPECT_EQ(seen[0].frames, 65536);
  EXPECT_EQ(seen[2].frames, 3 * kRate);
  EXPECT_EQ(seen[2].allFrames, 3 * kRate);
  EXPECT_EQ(seen[3].step, "pass 2 of 2");
}

TEST(FileJob, ConvergingBringsALimitedTrackToItsTargetUnderTheCeiling) {
  const JobPlace place(kRate, 1, PeakyNoise(kRate, 1, 6.0));
  const TrackResult plain = place.Normalise().tracks.at(0);
  ASSERT_TRUE(plain.isLimited);
  ASSERT_GT(-23.0 - plain.after.value().integratedLoudness.value(), 0.1);
  const FileResult result = place.Normalise("--converge --cross-check");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  const TrackResult& track = result.tracks.at(0);
  ASSERT_TRUE(track.convergence);
  EXPECT_TRUE(track.convergence->isReached);
  EXPECT_GT(track.convergence->jobs, 1);
  EXPECT_NEAR(track.after.value().integratedLoudness.value(), -23.0, 0.1);
  EXPECT_LE(track.after.value().maxTruePeak.value().value, -1.0);
  EXPECT_NEAR(track.crossCheck.value().integratedLoudness.value(), -23.0, 0.1);
  EXPECT_LE(track.crossCheck.value().maxTruePeak.value().value, -1.0);
  EXPECT_EQ(track.verdicts.size(), 4U);
  EXPECT_FALSE(HasFailedVerdict(result));
  // The same as a plain job with the parameters that it says.
  const std::vector<std::int16_t> output = place.Output();
  ParameterTexts texts = Mono();
  texts.Loudness = fmt::format("{}", track.convergence->loudness);
  texts.MaxTP = fmt::format("{}", track.convergence->maxTruePeak);
  EXPECT_EQ(
      output,
      RunDirectly(texts, kRate, 1, support::ReadSound(place.FileIn("in.wav")).samples).output);
}

TEST(FileJob, WhatCannotBeReachedIsSaidAndFails) {
  // Impulses far over noise: their loudness goes with their height, which the ceiling takes.
  std::vector<std::int16_t> samples = MonoNoise(1, 6.0, 2);
  for (std::size_t i = 0; i < samples.size(); i += 12000) samples[i] = 10000;
  const JobPlace place(kRate, 1, samples);
  const FileResult result = place.Normalise("--converge --true-peak -6 --loudness -16");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  const TrackResult& track = result.tracks.at(0);
  ASSERT_TRUE(track.convergence);
  EXPECT_FALSE(track.convergence->isReached);
  EXPECT_GT(track.convergence->missedLu, 0.1);
  EXPECT_THAT(result.notes, Contains(HasSubstr("does not reach -16 LUFS under -6 dBTP")));
  EXPECT_TRUE(HasFailedVerdict(result));
}

TEST(FileJob, ConvergingTowardsAShortTermLoudnessLooksAtThePeaks) {
  const JobPlace place(kRate, 1, PeakyNoise(kRate, 1, 6.0));
  const FileResult result =
      place.Normalise("--mode short-term --short-term -29 --true-peak -6 --converge");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  const TrackResult& track = result.tracks.at(0);
  ASSERT_TRUE(track.convergence);
  EXPECT_TRUE(track.convergence->isReached);
  EXPECT_LE(track.after.value().maxShortTerm.value().value, -28.9);
  EXPECT_LE(track.after.value().maxTruePeak.value().value, -6.0);
  EXPECT_EQ(track.verdicts.at(0).rule, "maxShortTerm");
  EXPECT_FALSE(HasFailedVerdict(result));
}

TEST(FileJob, ADocumentCanConvergeAsWell) {
  const JobPlace place(kRate, 1, PeakyNoise(kRate, 1, 6.0));
  ParameterTexts texts = Mono();
  texts.Loudness = "-22";
  texts.logPath = place.FileIn("logs");
  support::WriteBytes(place.FileIn("p.xml"), support::ParameterDocument(texts));
  const TrackResult track =
      place.Normalise("--converge --param " + place.FileIn("p.xml")).tracks.at(0);
  ASSERT_TRUE(track.convergence);
  EXPECT_TRUE(track.convergence->isReached);
  EXPECT_NEAR(track.after.value().integratedLoudness.value(), -22.0, 0.1);
  EXPECT_EQ(track.verdicts.at(0).wanted, "-22.0 ±0.1 LUFS");
}

TEST(FileJob, OnlyTheTrackThatConvergesIsTouchedByIt) {
  const std::vector<std::int16_t> limited = PeakyNoise(kRate, 1, 4.0);
  const std::vector<std::int16_t> other = MonoNoise(2, 4.0, 2000);
  const JobPlace place(kRate, 2, SideBySide({limited, other}));
  const FileResult result = place.Normalise("--layout 1,1 --converge");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  EXPECT_TRUE(result.tracks.at(0).convergence);
  EXPECT_FALSE(result.tracks.at(1).convergence);
  EXPECT_EQ(ChannelOf(place.Output(), 2, 1), RunDirectly(Mono(), kRate, 1, other).output);
}

TEST(FileJob, TheSecondOpinionIsNear) {
  const JobPlace place(kRate, 6, QuietNoise(kRate, 6, 6.0));
  const TrackResult track = place.Check("--cross-check").tracks.at(0);
  const TrackValues& other = track.crossCheck.value();
  // The module counts the newest block twice, and libebur128 interpolates with more taps.
  EXPECT_NEAR(other.integratedLoudness.value(), track.before.integratedLoudness.value(), 0.05);
  EXPECT_NEAR(other.maxShortTerm.value().value, track.before.maxShortTerm.value().value, 0.1);
  EXPECT_NEAR(other.maxMomentary.value().value, track.before.maxMomentary.value().value, 0.1);
  EXPECT_NEAR(other.maxTruePeak.value().value, track.before.maxTruePeak.value().value, 0.5);
  ASSERT_EQ(track.verdicts.size(), 4U);
  EXPECT_EQ(track.verdicts[2].rule, "crossCheck.integratedLoudness");
  EXPECT_EQ(track.verdicts[2].value, other.integratedLoudness);
}

TEST(FileJob, TheSeriesHoldTheMaxima) {
  const JobPlace place(kRate, 2, support::Programme(5, kRate, 2, 7 * kRate));
  const TrackResult track = place.Normalise("--series").tracks.at(0);
  const LoudnessSeries& before = track.seriesBefore.value();
  // Windows of 0.4 s every 0.1 s and of 3 s every 0.75 s that are complete before 7 s.
  EXPECT_EQ(before.momentary.size(), 66U);
  EXPECT_EQ(before.shortTerm.size(), 6U);
  const auto maximumOf = [](const std::vector<std::optional<float>>& values) {
    return ShortestDouble(std::max_element(values.begin(), values.end())->value());
  };
  EXPECT_EQ(maximumOf(before.momentary), track.before.maxMomentary.value().value);
  EXPECT_EQ(maximumOf(before.shortTerm), track.before.maxShortTerm.value().value);
  const LoudnessSeries& after = track.seriesAfter.value();
  EXPECT_EQ(maximumOf(after.momentary), track.after.value().maxMomentary.value().value);
  EXPECT_EQ(maximumOf(after.shortTerm), track.after.value().maxShortTerm.value().value);
}

// What EBU Tech 3285 has at its places: loudness, range, true peak, momentary, short-term.
std::vector<int> BroadcastLoudnessIn(const std::string& path) {
  SF_INFO info{};
  SNDFILE* const sound = sf_open(path.c_str(), SFM_READ, &info);
  SF_BROADCAST_INFO chunk{};
  const bool isThere = sf_command(sound, SFC_GET_BROADCAST_INFO, &chunk, sizeof chunk) == SF_TRUE;
  sf_close(sound);
  if (!isThere) return {};
  return {chunk.loudness_value, chunk.loudness_range, chunk.max_true_peak_level,
          chunk.max_momentary_loudness, chunk.max_shortterm_loudness};
}

TEST(FileJob, BroadcastUpdateTellsWhatWasMeasuredAfter) {
  const JobPlace place(kRate, 2, QuietNoise(kRate, 2, 4.0));
  const FileResult result = place.Normalise("--bext update");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  const TrackValues& after = result.tracks.at(0).after.value();
  const auto hundredths = [](double value) { return static_cast<int>(std::lround(value * 100.0)); };
  EXPECT_THAT(BroadcastLoudnessIn(place.FileIn("out.wav")),
              ElementsAre(hundredths(after.integratedLoudness.value()),
                          hundredths(after.loudnessRange.value()),
                          hundredths(after.maxTruePeak.value().value),
                          hundredths(after.maxMomentary.value().value),
                          hundredths(after.maxShortTerm.value().value)));
  EXPECT_EQ(BroadcastLoudnessIn(place.FileIn("out.wav")).at(0), -2300);
}

TEST(FileJob, BroadcastChunkOfSeveralTracksTellsNoLoudness) {
  const JobPlace place(kRate, 4, QuietNoise(kRate, 4, 4.0));
  const FileResult result = place.Normalise("--layout 2+2 --bext update");
  ASSERT_EQ(result.status, FileStatus::kDone) << result.error;
  EXPECT_THAT(BroadcastLoudnessIn(place.FileIn("out.wav")), testing::Each(0x7FFF));
  EXPECT_THAT(result.notes, Contains(HasSubstr("of 2 tracks the broadcast chunk")));
}

TEST(FileJob, NoBroadcastChunkIsBegunUnasked) {
  const JobPlace place(kRate, 2, QuietNoise(kRate, 2, 4.0));
  ASSERT_EQ(place.Normalise().status, FileStatus::kDone);
  EXPECT_THAT(BroadcastLoudnessIn(place.FileIn("out.wav")), IsEmpty());
}

}  // namespace
}  // namespace harvane
