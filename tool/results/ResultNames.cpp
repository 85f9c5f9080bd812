#include "tool/results/ResultNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace harvane {
namespace {

// In the order of the enumerations.
constexpr std::array<const char*, 7> kStatuses = {"done",    "skipped",  "failed",     "refused",
                                                  "crashed", "timedOut", "interrupted"};
constexpr std::array<const char*, 5> kActions = {"measured", "processed", "keptQuiet",
                                                 "withinTolerance", "notRaised"};
constexpr std::array<const char*, 3> kVerdicts = {"pass", "fail", "notMeasured"};

template <class Names, class Value>
bool Find(const Names& names, std::string_view name, Value* value) {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return false;
  *value = static_cast<Value>(found - names.begin());
  return true;
}

Verdict Worse(Verdict a, Verdict b) {
  for (const Verdict verdict : {Verdict::kFail, Verdict::kNotMeasured}) {
    if (a == verdict || b == verdict) return verdict;
  }
  return Verdict::kPass;
}

}  // namespace

const char* NameOf(FileStatus status) { return kStatuses.at(static_cast<std::size_t>(status)); }
const char* NameOf(TrackAction action) { return kActions.at(static_cast<std::size_t>(action)); }
const char* NameOf(Verdict verdict) { return kVerdicts.at(static_cast<std::size_t>(verdict)); }

bool FromName(std::string_view name, FileStatus* status) { return Find(kStatuses, name, status); }
bool FromName(std::string_view name, TrackAction* action) { return Find(kActions, name, action); }
bool FromName(std::string_view name, Verdict* verdict) { return Find(kVerdicts, name, verdict); }

std::string ChannelsOf(const TrackResult& track, const char* dash) {
  if (!track.channelOrder.empty()) return fmt::format("{}", fmt::join(track.channelOrder, ","));
  if (track.firstChannel == track.lastChannel) return fmt::format("{}", track.firstChannel);
  return fmt::format("{}{}{}", track.firstChannel, dash, track.lastChannel);
}

std::string UnnotedReduction(const FileResult& file) {
  const bool isNoted = std::any_of(file.notes.begin(), file.notes.end(), [&](const auto& note) {
    return note.find(file.reduction) != std::string::npos;
  });
  return isNoted ? "" : file.reduction;
}

bool HasVerdicts(const TrackResult& track) { return !track.verdicts.empty(); }

bool HasVerdicts(const FileResult& file) {
  return std::any_of(file.tracks.begin(), file.tracks.end(),
                     [](const TrackResult& track) { return HasVerdicts(track); });
}

Verdict VerdictOf(const TrackResult& track) {
  if (!HasVerdicts(track)) return Verdict::kNotMeasured;
  Verdict verdict = Verdict::kPass;
  for (const RuleVerdict& rule : track.verdicts) verdict = Worse(verdict, rule.verdict);
  return verdict;
}

Verdict VerdictOf(const FileResult& file) {
  if (!HasVerdicts(file)) return Verdict::kNotMeasured;
  Verdict verdict = Verdict::kPass;
  for (const TrackResult& track : file.tracks) {
    if (HasVerdicts(track)) verdict = Worse(verdict, VerdictOf(track));
  }
  return verdict;
}

}  // namespace harvane
