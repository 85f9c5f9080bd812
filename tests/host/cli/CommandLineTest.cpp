#include "host/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using testing::HasSubstr;

struct Parsed {
  std::optional<int> code;
  Options options;
  std::string out;
  std::string err;
};

Parsed Parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "harvane");
  Parsed parsed;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  parsed.code =
      ParseCommandLine(static_cast<int>(arguments.size()), arguments.data(), &parsed.options);
  parsed.out = testing::internal::GetCapturedStdout();
  parsed.err = testing::internal::GetCapturedStderr();
  return parsed;
}

TEST(CommandLine, NormaliseTakesTheDefaultsOfTheScheme) {
  const Parsed parsed = Parse({"normalise", "in.wav", "-o", "out.wav"});
  ASSERT_FALSE(parsed.code) << parsed.err;
  EXPECT_FALSE(parsed.options.isMeasure);
  EXPECT_EQ(parsed.options.inputs, std::vector<std::string>{"in.wav"});
  const JobRequest& request = parsed.options.request;
  EXPECT_EQ(request.output, "out.wav");
  EXPECT_TRUE(request.groupFormats.empty());
  EXPECT_TRUE(request.module.empty());
  EXPECT_EQ(request.parameters.mode, NormalisationMode::kProgrammeLoudness);
  EXPECT_EQ(request.parameters.loudness, -23.0);
  EXPECT_EQ(request.parameters.shortTermLoudness, -20.0);
  EXPECT_EQ(request.parameters.maxTruePeak, -1.0);
  EXPECT_EQ(request.parameters.frameRate, "0");
}

TEST(CommandLine, OptionsMayStandBeforeAndBehindTheFile) {
  for (const auto& arguments : {std::vector<const char*>{"normalize", "-l", "-24", "in", "-o", "o"},
                                {"normalize", "in", "-o", "o", "--loudness=-24"},
                                {"normalise", "-oo", "--loudness", "-24", "in"}}) {
    const Parsed parsed = Parse(arguments);
    ASSERT_FALSE(parsed.code) << parsed.err;
    EXPECT_EQ(parsed.options.inputs, std::vector<std::string>{"in"});
    EXPECT_EQ(parsed.options.request.output, "o");
    EXPECT_EQ(parsed.options.request.parameters.loudness, -24.0);
  }
}

TEST(CommandLine, AllOptionsArriveInTheRequest) {
  const Parsed parsed =
      Parse({"normalise", "in",   "-o", "out",        "-m", "short-term", "-s", "-18.5",
             "-p",        "-2",   "-c", "5.1+2,1",    "-r", "29.97",      "-L", "/l/x",
             "-N",        "name", "-e", "entry, one", "-M", "m.rpi",      "-w"});
  ASSERT_FALSE(parsed.code) << parsed.err;
  const JobRequest& request = parsed.options.request;
  EXPECT_EQ(request.parameters.mode, NormalisationMode::kMaxShortTerm);
  EXPECT_EQ(request.parameters.shortTermLoudness, -18.5);
  EXPECT_EQ(request.parameters.maxTruePeak, -2.0);
  EXPECT_EQ(request.groupFormats, (std::vector<int>{7, 1}));
  EXPECT_EQ(request.parameters.frameRate, "29.97");
  EXPECT_EQ(request.parameters.logPath, "/l/x");
  EXPECT_EQ(request.parameters.logFileName, "name");
  EXPECT_EQ(request.parameters.logEntryName, "entry, one");
  EXPECT_EQ(request.module, "m.rpi");
  EXPECT_TRUE(request.isLogAwaited);
}

TEST(CommandLine, MeasureTakesSeveralFiles) {
  const Parsed parsed = Parse({"measure", "a", "-c", "2", "b", "c"});
  ASSERT_FALSE(parsed.code) << parsed.err;
  EXPECT_TRUE(parsed.options.isMeasure);
  EXPECT_EQ(parsed.options.inputs, (std::vector<std::string>{"a", "b", "c"}));
}

TEST(CommandLine, FrameRateWithACommaIsTheItemOfTheScheme) {
  EXPECT_EQ(Parse({"measure", "a", "-r", "59.94"}).options.request.parameters.frameRate, "59,94");
  EXPECT_EQ(Parse({"measure", "a", "-r", "59,94"}).options.request.parameters.frameRate, "59,94");
}

TEST(CommandLine, LogFolderBecomesAbsolute) {
  const Parsed parsed = Parse({"measure", "a", "-L", "x/../logs"});
  EXPECT_EQ(parsed.options.request.parameters.logPath,
            (std::filesystem::current_path() / "logs").string());
}

TEST(CommandLine, HelpIsASuccessWithExamples) {
  for (const auto& arguments :
       {std::vector<const char*>{"--help"}, {"normalise", "--help"}, {"measure", "-h"}}) {
    const Parsed parsed = Parse(arguments);
    EXPECT_EQ(parsed.code, kDone);
    EXPECT_THAT(parsed.out, HasSubstr("Examples:"));
  }
}

TEST(CommandLine, WrongUsageIsExitCodeTwoAndSaysWhat) {
  const std::string longName(261, 'x');
  const std::vector<std::vector<const char*>> wrong = {
      {},
      {"normalise"},
      {"normalise", "in"},
      {"normalise", "a", "b", "-o", "o"},
      {"normalise", "in", "-o", ""},
      {"normalise", "in", "-o", "o", "-l", "-31"},
      {"normalise", "in", "-o", "o", "-l", "-11.9"},
      {"normalise", "in", "-o", "o", "-l", "nan"},
      {"normalise", "in", "-o", "o", "-l", "loud"},
      {"normalise", "in", "-o", "o", "-s", "inf"},
      {"normalise", "in", "-o", "o", "-p", "0.1"},
      {"normalise", "in", "-o", "o", "-m", "peak"},
      {"normalise", "in", "-o", "o", "--unknown"},
      {"measure"},
      {"measure", "in", "-o", "o"},
      {"measure", "in", "-c", "3"},
      {"measure", "in", "-c", "2,2,2,2,2"},
      {"measure", "in", "-r", "23"},
      {"measure", "in", "-N", "a/b"},
      {"measure", "in", "-e", "\x01"},
      {"measure", "in", "-e", longName.c_str()},
      {"play", "in"},
  };
  for (const auto& arguments : wrong) {
    const Parsed parsed = Parse(arguments);
    std::string shown;
    for (const char* argument : arguments) shown += std::string(argument) + " ";
    EXPECT_EQ(parsed.code, kUsageError) << shown;
    EXPECT_FALSE(parsed.err.empty()) << shown;
    EXPECT_TRUE(parsed.out.empty()) << shown;
  }
}

}  // namespace
}  // namespace harvane
