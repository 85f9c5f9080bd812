#include "host/ChannelMap.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace harvane {
namespace {

TEST(ChannelMap, LayoutWordsAreThoseOfTheScheme) {
  EXPECT_EQ(ParseLayout("1"), std::vector<int>{1});
  EXPECT_EQ(ParseLayout("2+2+2+2"), std::vector<int>{5});
  EXPECT_EQ(ParseLayout("5.1+2, 2+5.1"), (std::vector<int>{7, 8}));
  EXPECT_EQ(LayoutText({7, 8}), "5.1+2,2+5.1");
}

TEST(ChannelMap, UnknownWordsAreRefusedByName) {
  for (const char* text : {"", "3", "2,", ",2", "5.1+1", "7.1"}) {
    EXPECT_THROW(ParseLayout(text), std::invalid_argument) << text;
  }
  EXPECT_THROW(ParseLayout("1,1,1,1,1"), std::invalid_argument);
}

TEST(ChannelMap, OnlyOneTwoAndSixChannelsStandForThemselves) {
  EXPECT_EQ(AutomaticLayout(1), std::vector<int>{1});
  EXPECT_EQ(AutomaticLayout(2), std::vector<int>{2});
  EXPECT_EQ(AutomaticLayout(6), std::vector<int>{6});
  for (const int channels : {0, 3, 4, 5, 7, 8, 16, 32}) {
    EXPECT_TRUE(AutomaticLayout(channels).empty()) << channels;
  }
}

TEST(ChannelMap, NamesTheLayoutsOfANumberOfChannels) {
  EXPECT_EQ(LayoutsFor(6), "2+2+2 or 5.1");
  EXPECT_EQ(LayoutsFor(8), "2+2+2+2 or 5.1+2 or 2+5.1");
  EXPECT_EQ(LayoutsFor(3), "");
}

TEST(ChannelMap, GroupsBeginAtMultiplesOfEight) {
  const ChannelMap map({1, 2, 6});
  EXPECT_EQ(map.FileChannels(), 9);
  EXPECT_EQ(map.ModuleChannels(), 22);
  const std::vector<int> wanted = {0, 8, 9, 16, 17, 18, 19, 20, 21};
  for (int c = 0; c < 9; ++c) EXPECT_EQ(map.ModuleChannelOf(c), wanted.at(c)) << c;
  EXPECT_EQ(map.SurroundTracks(), std::vector<int>{3});
}

TEST(ChannelMap, FullGroupsNeedNoMoving) {
  EXPECT_TRUE(ChannelMap({7, 8, 5, 2}).IsIdentity());
  EXPECT_FALSE(ChannelMap({2, 2}).IsIdentity());
}

TEST(ChannelMap, ExpandsWithSilenceAndExtractsAgain) {
  const ChannelMap map({1, 1});
  const std::vector<std::int16_t> file = {1, 2, 3, 4};
  std::vector<std::int16_t> row;
  map.Expand(file.data(), 2, &row);
  EXPECT_EQ(row, (std::vector<std::int16_t>{1, 0, 0, 0, 0, 0, 0, 0, 2,  //
                                            3, 0, 0, 0, 0, 0, 0, 0, 4}));
  std::vector<std::int16_t> back;
  map.Extract(row.data(), 2, &back);
  EXPECT_EQ(back, file);
}

}  // namespace
}  // namespace harvane
