// harvane validate as a user runs it, on the module as it is and with one fault planted each.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using nlohmann::json;
using support::RunResult;
using support::Workplace;

// So that a stray write is a signal in a sanitizer's build as well.
constexpr const char* kPlainSignals = "ASAN_OPTIONS=handle_segv=0:detect_leaks=0";

std::string BrokenModule(const std::string& fault) {
  return std::string(HARVANE_BROKEN_MODULES) + "/" + fault + ".rpi";
}

struct PlantedFault {
  const char* fault;
  const char* test;    // that must find it
  const char* result;  // of that test
  const char* reason;  // a part of what it must say
};

class PlantedFaults : public testing::TestWithParam<PlantedFault> {};

TEST_P(PlantedFaults, AreFoundByTheTestThatLooksForThem) {
  const PlantedFault& planted = GetParam();
  const Workplace place;
  const RunResult run = place.Run(
      "validate '" + BrokenModule(planted.fault) + "' --filter '" + planted.test + "' -f json",
      kPlainSignals);
  EXPECT_EQ(run.code, planted.result == std::string("crashed") ? 5 : 3) << run.out << run.err;
  const json tests = json::parse(run.out)["modules"][0]["tests"];
  ASSERT_EQ(tests.size(), 1U);
  EXPECT_EQ(tests[0]["name"], planted.test);
  EXPECT_EQ(tests[0]["result"], planted.result);
  ASSERT_FALSE(tests[0]["reasons"].empty());
  EXPECT_NE(tests[0]["reasons"][0].get<std::string>().find(planted.reason), std::string::npos)
      << tests[0]["reasons"];
}

TEST_P(PlantedFaults, AreNotSeenInTheGoodModule) {
  const Workplace place;
  const RunResult run = place.Run(
      "validate '" + BrokenModule("None") + "' --filter '" + GetParam().test + "'", kPlainSignals);
  EXPECT_EQ(run.code, 0) << run.out << run.err;
}

constexpr PlantedFault kPlantedFaults[] = {
    {"AcceptsAnyOutputFormat", "Records.OtherOutputFormatIsRefusedAndNotReleased", "failed",
     "xSetOutputInfo with byte 8 changed answered: 0, not 3"},
    {"ChannelsSwapped", "Measuring.SurroundChannelsHaveTheirWeights", "failed",
     "integrated loudness of channel 4 alone"},
    {"CrashesAtTheSecondInstance", "Endurance.ManyInstancesAreOpenAtOnce", "crashed",
     "ended by signal 11"},
    {"DelayTakenOut", "TwoPasses.LimitedTracksAreNinetyFiveFramesLate", "failed",
     "frames by which channel 1 is late: 0, not 95"},
    {"ErrorMessageSpeaks", "Records.ErrorMessageIsEmpty", "failed", "xGetErrorMessage's blob has"},
    {"ExportMissing", "Loading.ExportsSixteenFunctions", "failed",
     "has no export xGetErrorMessage"},
    {"FrameLost", "TwoPasses.AllSamplesAreScaledAlike", "failed",
     "xFetchPcmUnit gave 4095 frames for 4096"},
    {"FrameRateForgotten", "Log.TimesAreInFramesOrMilliseconds", "failed",
     "frames at the frame rate 25: 0, not 1"},
    {"GainOffByATenth", "TwoPasses.ToneReachesItsTarget.Rate48000", "failed",
     "level of a raised tone: -22.9"},
    {"GoesOnWithoutChannels", "ProcessEnds.AtAFetchWithoutChannels", "failed",
     "the process went on"},
    {"InformationTooLong", "Records.InstanceInformationFillsItsBuffer", "failed",
     "writes behind its 1424 bytes"},
    {"LogRowsBroken", "Log.NewFileHasBannerAndRows", "failed", "the log's line"},
    {"LogRowsWrittenAtOnce", "Log.UnloadingWritesTheOlderHalf", "failed",
     "5 rows of five after unloading, not 3"},
    {"MeasuresTooLoud", "Measuring.ToneStandsAtItsLoudness.Rate48000", "failed",
     "integrated loudness: -22.8"},
    {"OfferOfAnotherRate", "Records.InputOfferHasItsBytes", "failed",
     "byte 84 of xEnumInputInfo's blob is 68, not 128"},
    {"OneHandleForAll", "Endurance.ManyInstancesAreOpenAtOnce", "failed",
     "two open instances have one handle"},
    {"OutFlagInTheFirstPass", "Records.OutFlagsFollowThePass", "failed",
     "the out-flag without a unit in pass 0 of 2: 1, not 0"},
    {"PeakOverTheCeiling", "TwoPasses.CeilingHoldsAndFollowsTheCurve", "failed",
     "dB over the ceiling at 44100 Hz: -11.6"},
    {"RoundsToNearest", "Samples.EveryValueComesBackAtMostOneStepTowardsZero", "failed",
     "-32768 comes back as -32768, not -32767"},
    {"SchemeWithoutItsNul", "Records.SchemeNamesAllParameters", "failed",
     "the scheme has no NUL at its end"},
    {"SeventeenthExport", "Exports.AreTheSixteenAlone", "failed",
     "exports xSeventeenth, which is none of the sixteen"},
    {"StrayWriteAtAFifthGroup", "ProcessEnds.AtAFifthGroup", "crashed", "ended by signal 11"},
    {"StridesTakenForBytes", "Samples.StridesCountSamples", "failed", "arrangement 2"},
    {"UnitReleasedTwice", "Records.RecordsOfTheHostAreReleasedOnce", "failed",
     "released its unit 2 times"},
    {"WrongCodeForMissingValue", "Parameters.MissingValueIsRefusedWithFour", "failed",
     "xSetParameter of an empty document answered: 3, not 4"},
#if !defined(__SANITIZE_ADDRESS__)
    // A sanitizer keeps what was freed, so that memory tells nothing.
    {"LeaksAMegabyteAJob", "Endurance.MemoryDoesNotGrow", "failed", "KiB more after 40 jobs"},
#endif
};

INSTANTIATE_TEST_SUITE_P(ValidateCommand, PlantedFaults, testing::ValuesIn(kPlantedFaults),
                         [](const auto& info) { return std::string(info.param.fault); });

class ValidateCommand : public testing::Test {
 protected:
  const Workplace place;
};

// A tenth of the speed is too slow for all of them.
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__)
TEST_F(ValidateCommand, GoodModulePassesEveryTestOfTheFirstLevel) {
  const RunResult run = place.Run("validate " HARVANE_MODULE " --junit report.xml");
  EXPECT_EQ(run.code, 0) << run.out << run.err;
  EXPECT_EQ(run.out.find("failed  "), std::string::npos);
  const std::string closing = run.out.substr(run.out.rfind('\n', run.out.size() - 2) + 1);
  EXPECT_EQ(closing, "planned 88, run 88, passed 88, failed 0, crashed 0\n");
  const std::string junit = support::ReadBytes(place.FileIn("report.xml"));
  EXPECT_NE(junit.find("tests=\"88\" failures=\"0\" errors=\"0\" skipped=\"0\""),
            std::string::npos);
}
#endif

TEST_F(ValidateCommand, HangingModuleIsEndedAndCountsAsCrashed) {
  const RunResult run =
      place.Run("validate '" + BrokenModule("HangsAtTheEndOfAPass") +
                "' --filter Samples.OutputThatWasNotFetchedIsLost --timeout 1 --junit report.xml");
  EXPECT_EQ(run.code, 5);
  EXPECT_NE(run.out.find("took longer than 1 s"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("planned 1, run 1, passed 0, failed 0, crashed 1"), std::string::npos);
  const std::string junit = support::ReadBytes(place.FileIn("report.xml"));
  EXPECT_NE(junit.find("<error message=\"took longer than 1 s\">"), std::string::npos) << junit;
}

TEST_F(ValidateCommand, FailedLoadingLeavesTheOthersUnrun) {
  const RunResult run = place.Run("validate '" + BrokenModule("ExportMissing") + "'");
  EXPECT_EQ(run.code, 3);
  EXPECT_NE(run.out.find("planned 88, run 1, passed 0, failed 1, crashed 0"), std::string::npos);
}

TEST_F(ValidateCommand, FileThatIsNoModuleFailsAtLoading) {
  support::WriteBytes(place.FileIn("text.rpi"), "no module");
  const RunResult run = place.Run("validate text.rpi --filter 'Loading.*'");
  EXPECT_EQ(run.code, 3);
  EXPECT_NE(run.out.find("cannot be loaded"), std::string::npos) << run.out;
}

TEST_F(ValidateCommand, MissingModuleLeavesTheNextOneItsTests) {
  const RunResult run = place.Run("validate missing.rpi " HARVANE_MODULE " --filter 'Loading.*'");
  EXPECT_EQ(run.code, 1);
  EXPECT_NE(run.err.find("missing.rpi: cannot be read"), std::string::npos) << run.err;
  EXPECT_NE(run.out.find("planned 4, run 2, passed 2, failed 0, crashed 0"), std::string::npos);
}

TEST_F(ValidateCommand, ListNamesTestsWithoutRunningAny) {
  const RunResult first = place.Run("validate --list");
  EXPECT_EQ(first.code, 0);
  EXPECT_NE(first.out.find("1  Loading.ExportsSixteenFunctions\n"), std::string::npos);
  EXPECT_EQ(first.out.find("3  "), std::string::npos);
  const RunResult logs = place.Run("validate --list --level 2 --filter 'Log.E*'");
  EXPECT_EQ(logs.out, "2  Log.EveryFiveSecondsHalfOfWhatWaitsIsWritten\n");
  const RunResult both = place.Run("validate --filter 'Loading.E*' --filter 'Loading.L*' x --list");
  EXPECT_EQ(both.out, "1  Loading.ExportsSixteenFunctions\n1  Loading.LoadsAgainAfterUnloading\n");
}

TEST_F(ValidateCommand, WrongUsageRunsNothing) {
  EXPECT_EQ(place.Run("validate").code, 2);
  EXPECT_EQ(place.Run("validate x --level 4").code, 2);
  EXPECT_EQ(place.Run("validate x --filter 'No.Such'").code, 2);
  EXPECT_EQ(place.Run("validate x -f xml").code, 2);
}

}  // namespace
}  // namespace harvane
