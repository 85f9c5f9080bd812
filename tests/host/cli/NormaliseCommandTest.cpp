#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"

namespace support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

int CountOf(const std::string& word, const std::string& text) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; ++at) ++count;
  return count;
}

class NormaliseByRate : public testing::TestWithParam<int> {};

TEST_P(NormaliseByRate, OutputIsThatOfTheExports) {
  const Workplace place;
  const std::vector<std::int16_t> samples = QuietNoise(GetParam(), 2, 4.0);
  WriteSound(place.FileIn("in.wav"), kWav16, GetParam(), 2, samples);
  const RunResult run = place.Run("normalise in.wav -o out.wav");
  ASSERT_EQ(run.code, 0) << run.err;
  const DirectResult direct = RunDirectly({}, GetParam(), 2, samples);
  const Sound sound = ReadSound(place.FileIn("out.wav"));
  EXPECT_EQ(sound.info.samplerate, GetParam());
  EXPECT_EQ(sound.samples, direct.output);
  ParameterTexts onePass;
  onePass.numberOfPasses = "1";
  const DirectResult after = RunDirectly(onePass, GetParam(), 2, sound.samples);
  for (const harvane::LogMeasurement& measurement :
       {direct.measurements.at(0), after.measurements.at(0)}) {
    EXPECT_THAT(run.out, HasSubstr(fmt::format("{}", measurement.integratedLoudness)));
    EXPECT_THAT(run.out, HasSubstr(fmt::format("{}", measurement.maxTruePeak)));
  }
  EXPECT_THAT(run.err, Not(HasSubstr("warning")));
}

INSTANTIATE_TEST_SUITE_P(Rates, NormaliseByRate,
                         testing::Values(44100, 48000, 88200, 96000, 176400, 192000),
                         [](const auto& info) { return "Rate" + std::to_string(info.param); });

class NormaliseByKind : public testing::TestWithParam<std::pair<const char*, int>> {};

TEST_P(NormaliseByKind, TheExtensionChoosesTheKind) {
  const auto& [extension, kind] = GetParam();
  const Workplace place;
  const std::vector<std::int16_t> samples = QuietNoise(48000, 2, 2.0);
  WriteSound(place.FileIn("in"), kind | SF_FORMAT_PCM_16, 48000, 2, samples);
  const std::string same = "out" + std::string(extension);
  ASSERT_EQ(place.Run("normalise in -o " + same).code, 0);
  ASSERT_EQ(place.Run("normalise in -o plain").code, 0);
  const Sound sound = ReadSound(place.FileIn(same));
  EXPECT_EQ(sound.info.format & SF_FORMAT_TYPEMASK, kind);
  EXPECT_EQ(sound.samples, RunDirectly({}, 48000, 2, samples).output);
  EXPECT_EQ(ReadBytes(place.FileIn("plain")), ReadBytes(place.FileIn(same)));
}

INSTANTIATE_TEST_SUITE_P(Kinds, NormaliseByKind,
                         testing::Values(std::pair{".wav", SF_FORMAT_WAV},
                                         std::pair{".rf64", SF_FORMAT_RF64},
                                         std::pair{".aiff", SF_FORMAT_AIFF},
                                         std::pair{".flac", SF_FORMAT_FLAC}),
                         [](const auto& info) { return std::string(info.param.first + 1); });

TEST(NormaliseCommand, ALimitedTrackIsSaidToComeOutLate) {
  const Workplace place;
  const std::vector<std::int16_t> samples = PeakyNoise(48000, 2, 5.0);
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 2, samples);
  const RunResult run = place.Run("normalise in.wav -o out.wav");
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.err, HasSubstr("track 1 (channels 1-2) was limited and comes out 95 frames "
                                 "(1.979 ms) late"));
  EXPECT_THAT(run.out, HasSubstr("  yes      95\n"));
  EXPECT_EQ(ReadSound(place.FileIn("out.wav")).samples, RunDirectly({}, 48000, 2, samples).output);
}

TEST(NormaliseCommand, GroupsOfAFileBecomeGroupsOfTheModule) {
  const Workplace place;
  const std::size_t frames = 48000 * 4;
  const std::vector<std::int16_t> file = NoiseInt16(5, 3 * frames, 2000);
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 3, file);
  const RunResult run = place.Run("normalise in.wav -o out.wav --layout 1,2");
  ASSERT_EQ(run.code, 0) << run.err;

  std::vector<std::int16_t> row(10 * frames);
  for (std::size_t s = 0; s < frames; ++s) {
    row[10 * s] = file[3 * s];
    row[10 * s + 8] = file[3 * s + 1];
    row[10 * s + 9] = file[3 * s + 2];
  }
  ParameterTexts texts;
  texts.numberOfGroups = "2";
  texts.formats = {"1", "2", "2", "2"};
  const std::vector<std::int16_t> given = RunDirectly(texts, 48000, 10, row).output;
  std::vector<std::int16_t> wanted(3 * frames);
  for (std::size_t s = 0; s < frames; ++s) {
    wanted[3 * s] = given[10 * s];
    wanted[3 * s + 1] = given[10 * s + 8];
    wanted[3 * s + 2] = given[10 * s + 9];
  }
  EXPECT_EQ(ReadSound(place.FileIn("out.wav")).samples, wanted);
  EXPECT_THAT(run.out, HasSubstr("2      2-3       stereo  after"));
}

TEST(NormaliseCommand, TargetsReachTheModule) {
  const Workplace place;
  const std::vector<std::int16_t> samples = PeakyNoise(48000, 1, 5.0);
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, samples);
  const RunResult run =
      place.Run("normalise in.wav -o out.wav -m short-term -s -29.5 -l -12 -t -3.25");
  ASSERT_EQ(run.code, 0) << run.err;
  ParameterTexts texts;
  texts.formats[0] = "1";
  texts.normalisationMode = "1";
  texts.ShortTermLoudness = "-29.5";
  texts.Loudness = "-12";
  texts.MaxTP = "-3.25";
  EXPECT_EQ(ReadSound(place.FileIn("out.wav")).samples,
            RunDirectly(texts, 48000, 1, samples).output);
}

TEST(NormaliseCommand, OtherWidthsAreReducedWithANotice) {
  const Workplace place;
  const std::vector<std::int16_t> samples = QuietNoise(48000, 1, 2.0);
  std::vector<double> floats(samples.begin(), samples.end());
  for (double& v : floats) v /= 32768.0;
  WriteFloats(place.FileIn("f.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 1, floats);
  WriteSound(place.FileIn("w.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 1, samples);
  ParameterTexts texts;
  texts.formats[0] = "1";
  const std::vector<std::int16_t> wanted = RunDirectly(texts, 48000, 1, samples).output;
  for (const char* name : {"f.wav", "w.wav"}) {
    const RunResult run = place.Run(std::string("normalise ") + name + " -o out.wav --overwrite");
    ASSERT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.err, HasSubstr("samples become 16 bits: "));
    const Sound sound = ReadSound(place.FileIn("out.wav"));
    EXPECT_EQ(sound.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);
    EXPECT_EQ(sound.samples, wanted);
  }
}

TEST(NormaliseCommand, AModuleFileGivesTheSameOutputAndSaysWhoMeasured) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 2, PeakyNoise(48000, 2, 5.0));
  ASSERT_EQ(place.Run("normalise in.wav -o linked.wav").code, 0);
  const RunResult run =
      place.Run("normalise in.wav -o loaded.wav -L logs -N m --module " HARVANE_MODULE);
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(ReadBytes(place.FileIn("loaded.wav")), ReadBytes(place.FileIn("linked.wav")));
  EXPECT_THAT(run.err, HasSubstr("measured by harvane itself"));
  EXPECT_THAT(run.out, HasSubstr("stereo  after"));
  // Half of the two rows: what an unloaded module leaves.
  EXPECT_THAT(ReadBytes(place.FileIn("logs/m.csv")), HasSubstr(",Analysis,0,1,Stereo,"));
}

// What a killed process would leave behind must not be made in the first place.
TEST(NormaliseCommand, TrialsAndWitnessesNeedNoFolder) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, PeakyNoise(48000, 1, 4.0));
  const std::string arguments = "normalise in.wav -o out.wav --converge -L logs -N log";
  const RunResult linked = place.Run(arguments, "TMPDIR=/nowhere");
  EXPECT_EQ(linked.code, 0) << linked.err;
  EXPECT_THAT(linked.out, HasSubstr("jobs"));
  EXPECT_THAT(place.Names(), ElementsAre("in.wav", "logs", "out.wav"));
  // The first pass, and both of the job that wrote the file; none of the trials.
  const std::string log = ReadBytes(place.FileIn("logs/log.csv"));
  EXPECT_EQ(CountOf(",Analysis,", log), 2);
  EXPECT_EQ(CountOf(",Process,", log), 1);
  const RunResult loaded =
      place.Run(arguments + " --overwrite --module " HARVANE_MODULE, "TMPDIR=/nowhere");
  EXPECT_EQ(loaded.code, 0) << loaded.err;
}

TEST(NormaliseCommand, LogIsWholeAndItsPlaceIsSaid) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 8, QuietNoise(48000, 8, 3.0));
  const RunResult run = place.Run(
      "normalise in.wav -o out.wav -c 2+2+2+2 -L logs -N name -e 'my <entry>' --frame-rate 25");
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.err, HasSubstr("log: " + place.FileIn("logs/name.csv")));
  const std::string log = ReadBytes(place.FileIn("logs/name.csv"));
  for (const char* row : {"my <entry>,Analysis,0,1,Stereo,", "my <entry>,Analysis,6,7,Stereo,",
                          "my <entry>,Process,0,1,Stereo,", "my <entry>,Process,6,7,Stereo,"}) {
    EXPECT_THAT(log, HasSubstr(row));
  }
}

TEST(NormaliseCommand, ALogThatCannotBeWrittenIsAWarning) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 1.0));
  WriteBytes(place.FileIn("logs"), "a file");
  const RunResult run = place.Run("normalise in.wav -o out.wav -L logs");
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.err, HasSubstr("warning: the log could not be written"));
}

TEST(NormaliseCommand, AShortFileKeepsItsLevelUnmeasured) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, {1, 2, 3});
  const RunResult run = place.Run("normalise in.wav -o out.wav");
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("before  not measured"));
  EXPECT_EQ(ReadSound(place.FileIn("out.wav")).samples, (std::vector<std::int16_t>{1, 2, 3}));
}

TEST(NormaliseCommand, ShowsProgressOnATerminalOnly) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 60.0));
  const RunResult plain = place.Run("normalise in.wav -o out.wav");
  EXPECT_THAT(plain.err, Not(HasSubstr("real time")));
  const RunResult terminal = place.Run("measure in.wav' /dev/null", "TERM=xterm script -qefc '");
  EXPECT_EQ(terminal.code, 0);
  EXPECT_THAT(terminal.out, HasSubstr("real time"));
  EXPECT_THAT(terminal.out, HasSubstr("measuring ["));
}

TEST(NormaliseCommand, LeavesOnlyTheOutputBehind) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 1.0));
  const std::string before = ReadBytes(place.FileIn("in.wav"));
  ASSERT_EQ(place.Run("normalise in.wav -o out.wav").code, 0);
  EXPECT_THAT(place.Names(), ElementsAre("in.wav", "out.wav"));
  EXPECT_EQ(ReadBytes(place.FileIn("in.wav")), before);
}

}  // namespace
}  // namespace support
