#include "tool/results/LoudnessPicture.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace harvane {
namespace {

// A second is 10 wide, from 40 on; a LU is 3.85 high, from 42 at 0 LUFS down.
constexpr PictureScale kScale = {64.0, -40.0, 0.0};

std::string Picture(const LoudnessSeries& series, const TrackValues& values = {},
                    const PictureTarget& target = {}, const PictureScale& scale = kScale) {
  return LoudnessPicture(series, values, scale, target, "title");
}

// What the curve's path says; empty if there is none.
std::string PathOf(const std::string& picture, const std::string& style) {
  const std::size_t place = picture.find("<path class=\"" + style);
  if (place == std::string::npos) return "";
  const std::string start = " d=\"";
  const std::size_t first = picture.find(start, place) + start.size();
  return picture.substr(first, picture.find('"', first) - first);
}

LoudnessSeries Momentary(double step, const std::vector<std::optional<float>>& values) {
  LoudnessSeries series;
  series.momentaryStep = step;
  series.momentary = values;
  return series;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(LoudnessPicture, CurveGoesThroughItsValuesAtTheEndsOfTheirWindows) {
  const LoudnessSeries series = Momentary(1.0, {-20.0F, -30.0F, -10.0F});
  EXPECT_EQ(PathOf(Picture(series), "momentary"), "M80 119V119L90 157.5L100 80.5");
}

TEST(LoudnessPicture, SilenceIsAGap) {
  const LoudnessSeries series = Momentary(1.0, {-20.0F, std::nullopt, -10.0F, -10.0F});
  EXPECT_EQ(PathOf(Picture(series), "momentary"), "M80 119V119M100 80.5V80.5L110 80.5");
}

TEST(LoudnessPicture, ColumnOfManyValuesShowsTheirLeastAndMost) {
  const LoudnessSeries series =
      Momentary(0.25, {-20.0F, -10.0F, -30.0F, -15.0F, -15.0F, -15.0F, -15.0F, -15.0F});
  const PictureScale scale = {640.0, -40.0, 0.0};
  EXPECT_EQ(PathOf(Picture(series, {}, {}, scale), "momentary"), "M41 157.5V80.5L42 99.8");
}

TEST(LoudnessPicture, WhatIsBelowTheScaleLiesOnItsEdge) {
  const LoudnessSeries series = Momentary(1.0, {-100.0F});
  EXPECT_EQ(PathOf(Picture(series), "momentary"), "M80 196V196");
}

TEST(LoudnessPicture, SeriesWithoutValuesHasNoCurve) {
  EXPECT_EQ(PathOf(Picture({}), "momentary"), "");
  EXPECT_EQ(PathOf(Picture({}), "short-term"), "");
}

TEST(LoudnessPicture, DayIsNoLargerThanAMinuteAndKeepsItsPeak) {
  LoudnessSeries series;
  series.momentary.assign(864000, -23.0F);
  series.shortTerm.assign(115200, -23.0F);
  series.momentary[432000] = -10.0F;
  for (std::size_t i = 0; i < series.momentary.size(); i += 2) series.momentary[i] = -29.0F;
  const std::string picture = Picture(series, {}, {}, {86400.0, -40.0, 0.0});
  EXPECT_LT(picture.size(), 30000U);
  EXPECT_EQ(std::count(picture.begin(), picture.end(), 'L') > 600, true);

  series.momentary[432001] = -10.0F;
  const std::string peaked = Picture(series, {}, {}, {86400.0, -40.0, 0.0});
  EXPECT_FALSE(Contains(PathOf(picture, "momentary"), "V80.5"));
  EXPECT_TRUE(Contains(PathOf(peaked, "momentary"), "V80.5"));
}

TEST(LoudnessPicture, TargetIsALineInItsBand) {
  const std::string picture = Picture({}, {}, {-20.0, 10.0});
  EXPECT_TRUE(Contains(
      picture, "<rect x=\"40\" y=\"80.5\" width=\"640\" height=\"77\" class=\"tolerance\"/>"));
  EXPECT_TRUE(
      Contains(picture, "<line x1=\"40\" y1=\"119\" x2=\"680\" y2=\"119\" class=\"target\"/>"));
  EXPECT_FALSE(Contains(Picture({}, {}, {-20.0, std::nullopt}), "tolerance"));
  EXPECT_FALSE(Contains(Picture({}), "target"));
}

TEST(LoudnessPicture, MaximaHaveTheirPlaceValueAndTimeCode) {
  TrackValues values;
  values.maxMomentary = {-10.0, 5.0};
  values.maxTruePeak = {-1.25, 60.5};
  const std::string picture = Picture({}, values);
  EXPECT_TRUE(Contains(picture, "<path class=\"mark thin\" d=\"M90 80.5m"));
  EXPECT_TRUE(Contains(picture, ">momentary −10.0 LUFS<"));
  EXPECT_TRUE(Contains(picture, ">00:00:05.000<"));
  EXPECT_TRUE(Contains(picture, "<path class=\"mark peak\" d=\"M645 42m"));
  EXPECT_TRUE(Contains(picture, ">true peak −1.2 dBTP<"));
  EXPECT_TRUE(Contains(picture, ">00:01:00.500<"));
  EXPECT_FALSE(Contains(picture, "short-term"));
}

TEST(LoudnessPicture, LabelsOfMaximaAtOneTimeStandSideBySide) {
  TrackValues values;
  values.maxMomentary = {-10.0, 64.0};
  values.maxShortTerm = {-12.0, 64.0};
  values.maxTruePeak = {-1.0, 64.0};
  const std::string picture = Picture({}, values);
  // The last ends at the picture's edge, 748; each is 148 wide and its text begins 13 inside.
  for (const char* const x : {"\"317\"", "\"465\"", "\"613\""}) {
    EXPECT_TRUE(Contains(picture, std::string("<text x=") + x + " y=\"9\"")) << x;
  }
}

TEST(LoudnessPicture, TimesAreMarkedInStepsThatPeopleCountIn) {
  EXPECT_TRUE(Contains(Picture({}), ">1:00</text>"));
  EXPECT_FALSE(Contains(Picture({}), ">0:05</text>"));
  const std::string day = Picture({}, {}, {}, {86400.0, -40.0, 0.0});
  EXPECT_TRUE(Contains(day, ">3:00:00</text>"));
  EXPECT_TRUE(Contains(day, ">24:00:00</text>"));
  EXPECT_FALSE(Contains(day, ">1:00:00</text>"));
}

TEST(LoudnessPicture, TitleIsEscaped) {
  EXPECT_TRUE(Contains(LoudnessPicture({}, {}, kScale, {}, "<a & \"b\">"),
                       "aria-label=\"&lt;a &amp; &quot;b&quot;&gt;\""));
}

TEST(ScaleFor, HoldsTargetAndMaximaOfBothPassesInWholeSteps) {
  TrackResult track;
  track.before.maxMomentary = {-9.5, 0.0};
  track.after = TrackValues();
  track.after->maxShortTerm = {-18.5, 0.0};
  track.seriesAfter = LoudnessSeries();
  track.seriesAfter->shortTerm = {-20.0F, -37.0F};
  const PictureScale scale = ScaleFor(track, {-23.0, 0.5}, 90.0);
  EXPECT_EQ(scale.seconds, 90.0);
  EXPECT_EQ(scale.highest, -6.0);
  EXPECT_EQ(scale.lowest, -42.0);
}

TEST(ScaleFor, SpansTwentyFourToFortyEight) {
  TrackResult track;
  EXPECT_EQ(ScaleFor(track, {-23.0, 0.5}, 1.0).highest, -18.0);
  EXPECT_EQ(ScaleFor(track, {-23.0, 0.5}, 1.0).lowest, -42.0);
  track.seriesBefore = LoudnessSeries();
  track.seriesBefore->shortTerm = {-120.0F};
  EXPECT_EQ(ScaleFor(track, {-23.0, 0.5}, 1.0).lowest, -66.0);
}

TEST(ScaleFor, AbsurdValuesStillGiveAPicture) {
  TrackResult track;
  track.before.maxMomentary = {1e300, 1e300};
  const PictureScale scale = ScaleFor(track, {-1e300, 1e300}, 1e300);
  EXPECT_EQ(scale.highest, 54.0);
  EXPECT_EQ(scale.lowest, 6.0);
  EXPECT_EQ(scale.seconds, 1e9);
  EXPECT_TRUE(Contains(Picture({}, track.before, {-1e300, 1e300}, scale), "</svg>"));
  EXPECT_EQ(ScaleFor(TrackResult(), {}, 0.0).seconds, 1.0);
}

}  // namespace
}  // namespace harvane
