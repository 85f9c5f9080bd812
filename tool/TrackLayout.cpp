#include "tool/TrackLayout.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <numeric>
#include <stdexcept>

#include "host/FileError.h"
#include "host/JobChecks.h"
#include "host/LayoutNames.h"
#include "parameters/ChannelLayouts.h"

namespace harvane {
namespace {

constexpr int kMono = 1;
constexpr int kStereo = 2;
constexpr int kSurround = 6;
constexpr int kMostRepeats = 256;
// Places of L R C LFE Ls Rs in the order L C R Ls Rs LFE.
constexpr int kFilmOrder[] = {0, 2, 1, 5, 3, 4};

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else if (c != ' ') {
      parts.back() += c;
    }
  }
  return parts;
}

// The whole of `text` as a number from 1 up; 0 for anything else.
int Count(const std::string& text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && number > 0 ? number : 0;
}

// Takes "8x" from the front of `text`: 1 where there is none.
int TakeRepeats(std::string* text) {
  const std::size_t times = text->find('x');
  if (times == std::string::npos) return 1;
  const int repeats = Count(text->substr(0, times));
  if (repeats == 0 || repeats > kMostRepeats) {
    throw std::invalid_argument(
        fmt::format("\"{}\" has no count from 1 to {} before its x", *text, kMostRepeats));
  }
  text->erase(0, times + 1);
  return repeats;
}

int ChannelsOf(int format) {
  const ChannelLayout& layout = *FindChannelLayout(format);
  return std::accumulate(layout.channelCounts, layout.channelCounts + layout.trackCount, 0);
}

int ChannelsOf(const std::vector<int>& formats) {
  int channels = 0;
  for (const int format : formats) channels += ChannelsOf(format);
  return channels;
}

// The format whose tracks have these channel counts; 0 if there is none.
int FormatOf(const std::vector<int>& counts) {
  for (int format = kFirstLayout; format <= kLastLayout; ++format) {
    const ChannelLayout& layout = *FindChannelLayout(format);
    if (std::equal(counts.begin(), counts.end(), layout.channelCounts,
                   layout.channelCounts + layout.trackCount)) {
      return format;
    }
  }
  return 0;
}

// As few groups as possible: one is closed where the next track makes it no format of the scheme.
// Every beginning of a format is a format, so this loses nothing.
std::vector<int> GroupsOf(const std::vector<int>& trackChannels) {
  std::vector<int> formats;
  std::vector<int> group;
  for (const int channels : trackChannels) {
    group.push_back(channels);
    if (FormatOf(group) != 0) continue;
    group.pop_back();
    formats.push_back(FormatOf(group));
    group = {channels};
  }
  if (!group.empty()) formats.push_back(FormatOf(group));
  return formats;
}

// Where the six marks of a file stand for 5.1: its channels, from 1, in that order. Else empty.
std::vector<int> MarkedSurround(const AudioInfo& info) {
  std::vector<int> order;
  for (int place = 0; place < kSurround; ++place) {
    const auto found = std::find_if(info.channelMap.begin(), info.channelMap.end(),
                                    [place](int mark) { return IsSurroundPlace(place, mark); });
    if (found == info.channelMap.end()) return {};
    order.push_back(static_cast<int>(found - info.channelMap.begin()) + 1);
  }
  return order;
}

std::string Choices(int channels) {
  const std::string fitting = LayoutsFor(channels);
  if (fitting.empty()) return "a --layout of several groups, separated by commas, would be right";
  return fmt::format("--layout {} would be right", fitting);
}

std::vector<int> AutomaticFormats(const std::string& path, const AudioInfo& info,
                                  const std::vector<int>& channelMap) {
  const int channels = channelMap.empty() ? info.channels : static_cast<int>(channelMap.size());
  std::vector<int> formats = AutomaticLayout(channels);
  if (!formats.empty()) return formats;
  if (!channelMap.empty()) {
    throw FileError(path, fmt::format("is mapped to {} channels, which stand for no layout by "
                                      "themselves; {}",
                                      channels, Choices(channels)));
  }
  throw FileError(path, fmt::format("has {} channels, which stand for no layout by "
                                    "themselves; {}",
                                    channels, Choices(channels)));
}

void CheckFit(const std::string& path, const AudioInfo& info, const std::vector<int>& formats,
              const std::vector<int>& channelMap) {
  const int taken = ChannelsOf(formats);
  const auto names = [&formats] { return LayoutText(formats); };
  if (channelMap.empty()) {
    if (taken == info.channels) return;
    throw FileError(
        path,
        fmt::format("has {} channel{}, too {} for the layout {}, which takes {}; {}", info.channels,
                    info.channels == 1 ? "" : "s", info.channels > taken ? "many" : "few", names(),
                    taken, Choices(info.channels)));
  }
  if (taken != static_cast<int>(channelMap.size())) {
    throw FileError(
        path, fmt::format("is mapped to {} channel{}, and the layout {} takes {}",
                          channelMap.size(), channelMap.size() == 1 ? "" : "s", names(), taken));
  }
  const int highest = *std::max_element(channelMap.begin(), channelMap.end());
  if (highest > info.channels) {
    throw FileError(path, fmt::format("has {} channel{}; the map names channel {}", info.channels,
                                      info.channels == 1 ? "" : "s", highest));
  }
}

}  // namespace

std::vector<int> ParseLayoutOfAnyLength(const std::string& text) {
  std::vector<int> formats;
  for (std::string group : Split(text, ',')) {
    const int repeats = TakeRepeats(&group);
    formats.insert(formats.end(), static_cast<std::size_t>(repeats), ParseLayout(group).front());
  }
  return formats;
}

Allocation ParseAllocation(const std::string& text) {
  std::vector<int> trackChannels;
  std::vector<int> map;
  bool isInOrder = true;
  for (const std::string& term : Split(text, '+')) {
    std::string name = term;
    const int repeats = TakeRepeats(&name);
    const bool isFilm = name == "5.1film";
    const int channels = name == "mono"            ? kMono
                         : name == "stereo"        ? kStereo
                         : name == "5.1" || isFilm ? kSurround
                                                   : 0;
    if (channels == 0) {
      throw std::invalid_argument(fmt::format(
          "\"{}\" is no allocation; mono, stereo, 5.1 and 5.1film are, joined by +, with a count "
          "as in 2xstereo",
          term));
    }
    isInOrder = isInOrder && !isFilm;
    for (int i = 0; i < repeats; ++i) {
      trackChannels.push_back(channels);
      const int first = static_cast<int>(map.size()) + 1;
      for (int k = 0; k < channels; ++k) map.push_back(first + (isFilm ? kFilmOrder[k] : k));
    }
  }
  if (isInOrder) map.clear();
  return {GroupsOf(trackChannels), map};
}

std::vector<int> ParseChannelMap(const std::string& text) {
  std::vector<int> map;
  for (const std::string& part : Split(text, ',')) {
    const int channel = Count(part);
    if (channel == 0) {
      throw std::invalid_argument(
          fmt::format("\"{}\" is no channel of a file; they count from 1", part));
    }
    if (std::find(map.begin(), map.end(), channel) != map.end()) {
      throw std::invalid_argument(fmt::format("channel {} stands in the map twice", channel));
    }
    map.push_back(channel);
  }
  return map;
}

TrackLayout DivideTracks(const std::string& path, const AudioInfo& info,
                         std::vector<int> groupFormats, std::vector<int> channelMap) {
  if (groupFormats.empty()) {
    groupFormats = AutomaticFormats(path, info, channelMap);
    if (channelMap.empty() && groupFormats.front() == kSurround) channelMap = MarkedSurround(info);
  }
  CheckFit(path, info, groupFormats, channelMap);
  TrackLayout layout;
  layout.text = LayoutText(groupFormats);
  std::size_t next = 0;  // channel of the tracks
  for (std::size_t g = 0; g < groupFormats.size(); ++g) {
    if (g % kMaxGroups == 0) layout.jobs.emplace_back();
    JobLayout& job = layout.jobs.back();
    int moduleChannel = static_cast<int>(job.groupFormats.size()) * kChannelsPerGroup;
    job.groupFormats.push_back(groupFormats[g]);
    const ChannelLayout& group = *FindChannelLayout(groupFormats[g]);
    for (int t = 0; t < group.trackCount; ++t) {
      const int channels = group.channelCounts[t];
      JobLayout::Track track{channels, {}, {}};
      for (int k = 0; k < channels; ++k, ++next) {
        track.fileChannels.push_back(channelMap.empty() ? static_cast<int>(next)
                                                        : channelMap[next] - 1);
        track.moduleChannels.push_back(moduleChannel++);
      }
      job.tracks.push_back(std::move(track));
    }
    job.moduleChannels = moduleChannel;
  }
  return layout;
}

JobLayout LayoutOfOne(const JobLayout::Track& track) {
  JobLayout layout;
  layout.groupFormats = {track.format};
  layout.tracks = {track};
  layout.moduleChannels = static_cast<int>(track.fileChannels.size());
  for (int k = 0; k < layout.moduleChannels; ++k) {
    layout.tracks.front().moduleChannels[static_cast<std::size_t>(k)] = k;
  }
  return layout;
}

}  // namespace harvane
