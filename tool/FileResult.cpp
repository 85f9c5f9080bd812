#include "tool/FileResult.h"

#include <algorithm>

namespace harvane {
namespace {

// By how bad they are; the position is the rank.
constexpr int kRanked[] = {kExitDone,    kExitVerdictFail, kExitFileFailed,
                           kExitRefused, kExitCrashed,     kExitInterrupted};

int ExitCodeOf(const FileResult& file) {
  switch (file.status) {
    case FileStatus::kFailed:
      return kExitFileFailed;
    case FileStatus::kRefused:
      return kExitRefused;
    case FileStatus::kCrashed:
    case FileStatus::kTimedOut:
      return kExitCrashed;
    case FileStatus::kInterrupted:
      return kExitInterrupted;
    case FileStatus::kDone:
    case FileStatus::kSkipped:
      return HasFailedVerdict(file) ? kExitVerdictFail : kExitDone;
  }
  return kExitFileFailed;
}

}  // namespace

bool HasFailedVerdict(const FileResult& file) {
  for (const TrackResult& track : file.tracks) {
    for (const RuleVerdict& rule : track.verdicts) {
      if (rule.verdict == Verdict::kFail) return true;
    }
  }
  return false;
}

int ExitCodeOf(const std::vector<FileResult>& files) {
  const int* worst = std::begin(kRanked);
  for (const FileResult& file : files) {
    worst = std::max(worst, std::find(std::begin(kRanked), std::end(kRanked), ExitCodeOf(file)));
  }
  return *worst;
}

}  // namespace harvane
