#include "tool/results/ResultText.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <vector>

#include "tool/results/ResultNames.h"
#include "tool/results/ResultNumbers.h"
#include "tool/results/TextTable.h"

namespace harvane {
namespace {

using Line = std::vector<std::string>;

const Line kHeader = {"track", "channels",  "format",         "pass",         "integrated",
                      "range", "true peak", "max short-term", "max momentary"};
const Line kUnits = {"", "", "", "", "LUFS", "LU", "dBTP", "LUFS", "LUFS"};
const Line kDoneHeader = {"gain", "limiter", "late"};
const Line kDoneUnits = {"dB", "", "frames"};

std::string Value(const std::optional<double>& value) {
  return value ? ShortNumber(*value) : "not measured";
}

std::string Value(const std::optional<PeakValue>& peak) {
  return peak ? ShortNumber(peak->value) : "not measured";
}

Line LineFor(std::size_t index, const TrackResult& track, const char* pass,
             const TrackValues& values) {
  return {fmt::format("{}", index + 1),
          ChannelsOf(track),
          track.layout,
          pass,
          Value(values.integratedLoudness),
          Value(values.loudnessRange),
          Value(values.maxTruePeak),
          Value(values.maxShortTerm),
          Value(values.maxMomentary)};
}

void Append(const Line& more, Line* line) { line->insert(line->end(), more.begin(), more.end()); }

void AddLines(std::size_t index, const TrackResult& track, std::vector<Line>* lines) {
  lines->push_back(LineFor(index, track, track.after ? "before" : "measured", track.before));
  if (track.after) {
    lines->push_back(LineFor(index, track, "after", *track.after));
    Append({track.gainDb ? ShortNumber(*track.gainDb) : "none", track.isLimited ? "yes" : "no",
            fmt::format("{}", track.delayFrames)},
           &lines->back());
  }
  if (track.crossCheck) lines->push_back(LineFor(index, track, "libebur128", *track.crossCheck));
}

std::string Table(const FileResult& file) {
  std::vector<Line> lines = {kHeader, kUnits};
  // Nothing is decided where nothing is processed.
  if (std::any_of(file.tracks.begin(), file.tracks.end(),
                  [](const TrackResult& track) { return track.after.has_value(); })) {
    Append(kDoneHeader, &lines[0]);
    Append(kDoneUnits, &lines[1]);
  }
  for (std::size_t t = 0; t < file.tracks.size(); ++t) AddLines(t, file.tracks[t], &lines);
  return TextTable(lines);
}

std::string RuleText(const RuleVerdict& rule) {
  const std::string value = Value(rule.value);
  switch (rule.verdict) {
    case Verdict::kPass:
      return fmt::format("pass  {} {}, wanted {}", rule.rule, value, rule.wanted);
    case Verdict::kFail:
      return fmt::format("FAIL  {} {}, wanted {}{}", rule.rule, value, rule.wanted,
                         rule.excess ? ", missed by " + ShortNumber(*rule.excess) : "");
    case Verdict::kNotMeasured:
      return fmt::format("-     {} not measured, wanted {}", rule.rule, rule.wanted);
  }
  return "";
}

std::string ConvergenceText(const Convergence& convergence) {
  const std::string jobs =
      fmt::format("{} {}, the last with Loudness {} and MaxTP {}", convergence.jobs,
                  convergence.jobs == 1 ? "job" : "jobs", ShortNumber(convergence.loudness),
                  ShortNumber(convergence.maxTruePeak));
  if (convergence.isReached) return "target reached after " + jobs;
  return fmt::format("target not reached, {} LU short of it after {}",
                     ShortNumber(convergence.missedLu), jobs);
}

const char* ActionText(TrackAction action) {
  switch (action) {
    case TrackAction::kKeptQuiet:
      return "kept its level: it could not be measured";
    case TrackAction::kWithinTolerance:
      return "kept its level: it fits already";
    case TrackAction::kNotRaised:
      return "kept its level: it would have been raised";
    case TrackAction::kMeasured:
    case TrackAction::kProcessed:
      break;
  }
  return "";
}

std::string TrackText(std::size_t index, const TrackResult& track) {
  std::vector<std::string> lines;
  if (*ActionText(track.action) != '\0') lines.emplace_back(ActionText(track.action));
  if (track.convergence) lines.push_back(ConvergenceText(*track.convergence));
  for (const RuleVerdict& rule : track.verdicts) lines.push_back(RuleText(rule));
  std::string text;
  for (const std::string& line : lines) text += fmt::format("track {}  {}\n", index + 1, line);
  return text;
}

std::string CountsText(const std::map<std::string, std::size_t>& counts,
                       const std::vector<std::string>& order) {
  std::string text;
  for (const std::string& name : order) {
    const auto found = counts.find(name);
    if (found == counts.end()) continue;
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", found->second, name);
  }
  return text;
}

const char* StatusText(FileStatus status) {
  if (status == FileStatus::kTimedOut) return "timed out";
  return NameOf(status);
}

}  // namespace

std::string FileText(const FileResult& file) {
  std::string text = OneLine(file.input);
  if (!file.output.empty()) text += " -> " + OneLine(file.output);
  if (file.status != FileStatus::kDone) text += fmt::format(": {}", StatusText(file.status));
  text += "\n";
  if (!file.error.empty()) text += OneLine(file.error) + "\n";
  if (!file.tracks.empty()) text += Table(file);
  for (std::size_t t = 0; t < file.tracks.size(); ++t) text += TrackText(t, file.tracks[t]);
  const std::string reduction = UnnotedReduction(file);
  if (!reduction.empty()) text += OneLine(reduction) + "\n";
  for (const std::string& note : file.notes) text += OneLine(note) + "\n";
  return text + "\n";
}

std::string SummaryText(const RunResult& run) {
  std::map<std::string, std::size_t> statuses;
  std::map<std::string, std::size_t> verdicts;
  std::string others;
  for (const FileResult& file : run.files) {
    ++statuses[StatusText(file.status)];
    if (HasVerdicts(file)) {
      ++verdicts[VerdictOf(file) == Verdict::kNotMeasured ? "not measured"
                                                          : NameOf(VerdictOf(file))];
    }
    if (file.status != FileStatus::kDone && file.status != FileStatus::kSkipped) {
      others += fmt::format("{}: {}{}\n", OneLine(file.input), StatusText(file.status),
                            file.error.empty() ? "" : ": " + OneLine(file.error));
    }
  }
  std::string text =
      fmt::format("{} {}", run.files.size(), run.files.size() == 1 ? "file" : "files");
  if (!statuses.empty()) {
    text += ": " + CountsText(statuses, {"done", "skipped", "failed", "refused", "crashed",
                                         "timed out", "interrupted"});
  }
  if (!verdicts.empty()) {
    text += "; verdicts: " + CountsText(verdicts, {"pass", "fail", "not measured"});
  }
  return text + "\n" + others;
}

std::string RunText(const RunResult& run) {
  std::string text;
  for (const FileResult& file : run.files) text += FileText(file);
  return text + SummaryText(run);
}

}  // namespace harvane
