// The commands' options and exit codes, as a user meets them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"

namespace support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(AudioCommands, HelpIsASuccessWithExamples) {
  const Workplace place;
  for (const char* arguments :
       {"--help", "measure --help", "check -h", "normalise --help", "normalize --help"}) {
    const RunResult run = place.Run(arguments);
    EXPECT_EQ(run.code, 0) << arguments;
    EXPECT_THAT(run.out, HasSubstr("Examples:")) << arguments;
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_THAT(run.out, testing::Not(HasSubstr("--worker")));
  }
  EXPECT_EQ(place.Run("--version").code, 0);
}

TEST(AudioCommands, WrongUsageIsExitCodeTwoAndDoesNothing) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 0.2));
  for (const char* arguments : {"",
                                "play in.wav",
                                "measure",
                                "check",
                                "normalise",
                                "normalise in.wav",
                                "normalise in.wav in2.wav -o o.wav",
                                "normalise in.wav -o ''",
                                "normalise in.wav -o o.wav -d out",
                                "normalise in.wav -o o.wav -l -31",
                                "normalise in.wav -o o.wav -l -11.9",
                                "normalise in.wav -o o.wav -l nan",
                                "normalise in.wav -o o.wav -l loud",
                                "normalise in.wav -o o.wav -s inf",
                                "normalise in.wav -o o.wav -t 0.1",
                                "normalise in.wav -o o.wav -m peak",
                                "normalise in.wav -o o.wav --unknown",
                                "normalise in.wav -o in.wav",
                                "measure in.wav -o o.wav",
                                "measure in.wav -d out",
                                "measure in.wav -c 3",
                                "measure in.wav --frame-rate 23",
                                "measure in.wav -N a/b",
                                "measure in.wav -e \"$(printf '\\001')\"",
                                "measure in.wav -f xml",
                                "measure in.wav -j -1",
                                "measure in.wav -j two",
                                "measure in.wav --timeout 0",
                                "measure in.wav --timeout never",
                                "measure in.wav --progress loud",
                                "measure in.wav --resume ''",
                                "measure in.wav --shard 4/3",
                                "check in.wav -p nosuchpreset"}) {
    const RunResult run = place.Run(arguments);
    EXPECT_EQ(run.code, 2) << arguments << "\n" << run.err;
    EXPECT_THAT(run.err, testing::Not(IsEmpty())) << arguments;
    EXPECT_THAT(run.out, IsEmpty()) << arguments;
    EXPECT_THAT(place.Names(), ElementsAre("in.wav")) << arguments;
  }
}

TEST(AudioCommands, AnUnknownCommandIsNamedWithThoseThereAre) {
  const Workplace place;
  const RunResult run = place.Run("nromalise in.wav -o out.wav");
  EXPECT_EQ(run.code, 2);
  EXPECT_THAT(run.err, HasSubstr("no command nromalise"));
  EXPECT_THAT(run.err, HasSubstr("measure, check, normalise"));
  EXPECT_THAT(run.err, testing::Not(HasSubstr("manual")));
}

TEST(AudioCommands, OptionsMayStandBeforeAndBehindTheFiles) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 1.0));
  ASSERT_EQ(place.Run("normalise -l -24 in.wav -o a.wav").code, 0);
  ASSERT_EQ(place.Run("normalize in.wav -o b.wav --loudness=-24").code, 0);
  ASSERT_EQ(place.Run("normalise -oc.wav --loudness -24 -- in.wav").code, 0);
  EXPECT_FALSE(ReadBytes(place.FileIn("a.wav")).empty());
  EXPECT_TRUE(ReadBytes(place.FileIn("b.wav")) == ReadBytes(place.FileIn("a.wav")));
  EXPECT_TRUE(ReadBytes(place.FileIn("c.wav")) == ReadBytes(place.FileIn("a.wav")));
}

TEST(AudioCommands, AVerdictDecidesTheExitCodeOfACheck) {
  const Workplace place;
  WriteSound(place.FileIn("quiet.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 2.0));
  const RunResult quiet = place.Run("check quiet.wav -p r128");
  EXPECT_EQ(quiet.code, 3) << quiet.err;
  EXPECT_THAT(quiet.out, HasSubstr("FAIL"));
  ASSERT_EQ(place.Run("normalise quiet.wav -o right.wav").code, 0);
  const RunResult right = place.Run("check right.wav -p r128");
  EXPECT_EQ(right.code, 0) << right.out;
  EXPECT_THAT(right.out, HasSubstr("pass"));
  // A file that failed is graver.
  EXPECT_EQ(place.Run("check right.wav none.wav quiet.wav -p r128").code, 1);
}

TEST(AudioCommands, AnOutputThatIsThereIsReplacedOnlyWhereThatIsAskedFor) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 0.5));
  WriteBytes(place.FileIn("o.wav"), "mine");
  EXPECT_EQ(place.Run("normalise in.wav -o o.wav").code, 1);
  EXPECT_EQ(ReadBytes(place.FileIn("o.wav")), "mine");
  EXPECT_EQ(place.Run("normalise in.wav -o o.wav --overwrite").code, 0);
  EXPECT_EQ(ReadSound(place.FileIn("o.wav")).info.frames, 24000);
}

}  // namespace
}  // namespace support
