#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"

namespace support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(MeasureCommand, PrintsTheValuesOfAnAnalysis) {
  const Workplace place;
  const std::vector<std::int16_t> samples = PeakyNoise(44100, 6, 5.0);
  WriteSound(place.FileIn("in.wav"), kWav16, 44100, 6, samples);
  const RunResult run = place.Run("measure in.wav");
  ASSERT_EQ(run.code, 0) << run.err;
  ParameterTexts texts;
  texts.numberOfPasses = "1";
  texts.formats[0] = "6";
  const auto wanted = RunDirectly(texts, 44100, 6, samples).measurements.at(0);
  for (const float value : {wanted.integratedLoudness, wanted.loudnessRange, wanted.maxTruePeak,
                            wanted.maxShortTerm, wanted.maxMomentary}) {
    EXPECT_THAT(run.out, HasSubstr(fmt::format("  {}", value)));
  }
  EXPECT_THAT(run.out, HasSubstr("1      1-6       5.1     measured  "));
}

TEST(MeasureCommand, GoesOnAfterAFileThatFails) {
  const Workplace place;
  WriteSound(place.FileIn("a.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 1.0));
  WriteSound(place.FileIn("b.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2,
             QuietNoise(48000, 2, 1.0));
  const RunResult run = place.Run("measure a.wav none.wav b.flac");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.out, HasSubstr("a.wav\n"));
  EXPECT_THAT(run.out, HasSubstr("b.flac\n"));
  EXPECT_THAT(run.out, HasSubstr("none.wav: failed\n"));
  EXPECT_THAT(run.err, HasSubstr("harvane: none.wav: cannot be opened"));
}

TEST(MeasureCommand, ManyFilesTakeNoMoreHandlesThanOne) {
  constexpr int kFiles = 100;
  const Workplace place;
  WriteSound(place.FileIn("a.wav"), kWav16, 48000, 1, NoiseInt16(1, 4800, 99));
  WriteBytes(place.FileIn("b.wav"), "RIFF");
  for (int i = 0; i < kFiles; ++i) {
    std::filesystem::create_symlink("a.wav", place.FileIn(fmt::format("good{}.wav", i)));
    std::filesystem::create_symlink("b.wav", place.FileIn(fmt::format("broken{}.wav", i)));
  }
  const RunResult run = place.Run("measure -r . -j 2", "ulimit -n 16;");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.out, HasSubstr(fmt::format("{0} files: {1} done, {1} failed", 2 * kFiles + 2,
                                             kFiles + 1)));
  EXPECT_THAT(run.err, Not(HasSubstr("Too many open files")));
}

TEST(MeasureCommand, WritesNothingBesideTheLog) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 1.0));
  const RunResult run = place.Run("measure in.wav");
  ASSERT_EQ(run.code, 0);
  EXPECT_THAT(place.Names(), ElementsAre("in.wav"));
  EXPECT_THAT(run.err, HasSubstr("log: " + place.LogFolder()));
}

TEST(MeasureCommand, ARateThatTheModuleHasNoTablesForIsAWarning) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 32000, 1, QuietNoise(32000, 1, 2.0));
  const RunResult run = place.Run("measure in.wav");
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.err, HasSubstr("in.wav: warning: 32000 Hz is none of 44100, 48000, 88200"));
}

TEST(MeasureCommand, RoughTruePeakOfTheHighestRatesIsSaid) {
  const Workplace place;
  for (const int rate : {96000, 176400, 192000}) {
    WriteSound(place.FileIn("in.wav"), kWav16, rate, 1, QuietNoise(rate, 1, 0.5));
    const RunResult run = place.Run("measure in.wav");
    EXPECT_EQ(run.code, 0);
    const auto isSaid = HasSubstr("in.wav: note: at " + std::to_string(rate) + " Hz the module");
    if (rate == 96000) {
      EXPECT_THAT(run.err, testing::Not(isSaid));
    } else {
      EXPECT_THAT(run.err, isSaid);
    }
  }
}

TEST(MeasureCommand, AStreamOfUnknownLengthIsMeasured) {
  const Workplace place;
  const std::string path = place.FileIn("in.flac");
  WriteSound(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 1, QuietNoise(48000, 1, 1.0));
  std::string bytes = ReadBytes(path);
  // The number of frames in STREAMINFO: 0 stands for unknown.
  bytes.replace(22, 4, std::string(4, '\0'));
  WriteBytes(path, bytes);
  const RunResult run =
      place.Run("measure in.flac && " HARVANE_PROGRAM " normalise in.flac -o out.flac");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(ReadSound(place.FileIn("out.flac")).info.frames, 48000);
}

TEST(MeasureCommand, AModuleFileIsMeasuredBesideIt) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 1.0));
  const RunResult linked = place.Run("measure in.wav");
  const RunResult loaded = place.Run("measure in.wav -M " HARVANE_MODULE " -L logs -N m");
  EXPECT_EQ(loaded.code, 0) << loaded.err;
  EXPECT_EQ(loaded.out, linked.out);
  EXPECT_THAT(ReadBytes(place.FileIn("logs/m.csv")), HasSubstr(",Analysis,0,0,Mono,"));
}

TEST(MeasureCommand, ResultsThatCannotBePrintedAreAFailure) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 1.0));
  const RunResult run = place.Run("measure in.wav >/dev/full; echo code $?");
  EXPECT_THAT(run.out, HasSubstr("code 1"));
}

}  // namespace
}  // namespace support
