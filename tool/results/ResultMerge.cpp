#include "tool/results/ResultMerge.h"

#include <fmt/format.h>

#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "host/FileError.h"
#include "tool/results/ResultFile.h"
#include "tool/results/ResultJson.h"
#include "tool/results/ResultNames.h"

namespace harvane {
namespace {

// The lower the better.
int Worth(FileStatus status) {
  switch (status) {
    case FileStatus::kDone:
      return 0;
    case FileStatus::kSkipped:
      return 1;
    case FileStatus::kInterrupted:
      return 3;
    case FileStatus::kFailed:
    case FileStatus::kRefused:
    case FileStatus::kCrashed:
    case FileStatus::kTimedOut:
      break;
  }
  return 2;
}

struct Candidate {
  const FileResult* file;
  const std::string* part;
};

bool IsLike(const RunResult& a, const RunResult& b) {
  return a.command == b.command && a.preset == b.preset && a.version == b.version &&
         a.targetLoudness == b.targetLoudness && a.toleranceLu == b.toleranceLu &&
         a.maxTruePeak == b.maxTruePeak;
}

void TakeHead(const std::vector<ResultPart>& parts, Merged* merged) {
  const ResultPart* first = nullptr;
  for (const ResultPart& part : parts) {
    if (part.run.command.empty()) continue;
    if (first == nullptr) {
      first = &part;
      merged->run = part.run;
      merged->run.files.clear();
    } else if (!IsLike(part.run, first->run)) {
      merged->remarks.push_back(
          fmt::format("{} is of another run than {}: command, preset, targets or version differ",
                      part.path, first->path));
    }
  }
}

void Consider(const Candidate& candidate, std::map<std::string_view, Candidate>* chosen,
              std::vector<std::string>* remarks) {
  const auto [place, isNew] = chosen->emplace(candidate.file->input, candidate);
  if (isNew) return;
  Candidate& kept = place->second;
  const bool isBetter = Worth(candidate.file->status) <= Worth(kept.file->status);
  const Candidate loser = isBetter ? std::exchange(kept, candidate) : candidate;
  remarks->push_back(fmt::format("{} is in {} ({}) and in {} ({}): the former counts",
                                 kept.file->input, *kept.part, NameOf(kept.file->status),
                                 *loser.part, NameOf(loser.file->status)));
}

FileResult Missing(const std::string& input) {
  FileResult file;
  file.input = input;
  file.status = FileStatus::kFailed;
  file.error = "no result";
  return file;
}

}  // namespace

ResultPart ReadResultPart(const std::string& path) {
  ResultPart part{path, {}, {}};
  try {
    ReadResults results = ReadJsonOrLines(ReadWholeFile(path));
    part.run = std::move(results.run);
    for (const std::string& problem : results.problems)
      part.problems.push_back(path + ": " + problem);
  } catch (const FileError& failure) {
    part.problems.emplace_back(failure.what());
  }
  return part;
}

bool IsComplete(const FileResult& file) {
  return file.status == FileStatus::kDone || file.status == FileStatus::kSkipped;
}

Merged MergeParts(const std::vector<ResultPart>& parts, const std::vector<std::string>& expected) {
  Merged merged;
  TakeHead(parts, &merged);
  // By the bytes of the names, which is their order too.
  std::map<std::string_view, Candidate> chosen;
  for (const ResultPart& part : parts) {
    for (const FileResult& file : part.run.files) {
      Consider({&file, &part.path}, &chosen, &merged.remarks);
    }
  }
  std::set<std::string_view> taken;
  for (const std::string& input : expected) {
    if (!taken.insert(input).second) continue;
    const auto found = chosen.find(input);
    merged.run.files.push_back(found == chosen.end() ? Missing(input) : *found->second.file);
  }
  for (const auto& [input, candidate] : chosen) {
    if (taken.contains(input)) continue;
    merged.run.files.push_back(*candidate.file);
    if (!expected.empty()) {
      merged.remarks.push_back(fmt::format("{} in {} was not expected", input, *candidate.part));
    }
  }
  return merged;
}

}  // namespace harvane
