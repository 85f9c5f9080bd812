#ifndef HARVANE_TOOL_TRACKLAYOUT_H
#define HARVANE_TOOL_TRACKLAYOUT_H

#include <string>
#include <vector>

#include "host/AudioFile.h"

namespace harvane {

// One job's share of a file: the groups that the module is told, and which channel of the file
// each channel of their tracks is.
struct JobLayout {
  struct Track {
    int format;                       // of a group that holds this track alone: 1, 2 or 6
    std::vector<int> fileChannels;    // from 0, in the track's order
    std::vector<int> moduleChannels;  // from 0
  };
  std::vector<int> groupFormats;  // one to four
  std::vector<Track> tracks;
  int moduleChannels = 0;
};

// How a file is divided into tracks, and those into jobs.
struct TrackLayout {
  std::string text;  // the groups by name: "5.1+2,2"
  std::vector<JobLayout> jobs;
};

// As ParseLayout, for any number of groups, with "2x1" for "1,1". Throws std::invalid_argument.
std::vector<int> ParseLayoutOfAnyLength(const std::string& text);

// An allocation of tracks as people name it: terms joined by "+", each mono, stereo, 5.1 or
// 5.1film, with a count before it where there are several: "stereo+5.1", "8xmono",
// "5.1+2xstereo". 5.1 is L R C LFE Ls Rs; 5.1film is L C R Ls Rs LFE, the order of film mixes.
// The tracks go into as few groups as the module's formats allow, in their order.
struct Allocation {
  std::vector<int> groupFormats;
  std::vector<int> channelMap;  // channels of the file from 1; empty where they go in order
};
// Throws std::invalid_argument.
Allocation ParseAllocation(const std::string& text);

// "3,4,1,2": channels of the file, from 1, each once at most. Throws std::invalid_argument.
std::vector<int> ParseChannelMap(const std::string& text);

// The division of the file `path`.
//
// `groupFormats` empty: by the number of channels, 1, 2 or 6, of which 6 that the file marks as
// those of 5.1 are taken in the order of the marks. `channelMap` empty: in the file's order, and
// the layout takes all channels. Groups go four to a job.
// Throws FileError, which lists the choices.
TrackLayout DivideTracks(const std::string& path, const AudioInfo& info,
                         std::vector<int> groupFormats, std::vector<int> channelMap);

// A job of this track alone.
JobLayout LayoutOfOne(const JobLayout::Track& track);

}  // namespace harvane

#endif  // HARVANE_TOOL_TRACKLAYOUT_H
