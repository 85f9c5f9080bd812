#include "tool/Presets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string ErrorOf(const std::string& json) {
  try {
    ParsePreset(json, "house.json");
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
  return "";
}

TEST(Presets, EachHasItsSourceAndRulesThatItsTargetsFit) {
  for (const Preset& preset : BuiltInPresets()) {
    EXPECT_THAT(preset.title, Not(testing::IsEmpty())) << preset.name;
    EXPECT_THAT(preset.source, HasSubstr("https://")) << preset.name;
    ASSERT_GE(preset.rules.size(), 2U) << preset.name;
    const Rule& loudness = preset.rules[0];
    EXPECT_EQ(loudness.value, MeasuredValue::kIntegratedLoudness) << preset.name;
    if (loudness.target) {
      EXPECT_EQ(loudness.target, preset.loudness) << preset.name;
    } else {
      EXPECT_LT(loudness.least.value(), preset.loudness) << preset.name;
      EXPECT_GT(loudness.most.value(), preset.loudness) << preset.name;
    }
    EXPECT_EQ(preset.rules[1].most, preset.maxTruePeak) << preset.name;
  }
}

TEST(Presets, TheNumbersAreThePublishedOnes) {
  const Preset r128 = PresetNamed("r128");
  EXPECT_EQ(r128.loudness, -23.0);
  EXPECT_EQ(r128.rules[0].tolerance, 0.5);
  EXPECT_EQ(r128.maxTruePeak, -1.0);
  EXPECT_EQ(PresetNamed("r128-s1").rules.at(2).most, -18.0);
  EXPECT_EQ(PresetNamed("r128-s2").rules.at(0).least, -20.0);
  EXPECT_EQ(PresetNamed("r128-s2").rules.at(0).most, -16.0);
  EXPECT_EQ(PresetNamed("a85").loudness, -24.0);
  EXPECT_EQ(PresetNamed("a85").rules[0].tolerance, 2.0);
  EXPECT_EQ(PresetNamed("a85").maxTruePeak, -2.0);
}

TEST(Presets, AFileSaysWhatItWants) {
  const support::TemporaryFolder folder;
  support::WriteBytes(folder.FileIn("house.json"), R"({
    "name": "house", "source": "our sheet", "mode": "short-term", "loudness": -20,
    "shortTermLoudness": -17.5, "maxTruePeak": -3,
    "rules": [{"value": "maxShortTerm", "atMost": -17.5},
              {"value": "loudnessRange", "atLeast": 3, "atMost": 12},
              {"value": "integratedLoudness", "target": -20, "tolerance": 2}]})");
  const Preset preset = PresetNamed(folder.FileIn("house.json"));
  EXPECT_EQ(preset.name, "house");
  EXPECT_EQ(preset.mode, NormalisationMode::kMaxShortTerm);
  EXPECT_EQ(preset.loudness, -20.0);
  EXPECT_EQ(preset.shortTermLoudness, -17.5);
  EXPECT_EQ(preset.maxTruePeak, -3.0);
  ASSERT_EQ(preset.rules.size(), 3U);
  EXPECT_EQ(preset.rules[0].most, -17.5);
  EXPECT_EQ(preset.rules[1].least, 3.0);
  EXPECT_EQ(preset.rules[2].target, -20.0);
}

TEST(Presets, RulesFollowFromTargetsWhereTheyAreLeftOut) {
  const Preset preset = ParsePreset(R"({"loudness": -18})", "f");
  EXPECT_EQ(preset.name, "f");
  ASSERT_EQ(preset.rules.size(), 2U);
  EXPECT_EQ(preset.rules[0].target, -18.0);
  EXPECT_EQ(preset.rules[0].tolerance, 0.5);
  EXPECT_EQ(preset.rules[1].most, -1.0);
}

TEST(Presets, WhatIsWrongInAFileIsSaid) {
  EXPECT_THAT(ErrorOf("{"), HasSubstr("house.json is not written in JSON"));
  EXPECT_THAT(ErrorOf("[]"), HasSubstr("is no JSON object"));
  EXPECT_THAT(ErrorOf(R"({"loudnes": -23})"), HasSubstr("unknown key \"loudnes\""));
  EXPECT_THAT(ErrorOf(R"({"loudness": "-23"})"), HasSubstr("no number"));
  EXPECT_THAT(ErrorOf(R"({"loudness": -40})"), HasSubstr("not from -30 to -12"));
  EXPECT_THAT(ErrorOf(R"({"mode": "loud"})"), HasSubstr("has the mode \"loud\""));
  EXPECT_THAT(ErrorOf(R"({"rules": 1})"), HasSubstr("no list"));
  EXPECT_THAT(ErrorOf(R"({"rules": [{"atMost": 1}]})"), HasSubstr("without a \"value\""));
  EXPECT_THAT(ErrorOf(R"({"rules": [{"value": "peak", "atMost": 1}]})"),
              HasSubstr("\"peak\", which is not measured"));
  EXPECT_THAT(ErrorOf(R"({"rules": [{"value": "maxTruePeak"}]})"),
              HasSubstr("neither a target with a tolerance nor a limit"));
}

TEST(Presets, AnUnknownNameIsAnsweredWithTheKnownOnes) {
  try {
    PresetNamed("r129");
    FAIL();
  } catch (const std::invalid_argument& wrong) {
    EXPECT_THAT(wrong.what(), HasSubstr("the presets are r128, r128-live, r128-s1"));
  }
}

}  // namespace
}  // namespace harvane
