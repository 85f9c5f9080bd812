#include "tool/Verdicts.h"

#include <gtest/gtest.h>

namespace harvane {
namespace {

constexpr MeasuredValue kLoudness = MeasuredValue::kIntegratedLoudness;
constexpr MeasuredValue kPeak = MeasuredValue::kMaxTruePeak;

RuleVerdict JudgeLoudness(const Rule& rule, std::optional<double> value) {
  TrackValues values;
  values.integratedLoudness = value;
  return Judge({rule}, values).at(0);
}

TEST(Verdicts, SayWhatIsWanted) {
  EXPECT_EQ(WantedText({kLoudness, -23.0, 0.5, {}, {}}), "-23.0 ±0.5 LUFS");
  EXPECT_EQ(WantedText({kLoudness, -23.25, 1.0, {}, {}}), "-23.25 ±1.0 LUFS");
  EXPECT_EQ(WantedText({kPeak, {}, 0.0, {}, -1.0}), "at most -1.0 dBTP");
  EXPECT_EQ(WantedText({MeasuredValue::kLoudnessRange, {}, 0.0, 3.0, {}}), "at least 3.0 LU");
  EXPECT_EQ(WantedText({kLoudness, {}, 0.0, -20.0, -16.0}), "-20.0 to -16.0 LUFS");
}

TEST(Verdicts, ATargetIsMissedOnEitherSide) {
  const Rule rule = {kLoudness, -23.0, 0.5, {}, {}};
  EXPECT_EQ(JudgeLoudness(rule, -23.5).verdict, Verdict::kPass);
  EXPECT_EQ(JudgeLoudness(rule, -22.5).verdict, Verdict::kPass);
  const RuleVerdict low = JudgeLoudness(rule, -24.25);
  EXPECT_EQ(low.verdict, Verdict::kFail);
  EXPECT_EQ(low.rule, "integratedLoudness");
  EXPECT_EQ(low.value, -24.25);
  EXPECT_DOUBLE_EQ(low.excess.value(), 0.75);
  EXPECT_DOUBLE_EQ(JudgeLoudness(rule, -21.5).excess.value(), 1.0);
}

TEST(Verdicts, AValueIsJudgedAsItReadsWithTwoDecimals) {
  const Rule rule = {kLoudness, {}, 0.0, {}, -16.0};
  EXPECT_EQ(JudgeLoudness(rule, -15.9951).verdict, Verdict::kPass);
  EXPECT_EQ(JudgeLoudness(rule, -15.9949).verdict, Verdict::kFail);
  EXPECT_FALSE(JudgeLoudness(rule, -15.9951).excess);
}

TEST(Verdicts, ARangeHasTwoEnds) {
  const Rule rule = {kLoudness, {}, 0.0, -20.0, -16.0};
  EXPECT_EQ(JudgeLoudness(rule, -20.0).verdict, Verdict::kPass);
  EXPECT_EQ(JudgeLoudness(rule, -16.0).verdict, Verdict::kPass);
  EXPECT_DOUBLE_EQ(JudgeLoudness(rule, -21.5).excess.value(), 1.5);
  EXPECT_DOUBLE_EQ(JudgeLoudness(rule, -15.0).excess.value(), 1.0);
}

TEST(Verdicts, WhatWasNotMeasuredIsNeitherPassNorFail) {
  const RuleVerdict verdict = JudgeLoudness({kLoudness, -23.0, 0.5, {}, {}}, {});
  EXPECT_EQ(verdict.verdict, Verdict::kNotMeasured);
  EXPECT_FALSE(verdict.value);
  EXPECT_FALSE(verdict.excess);
}

TEST(Verdicts, EachRuleLooksAtItsOwnValue) {
  TrackValues values;
  values.integratedLoudness = 1.0;
  values.loudnessRange = 2.0;
  values.maxTruePeak = PeakValue{3.0, 0.0};
  values.maxShortTerm = PeakValue{4.0, 0.0};
  values.maxMomentary = PeakValue{5.0, 0.0};
  std::vector<Rule> rules;
  for (const MeasuredValue value : {kLoudness, MeasuredValue::kLoudnessRange, kPeak,
                                    MeasuredValue::kMaxShortTerm, MeasuredValue::kMaxMomentary}) {
    rules.push_back({value, {}, 0.0, {}, 0.0});
  }
  const std::vector<RuleVerdict> verdicts = Judge(rules, values, "crossCheck.");
  for (std::size_t i = 0; i < verdicts.size(); ++i) {
    EXPECT_EQ(verdicts[i].value, static_cast<double>(i + 1));
  }
  EXPECT_EQ(verdicts[3].rule, "crossCheck.maxShortTerm");
}

}  // namespace
}  // namespace harvane
