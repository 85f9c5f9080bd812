#include "tool/TargetSearch.h"

#include <gtest/gtest.h>

#include <cmath>

namespace harvane {
namespace {

constexpr NormalisationMode kProgramme = NormalisationMode::kProgrammeLoudness;

// A track whose loudness follows with `slope` from what is asked, `lost` LU short at the first
// job, and whose peaks lie `past` dB over MaxTP.
struct Track {
  double slope;
  double lost;
  double past;
  TargetSearch::Found At(const TargetSearch::Parameters& asked) const {
    return {-23.0 - lost + slope * (asked.loudness + 23.0), asked.maxTruePeak + past};
  }
};

TEST(TargetSearch, BeginsWithWhatWasAskedFor) {
  const TargetSearch search(kProgramme, -23.0, -1.0);
  EXPECT_EQ(search.Next().loudness, -23.0);
  EXPECT_EQ(search.Next().maxTruePeak, -1.0);
  EXPECT_FALSE(search.IsDone());
}

TEST(TargetSearch, IsDoneAtOnceWhereTheFirstJobFits) {
  TargetSearch search(kProgramme, -23.0, -1.0);
  search.Report({{-23.05, -1.2}});
  EXPECT_TRUE(search.IsDone());
  EXPECT_TRUE(search.IsReached());
  EXPECT_EQ(search.Trials(), 1);
  EXPECT_EQ(search.Best().loudness, -23.0);
}

TEST(TargetSearch, FindsTheTargetOfTracksThatFollow) {
  for (const Track& track :
       {Track{0.9, 0.6, 0.3}, Track{0.5, 3.0, 0.1}, Track{0.3, 1.0, 0.2}, Track{1.0, -0.5, 0.0}}) {
    TargetSearch search(kProgramme, -23.0, -1.0);
    while (!search.IsDone()) search.Report({track.At(search.Next())});
    EXPECT_TRUE(search.IsReached()) << track.slope << " " << track.lost;
    const TargetSearch::Found found = track.At(search.Best());
    EXPECT_LE(std::abs(found.loudness + 23.0), 0.1);
    EXPECT_LE(found.truePeak, -1.0);
    EXPECT_LE(search.Trials(), 6);
  }
}

TEST(TargetSearch, TwoMetersHaveToAgree) {
  TargetSearch search(kProgramme, -23.0, -1.0);
  search.Report({{-23.0, -1.5}, {-23.2, -1.5}});
  EXPECT_FALSE(search.IsDone());
  // To the middle between them.
  EXPECT_GT(search.Next().loudness, -23.0);
  EXPECT_LT(search.Next().loudness, -22.7);
  search.Report({{-22.91, -1.5}, {-23.09, -1.01}});
  EXPECT_TRUE(search.IsReached());
}

TEST(TargetSearch, SaysWhatIsMissingInTheEnd) {
  TargetSearch search(kProgramme, -23.0, -1.0);
  while (!search.IsDone()) search.Report({{-25.5, -1.0}});
  EXPECT_FALSE(search.IsReached());
  EXPECT_DOUBLE_EQ(search.MissedLu(), 2.5);
  EXPECT_EQ(search.PeakExcessDb(), 0.0);
  EXPECT_LE(search.Trials(), kMostTrials);
}

TEST(TargetSearch, UnderTheCeilingComesBeforeNearToTheTarget) {
  TargetSearch search(kProgramme, -23.0, -1.0);
  search.Report({{-23.0, -0.5}});
  EXPECT_FALSE(search.IsReached());
  EXPECT_LT(search.Next().maxTruePeak, -1.5);
  const TargetSearch::Parameters second = search.Next();
  search.Report({{-24.0, -1.5}});
  EXPECT_EQ(search.Best().maxTruePeak, second.maxTruePeak);
}

TEST(TargetSearch, TowardsAShortTermLoudnessOnlyTooMuchCounts) {
  TargetSearch search(NormalisationMode::kMaxShortTerm, -20.0, -1.0);
  search.Report({{-24.0, -1.0}});
  EXPECT_TRUE(search.IsReached());
  TargetSearch loud(NormalisationMode::kMaxShortTerm, -20.0, -1.0);
  loud.Report({{-19.0, -1.0}});
  EXPECT_FALSE(loud.IsDone());
  EXPECT_LT(loud.Next().loudness, -20.0);
}

TEST(TargetSearch, EndsWhereNothingCanBeMeasured) {
  TargetSearch search(kProgramme, -23.0, -1.0);
  search.Report({});
  EXPECT_TRUE(search.IsDone());
  EXPECT_FALSE(search.IsReached());
  EXPECT_EQ(search.Best().loudness, -23.0);
}

}  // namespace
}  // namespace harvane
