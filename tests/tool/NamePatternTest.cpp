#include "tool/NamePattern.h"

#include <gtest/gtest.h>

namespace harvane {
namespace {

bool Matches(const std::string& pattern, const std::string& text) {
  return MatchesPattern(pattern, text, LetterCase::kMatters);
}

TEST(NamePattern, PlainTextStandsForItself) {
  EXPECT_TRUE(Matches("a.wav", "a.wav"));
  EXPECT_FALSE(Matches("a.wav", "a.wave"));
  EXPECT_FALSE(Matches("a.wav", "b.wav"));
  EXPECT_TRUE(Matches("", ""));
  EXPECT_FALSE(Matches("", "a"));
}

TEST(NamePattern, StarStandsForAnythingOrNothing) {
  EXPECT_TRUE(Matches("*", ""));
  EXPECT_TRUE(Matches("*.wav", ".wav"));
  EXPECT_TRUE(Matches("a*b*c", "a1b2b3c"));
  EXPECT_FALSE(Matches("a*b*c", "a1b2b3"));
  EXPECT_TRUE(Matches("mix/*.wav", "mix/old/a.wav"));
}

TEST(NamePattern, QuestionMarkStandsForOneByte) {
  EXPECT_TRUE(Matches("a?c", "abc"));
  EXPECT_FALSE(Matches("a?c", "ac"));
  EXPECT_FALSE(Matches("a?", "abc"));
}

TEST(NamePattern, BracketsStandForOneOfTheirs) {
  EXPECT_TRUE(Matches("take[1-3].wav", "take2.wav"));
  EXPECT_FALSE(Matches("take[1-3].wav", "take4.wav"));
  EXPECT_TRUE(Matches("[!a]", "b"));
  EXPECT_FALSE(Matches("[!a]", "a"));
  EXPECT_TRUE(Matches("[]]", "]"));
  EXPECT_TRUE(Matches("[a-]", "-"));
  EXPECT_TRUE(Matches("[a", "[a"));
}

TEST(NamePattern, CaseOfLettersMattersOnlyWhereItIsAskedFor) {
  EXPECT_FALSE(Matches("*.WAV", "a.wav"));
  EXPECT_TRUE(MatchesPattern("*.WAV", "a.wav", LetterCase::kIgnored));
  EXPECT_TRUE(MatchesPattern("[A-C]", "b", LetterCase::kIgnored));
}

// A pattern of many stars must not take time without end.
TEST(NamePattern, ManyStarsEndSoon) {
  std::string pattern;
  for (int i = 0; i < 30; ++i) pattern += "a*";
  EXPECT_FALSE(Matches(pattern + "b", std::string(200, 'a')));
}

}  // namespace
}  // namespace harvane
