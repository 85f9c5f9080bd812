// Any bytes as the parameter document.

#include <bit>
#include <cstring>
#include <string>

#include "delay_audio/Exports.h"
#include "delay_audio/PluginException.h"
#include "parameters/XmlReading.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/ParameterDocuments.h"

namespace {

using harvane::DelayAudio;
using Probe = harvane::DelayAudioProbe;

constexpr std::uint32_t kDone = 0;
constexpr std::uint32_t kRefused = 3;
constexpr std::uint32_t kMissing = 4;
constexpr int kMostGroups = 4;

// A fifth group ends the process, and is meant to.
bool AsksForAFifthGroup(const char* text) {
  if (std::strstr(text, "numberOfGroups") == nullptr) return false;
  const harvane::ComApartmentGuard apartment;
  harvane::XmlDocument document;
  bool isWellFormed = false;
  document.LoadXml(harvane::WideFromUtf8(text).Text(), &isWellFormed);
  if (!isWellFormed) return false;
  try {
    return harvane::ReadNodeInt(document.AsNode(), L"/parameter/audio/numberOfGroups/text()") >
           kMostGroups;
  } catch (const harvane::PluginException&) {
    return false;
  }
}

// All that a document fills, as one comparable text.
std::string StateOf(DelayAudio& job) {
  std::string state;
  const auto add = [&state](const std::string& text) { state += text + '\n'; };
  const auto addBits = [&add](float value) {
    add(std::to_string(std::bit_cast<std::uint32_t>(value)));
  };
  addBits(Probe::Loudness(job));
  addBits(Probe::ShortTermLoudness(job));
  addBits(Probe::MaxTP(job));
  addBits(Probe::FrameRate(job));
  for (const int number :
       {Probe::NormalisationMode(job), Probe::NumberOfPasses(job), Probe::NumberOfGroups(job),
        Probe::TrackCount(job), static_cast<int>(Probe::TrackChannelCounts(job).Size())}) {
    add(std::to_string(number));
  }
  for (const std::string& text :
       {Probe::SourceFileName(job), Probe::TargetFilePath(job), Probe::LogPath(job),
        Probe::LogFileName(job), Probe::LogEntryName(job)}) {
    add(text);
  }
  for (int c = 0; c < harvane::kMaxChannels; ++c) {
    add(std::to_string(Probe::ChannelIndexInTrack(job, c)));
    add(std::to_string(Probe::TrackOfChannel(job, c)));
  }
  return state;
}

void CheckTables(DelayAudio& job) {
  const int tracks = Probe::TrackCount(job);
  const auto listed = static_cast<int>(Probe::TrackChannelCounts(job).Size());
  fuzz::Require(tracks == harvane::kNoTrack || tracks == listed, "one channel count per track");
  for (int c = 0; c < harvane::kMaxChannels; ++c) {
    fuzz::Require(Probe::TrackOfChannel(job, c) < listed, "a channel's track is in the list");
  }
}

// The state of a new instance behind one good document.
std::string StateBehind(const std::string& document) {
  DelayAudio job;
  fuzz::Require(xSetParameter(&job, document.c_str()) == kDone, "a plain document is taken");
  return StateOf(job);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string document(reinterpret_cast<const char*>(bytes), size);
  if (AsksForAFifthGroup(document.c_str())) return 0;
  static const std::string kPlain = support::ParameterDocument({});
  static const std::string kPlainState = StateBehind(kPlain);
  void* handle = nullptr;
  fuzz::Require(xOpen(&handle) == kDone, "an instance opens");
  DelayAudio& job = *static_cast<DelayAudio*>(handle);
  const std::string before = StateOf(job);
  const std::uint32_t code = xSetParameter(handle, document.c_str());
  const std::string after = StateOf(job);
  fuzz::Require(code == kDone || code == kRefused || code == kMissing, "a known result code");
  if (code == kRefused) fuzz::Require(before == after, "a refused document changes nothing");
  if (code == kDone) CheckTables(job);
  // Costs as much again: for one input in eight.
  if (size % 8 == 0) {
    fuzz::Require(xSetParameter(handle, kPlain.c_str()) == kDone, "a plain document is taken");
    fuzz::Require(StateOf(job) == kPlainState, "nothing of another document is left");
  }
  fuzz::Require(xClose(handle) == kDone, "an instance closes");
  return 0;
}
