#include "tool/TrackLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "host/FileError.h"

namespace harvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

AudioInfo FileOf(int channels) {
  AudioInfo info{};
  info.channels = channels;
  return info;
}

std::string ErrorOf(int channels, std::vector<int> formats, std::vector<int> map) {
  try {
    DivideTracks("f", FileOf(channels), std::move(formats), std::move(map));
  } catch (const FileError& error) {
    return error.what();
  }
  return "";
}

TEST(TrackLayout, AnyNumberOfGroupsCanBeWritten) {
  EXPECT_THAT(ParseLayoutOfAnyLength("5.1+2, 2"), ElementsAre(7, 2));
  EXPECT_THAT(ParseLayoutOfAnyLength("1,1,1,1,1"), ElementsAre(1, 1, 1, 1, 1));
  EXPECT_THAT(ParseLayoutOfAnyLength("6x1,2"), ElementsAre(1, 1, 1, 1, 1, 1, 2));
  for (const char* text : {"", "0x1", "x1", "3", "1,,1", "-2x1", "999x1"}) {
    EXPECT_THROW(ParseLayoutOfAnyLength(text), std::invalid_argument) << text;
  }
}

TEST(TrackLayout, AllocationsGoIntoAsFewGroupsAsTheFormatsAllow) {
  EXPECT_THAT(ParseAllocation("stereo+5.1").groupFormats, ElementsAre(8));
  EXPECT_THAT(ParseAllocation("5.1+stereo").groupFormats, ElementsAre(7));
  EXPECT_THAT(ParseAllocation("4xstereo").groupFormats, ElementsAre(5));
  EXPECT_THAT(ParseAllocation("5xstereo").groupFormats, ElementsAre(5, 2));
  EXPECT_THAT(ParseAllocation("8xmono").groupFormats, ElementsAre(1, 1, 1, 1, 1, 1, 1, 1));
  EXPECT_THAT(ParseAllocation("5.1+2xstereo+mono").groupFormats, ElementsAre(7, 2, 1));
  EXPECT_THAT(ParseAllocation("2xstereo+5.1+5.1").groupFormats, ElementsAre(3, 6, 6));
  EXPECT_THAT(ParseAllocation("2xstereo+5.1").channelMap, IsEmpty());
  for (const char* text : {"", "7.1", "stereo+", "0xmono", "2"}) {
    EXPECT_THROW(ParseAllocation(text), std::invalid_argument) << text;
  }
}

TEST(TrackLayout, FilmOrderIsBroughtToThatOfTheModule) {
  // L C R Ls Rs LFE are channels 3 to 8; L R C LFE Ls Rs are taken.
  EXPECT_THAT(ParseAllocation("stereo+5.1film").channelMap, ElementsAre(1, 2, 3, 5, 4, 8, 6, 7));
}

TEST(TrackLayout, AMapNamesEachChannelOnce) {
  EXPECT_THAT(ParseChannelMap("3, 4,1,2"), ElementsAre(3, 4, 1, 2));
  for (const char* text : {"", "0", "1,1", "a", "1,", "1.5", "-1"}) {
    EXPECT_THROW(ParseChannelMap(text), std::invalid_argument) << text;
  }
}

TEST(TrackLayout, FourGroupsGoToAJob) {
  const TrackLayout layout = DivideTracks("f", FileOf(5), {1, 1, 1, 1, 1}, {});
  EXPECT_EQ(layout.text, "1,1,1,1,1");
  ASSERT_EQ(layout.jobs.size(), 2U);
  EXPECT_THAT(layout.jobs[0].groupFormats, ElementsAre(1, 1, 1, 1));
  EXPECT_EQ(layout.jobs[0].moduleChannels, 25);
  EXPECT_THAT(layout.jobs[0].tracks[3].fileChannels, ElementsAre(3));
  EXPECT_THAT(layout.jobs[0].tracks[3].moduleChannels, ElementsAre(24));
  EXPECT_EQ(layout.jobs[1].moduleChannels, 1);
  EXPECT_THAT(layout.jobs[1].tracks[0].fileChannels, ElementsAre(4));
}

TEST(TrackLayout, MarksOfAFileSayWhereTheChannelsOfSurroundAre) {
  AudioInfo info = FileOf(6);
  info.channelMap = {SF_CHANNEL_MAP_CENTER,    SF_CHANNEL_MAP_LEFT,       SF_CHANNEL_MAP_RIGHT,
                     SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT, SF_CHANNEL_MAP_LFE};
  EXPECT_THAT(DivideTracks("f", info, {}, {}).jobs[0].tracks[0].fileChannels,
              ElementsAre(1, 2, 0, 5, 3, 4));
  // What is asked for by name is taken in the file's order.
  EXPECT_THAT(DivideTracks("f", info, {6}, {}).jobs[0].tracks[0].fileChannels,
              ElementsAre(0, 1, 2, 3, 4, 5));
}

TEST(TrackLayout, WhatDoesNotFitIsSaid) {
  EXPECT_THAT(ErrorOf(4, {}, {}), HasSubstr("--layout 2+2 would be right"));
  EXPECT_THAT(ErrorOf(3, {}, {}), HasSubstr("several groups, separated by commas"));
  EXPECT_THAT(ErrorOf(4, {2}, {}), HasSubstr("too many for the layout 2, which takes 2"));
  EXPECT_THAT(ErrorOf(4, {2}, {1, 2, 3}), HasSubstr("is mapped to 3 channels"));
  EXPECT_THAT(ErrorOf(4, {2}, {1, 5}), HasSubstr("has 4 channels; the map names channel 5"));
}

TEST(TrackLayout, ATrackAloneIsItsOwnJob) {
  const TrackLayout layout = DivideTracks("f", FileOf(8), {8}, {});
  const JobLayout one = LayoutOfOne(layout.jobs[0].tracks[1]);
  EXPECT_THAT(one.groupFormats, ElementsAre(6));
  EXPECT_EQ(one.moduleChannels, 6);
  EXPECT_THAT(one.tracks[0].fileChannels, ElementsAre(2, 3, 4, 5, 6, 7));
  EXPECT_THAT(one.tracks[0].moduleChannels, ElementsAre(0, 1, 2, 3, 4, 5));
}

}  // namespace
}  // namespace harvane
