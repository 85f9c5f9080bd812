#include "tool/JobOptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <stdexcept>

#include "tests/tool/JobSupport.h"

namespace harvane {
namespace {

using support::OptionsFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(JobOptions, NothingGivenIsTheSchemesDefault) {
  const JobOptions options = OptionsFor(JobKind::kNormalise, "");
  EXPECT_THAT(options.groupFormats, IsEmpty());
  EXPECT_EQ(options.parameters.loudness, -23.0);
  EXPECT_EQ(options.parameters.shortTermLoudness, -20.0);
  EXPECT_EQ(options.parameters.maxTruePeak, -1.0);
  EXPECT_EQ(options.parameters.mode, NormalisationMode::kProgrammeLoudness);
  EXPECT_EQ(options.parameters.frameRate, "0");
  EXPECT_THAT(options.rules, IsEmpty());
  EXPECT_EQ(options.presetName, "");
}

TEST(JobOptions, ACheckIsByR128UnlessItIsToldItsRules) {
  const JobOptions plain = OptionsFor(JobKind::kCheck, "");
  EXPECT_EQ(plain.presetName, "r128");
  EXPECT_EQ(plain.rules.size(), 2U);
  const JobOptions wide = OptionsFor(JobKind::kCheck, "--tolerance 1.5");
  EXPECT_EQ(wide.rules.at(0).tolerance, 1.5);
  const JobOptions own = OptionsFor(JobKind::kCheck, "--true-peak -3");
  EXPECT_EQ(own.presetName, "");
  ASSERT_EQ(own.rules.size(), 1U);
  EXPECT_EQ(own.rules[0].most, -3.0);
}

TEST(JobOptions, SingleValuesWinOverThePresetAlsoInItsRules) {
  const JobOptions options =
      OptionsFor(JobKind::kNormalise, "-p a85 --loudness -20 -t -4 --short-term -17");
  EXPECT_EQ(options.presetName, "a85");
  EXPECT_EQ(options.parameters.loudness, -20.0);
  EXPECT_EQ(options.parameters.maxTruePeak, -4.0);
  EXPECT_EQ(options.parameters.shortTermLoudness, -17.0);
  ASSERT_EQ(options.rules.size(), 3U);
  EXPECT_EQ(options.rules[0].target, -20.0);
  EXPECT_EQ(options.rules[0].tolerance, 2.0);
  EXPECT_EQ(options.rules[1].most, -4.0);
  EXPECT_EQ(options.rules[2].value, MeasuredValue::kMaxShortTerm);
}

TEST(JobOptions, ConvergingIsJudgedWhereNothingElseIs) {
  const JobOptions options = OptionsFor(JobKind::kNormalise, "--converge --loudness -20");
  ASSERT_EQ(options.rules.size(), 2U);
  EXPECT_EQ(options.rules[0].target, -20.0);
  EXPECT_EQ(options.rules[0].tolerance, 0.1);
  EXPECT_EQ(options.rules[1].most, -1.0);
  EXPECT_EQ(OptionsFor(JobKind::kNormalise, "--converge -p r128").rules.at(0).tolerance, 0.5);
}

TEST(JobOptions, TracksCanBeSaidInThreeWays) {
  EXPECT_THAT(OptionsFor(JobKind::kMeasure, "-c auto").groupFormats, IsEmpty());
  EXPECT_THAT(OptionsFor(JobKind::kMeasure, "-c 5.1+2,2").groupFormats, ElementsAre(7, 2));
  EXPECT_THAT(OptionsFor(JobKind::kMeasure, "--allocation 3xmono").groupFormats,
              ElementsAre(1, 1, 1));
  EXPECT_THAT(OptionsFor(JobKind::kMeasure, "--map 2,1").channelMap, ElementsAre(2, 1));
  // The map picks six channels, which the allocation takes in the order of film mixes.
  EXPECT_THAT(OptionsFor(JobKind::kMeasure, "--allocation 5.1film --map 3,4,5,6,7,8").channelMap,
              ElementsAre(3, 5, 4, 8, 6, 7));
  EXPECT_THROW(OptionsFor(JobKind::kMeasure, "--allocation 5.1film --map 3,4"),
               std::invalid_argument);
}

TEST(JobOptions, WrongUsageIsRefusedWhileParsing) {
  for (const char* arguments :
       {"--layout 7.1", "--map 1,1", "--allocation quad", "--preset r129", "--loudness -31",
        "--loudness x", "--true-peak 0.1", "--tolerance -1", "--mode loud", "--quiet-tracks raise",
        "--frame-rate 26", "--layout 2 --allocation stereo", "--param p.xml --loudness -20",
        "--log-name a/b"}) {
    EXPECT_THROW(OptionsFor(JobKind::kNormalise, arguments), CLI::ParseError) << arguments;
  }
  EXPECT_THROW(OptionsFor(JobKind::kMeasure, "--loudness -20"), CLI::ParseError);
  EXPECT_THROW(OptionsFor(JobKind::kCheck, "--converge"), CLI::ParseError);
}

TEST(JobOptions, ADocumentThatIsNotThereIsWrongUsage) {
  try {
    OptionsFor(JobKind::kNormalise, "--param nowhere.xml");
    FAIL();
  } catch (const std::invalid_argument& wrong) {
    EXPECT_THAT(wrong.what(), HasSubstr("nowhere.xml cannot be read"));
  }
}

TEST(JobOptions, LogOptionsReachTheParameters) {
  const JobOptions options =
      OptionsFor(JobKind::kNormalise,
                 "-L /a/../b -N night -e entry --frame-rate 59.94 --quiet-tracks process");
  EXPECT_EQ(options.parameters.logPath, "/b");
  EXPECT_EQ(options.parameters.logFileName, "night");
  EXPECT_EQ(options.parameters.logEntryName, "entry");
  EXPECT_EQ(options.parameters.frameRate, "59,94");
  EXPECT_TRUE(options.areQuietTracksProcessed);
}

}  // namespace
}  // namespace harvane
