#include "host/LayoutNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>

#include "parameters/ChannelLayouts.h"

namespace harvane {
namespace {

constexpr int kMonoFormat = 1;
constexpr int kStereoFormat = 2;
constexpr int kSurroundFormat = 6;

int FormatNamed(const std::string& name) {
  for (int format = kFirstLayout; format <= kLastLayout; ++format) {
    if (FindChannelLayout(format)->name == name) return format;
  }
  throw std::invalid_argument(fmt::format(
      "\"{}\" is no layout of a group; 1, 2, 2+2, 2+2+2, 2+2+2+2, 5.1, 5.1+2 and 2+5.1 are", name));
}

int ChannelsOf(const ChannelLayout& layout) {
  return std::accumulate(layout.channelCounts, layout.channelCounts + layout.trackCount, 0);
}

}  // namespace

std::vector<int> ParseLayout(const std::string& text) {
  std::string names;
  std::copy_if(text.begin(), text.end(), std::back_inserter(names),
               [](char c) { return c != ' '; });
  std::vector<int> formats;
  for (std::size_t start = 0; start <= names.size();) {
    const std::size_t end = std::min(names.find(',', start), names.size());
    formats.push_back(FormatNamed(names.substr(start, end - start)));
    start = end + 1;
  }
  if (formats.size() > kMaxGroups) {
    throw std::invalid_argument(
        fmt::format("{} groups of channels; {} are the most", formats.size(), kMaxGroups));
  }
  return formats;
}

std::string LayoutText(const std::vector<int>& groupFormats) {
  std::string text;
  for (const int format : groupFormats) {
    if (!text.empty()) text += ',';
    text += FindChannelLayout(format)->name;
  }
  return text;
}

std::vector<int> AutomaticLayout(int fileChannels) {
  for (const int format : {kMonoFormat, kStereoFormat, kSurroundFormat}) {
    if (ChannelsOf(*FindChannelLayout(format)) == fileChannels) return {format};
  }
  return {};
}

std::string LayoutsFor(int fileChannels) {
  std::string text;
  for (int format = kFirstLayout; format <= kLastLayout; ++format) {
    const ChannelLayout& layout = *FindChannelLayout(format);
    if (ChannelsOf(layout) != fileChannels) continue;
    if (!text.empty()) text += " or ";
    text += layout.name;
  }
  return text;
}

}  // namespace harvane
