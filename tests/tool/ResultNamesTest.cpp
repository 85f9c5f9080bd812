#include "tool/results/ResultNames.h"

#include <gtest/gtest.h>

namespace harvane {
namespace {

RuleVerdict Rule(Verdict verdict) { return {"rule", "", std::nullopt, std::nullopt, verdict}; }

TEST(ResultNames, EveryNameIsReadBack) {
  for (int i = 0; i < 7; ++i) {
    FileStatus status = FileStatus::kDone;
    EXPECT_TRUE(FromName(NameOf(static_cast<FileStatus>(i)), &status));
    EXPECT_EQ(status, static_cast<FileStatus>(i));
  }
  EXPECT_STREQ(NameOf(FileStatus::kTimedOut), "timedOut");
  EXPECT_STREQ(NameOf(TrackAction::kNotRaised), "notRaised");
  EXPECT_STREQ(NameOf(Verdict::kNotMeasured), "notMeasured");
  Verdict verdict = Verdict::kFail;
  EXPECT_FALSE(FromName("Pass", &verdict));
  EXPECT_EQ(verdict, Verdict::kFail);
}

TEST(ResultNames, VerdictIsFailBeforeNotMeasuredBeforePass) {
  TrackResult track;
  EXPECT_FALSE(HasVerdicts(track));
  EXPECT_EQ(VerdictOf(track), Verdict::kNotMeasured);
  track.verdicts = {Rule(Verdict::kPass)};
  EXPECT_EQ(VerdictOf(track), Verdict::kPass);
  track.verdicts.push_back(Rule(Verdict::kNotMeasured));
  EXPECT_EQ(VerdictOf(track), Verdict::kNotMeasured);
  track.verdicts.push_back(Rule(Verdict::kFail));
  EXPECT_EQ(VerdictOf(track), Verdict::kFail);
}

TEST(ResultNames, TracksWithoutRulesDoNotCountForTheirFile) {
  FileResult file;
  file.tracks.resize(2);
  EXPECT_FALSE(HasVerdicts(file));
  EXPECT_EQ(VerdictOf(file), Verdict::kNotMeasured);
  file.tracks[1].verdicts = {Rule(Verdict::kPass)};
  EXPECT_TRUE(HasVerdicts(file));
  EXPECT_EQ(VerdictOf(file), Verdict::kPass);
}

TEST(ResultNames, ChannelsAreARangeOrAList) {
  TrackResult track;
  track.firstChannel = track.lastChannel = 3;
  EXPECT_EQ(ChannelsOf(track), "3");
  track.lastChannel = 4;
  EXPECT_EQ(ChannelsOf(track), "3-4");
  EXPECT_EQ(ChannelsOf(track, "–"), "3–4");
  track.channelOrder = {4, 9, 3};
  EXPECT_EQ(ChannelsOf(track), "4,9,3");
}

TEST(ResultNames, ReductionThatANoteTellsIsNotToldTwice) {
  FileResult file;
  file.reduction = "24 bits cut to 16";
  EXPECT_EQ(UnnotedReduction(file), "24 bits cut to 16");
  file.notes = {"late", "note: 24 bits cut to 16"};
  EXPECT_EQ(UnnotedReduction(file), "");
}

}  // namespace
}  // namespace harvane
