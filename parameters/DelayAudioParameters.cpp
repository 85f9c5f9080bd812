#include <cstring>
#include <stdexcept>
#include <utility>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/RecordRelease.h"
#include "parameters/ParameterScheme.h"
#include "parameters/XmlReading.h"
#include "platform/FatalStop.h"
#include "platform/XmlDom.h"

namespace harvane {
namespace {

constexpr int kDefaultPasses = 2;
constexpr int kDefaultGroups = 1;
constexpr int kDefaultFormat = 2;

// The presence of the element decides: one that is there but empty is an error.
int IntOrDefault(const XmlDocument& document, const wchar_t* element, const wchar_t* value,
                 int byDefault) {
  if (SelectNode(document.AsNode(), element).IsEmpty()) return byDefault;
  return ReadNodeInt(document.AsNode(), value);
}

// The presence of the text decides: an empty element counts as absent.
std::string TextOrEmpty(const XmlDocument& document, const wchar_t* value) {
  if (SelectNode(document.AsNode(), value).IsEmpty()) return {};
  return ReadNodeText(document.AsNode(), value);
}

std::string TargetFile(const XmlDocument& document) {
  constexpr const wchar_t* kPath = L"/parameter/metadata/targetInfo//path/text()";
  constexpr const wchar_t* kBaseName = L"/parameter/metadata/targetInfo//baseFileName/text()";
  if (SelectNode(document.AsNode(), kPath).IsEmpty()) return {};
  if (SelectNode(document.AsNode(), kBaseName).IsEmpty()) return {};
  const std::string path = ReadNodeText(document.AsNode(), kPath);
  return path + "\\" + ReadNodeText(document.AsNode(), kBaseName);
}

}  // namespace

InfoBuffer* DelayAudio::GetParameterScheme() {
  return MakeInfoBuffer(kParameterScheme, std::strlen(kParameterScheme) + 1).release();
}

void DelayAudio::SetParameter(const char* xml) {
  const ComApartmentGuard apartment;
  XmlDocument document;
  const WideFromUtf8 wideText(xml);
  bool isWellFormed = false;
  if (document.LoadXml(wideText.Text(), &isWellFormed) < 0 || !isWellFormed) {
    throw std::runtime_error("Failed to parse parameter XML");
  }
  Loudness = ReadNodeFloat(document.AsNode(), L"/parameter/normalization/Loudness/text()");
  ShortTermLoudness =
      ReadNodeFloat(document.AsNode(), L"/parameter/normalization/ShortTermLoudness/text()");
  MaxTP = ReadNodeFloat(document.AsNode(), L"/parameter/normalization/MaxTP/text()");
  frameRate = ReadNodeFloat(document.AsNode(), L"/parameter/logging/frameRate/text()");
  normalisationMode =
      ReadNodeInt(document.AsNode(), L"/parameter/normalization/normalisationMode/text()");
  numberOfPasses = IntOrDefault(document, L"/parameter/audio/numberOfPasses",
                                L"/parameter/audio/numberOfPasses/text()", kDefaultPasses);
  sourceFileName = TextOrEmpty(document, L"/parameter/metadata/sourceInfo//fileName/text()");
  targetFilePath = TargetFile(document);
  logPath = TextOrEmpty(document, L"/parameter/logging/logPath/text()");
  logFileName = TextOrEmpty(document, L"/parameter/logging/logFileName/text()");
  logEntryName = TextOrEmpty(document, L"/parameter/logging/logEntryName/text()");
  const int groups = IntOrDefault(document, L"/parameter/audio/numberOfGroups",
                                  L"/parameter/audio/numberOfGroups/text()", kDefaultGroups);
  CheckedList<int> groupFormats;
  groupFormats.Append(IntOrDefault(document, L"/parameter/audio/firstGroupChannelsFormat",
                                   L"/parameter/audio/firstGroupChannelsFormat/text()",
                                   kDefaultFormat));
  groupFormats.Append(IntOrDefault(document, L"/parameter/audio/secondGroupChannelsFormat",
                                   L"/parameter/audio/secondGroupChannelsFormat/text()",
                                   kDefaultFormat));
  groupFormats.Append(IntOrDefault(document, L"/parameter/audio/thirdGroupChannelsFormat",
                                   L"/parameter/audio/thirdGroupChannelsFormat/text()",
                                   kDefaultFormat));
  groupFormats.Append(IntOrDefault(document, L"/parameter/audio/fourthGroupChannelsFormat",
                                   L"/parameter/audio/fourthGroupChannelsFormat/text()",
                                   kDefaultFormat));
  trackCount = SetupChannelTables(groups, groupFormats);
}

int DelayAudio::SetupChannelTables(int groupCount, CheckedList<int> groupFormats) {
  for (int c = 0; c < kMaxChannels; ++c) channelIndexInTrack[c] = kNoTrack;
  for (int c = 0; c < kMaxChannels; ++c) trackOfChannel[c] = kNoTrack;
  trackChannelCounts.Clear();
  numberOfGroups = groupCount;
  int runningTrack = 0;
  for (int g = 0; g < groupCount; ++g) {
    const int format = groupFormats[static_cast<unsigned>(g)];
    if (g >= kMaxGroups) FatalStop("a fifth group of channels");
    const ChannelLayout* const layout = FindChannelLayout(format);
    if (layout == nullptr) return kNoTrack;
    for (int i = 0; i < kChannelsPerGroup; ++i) {
      const int c = g * kChannelsPerGroup + i;
      channelIndexInTrack[c] = layout->positionInTrack[i];
      if (layout->trackOffset[i] != kNoTrack)
        trackOfChannel[c] = runningTrack + layout->trackOffset[i];
    }
    runningTrack += layout->trackCount;
    for (int i = 0; i < layout->trackCount; ++i)
      trackChannelCounts.Append(layout->channelCounts[i]);
  }
  return runningTrack;
}

}  // namespace harvane
