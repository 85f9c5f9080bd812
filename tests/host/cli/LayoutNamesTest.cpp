#include "host/LayoutNames.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace harvane {
namespace {

TEST(LayoutNames, LayoutWordsAreThoseOfTheScheme) {
  EXPECT_EQ(ParseLayout("1"), std::vector<int>{1});
  EXPECT_EQ(ParseLayout("2+2+2+2"), std::vector<int>{5});
  EXPECT_EQ(ParseLayout("5.1+2, 2+5.1"), (std::vector<int>{7, 8}));
  EXPECT_EQ(LayoutText({7, 8}), "5.1+2,2+5.1");
}

TEST(LayoutNames, UnknownWordsAreRefusedByName) {
  for (const char* text : {"", "3", "2,", ",2", "5.1+1", "7.1"}) {
    EXPECT_THROW(ParseLayout(text), std::invalid_argument) << text;
  }
  EXPECT_THROW(ParseLayout("1,1,1,1,1"), std::invalid_argument);
}

TEST(LayoutNames, OnlyOneTwoAndSixChannelsStandForThemselves) {
  EXPECT_EQ(AutomaticLayout(1), std::vector<int>{1});
  EXPECT_EQ(AutomaticLayout(2), std::vector<int>{2});
  EXPECT_EQ(AutomaticLayout(6), std::vector<int>{6});
  for (const int channels : {0, 3, 4, 5, 7, 8, 16, 32}) {
    EXPECT_TRUE(AutomaticLayout(channels).empty()) << channels;
  }
}

TEST(LayoutNames, NamesTheLayoutsOfANumberOfChannels) {
  EXPECT_EQ(LayoutsFor(6), "2+2+2 or 5.1");
  EXPECT_EQ(LayoutsFor(8), "2+2+2+2 or 5.1+2 or 2+5.1");
  EXPECT_EQ(LayoutsFor(3), "");
}

}  // namespace
}  // namespace harvane
