#include "tool/results/ReportPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "tool/results/HtmlText.h"
#include "tool/results/LoudnessPicture.h"
#include "tool/results/ReportStyle.h"
#include "tool/results/ResultNames.h"
#include "tool/results/ResultNumbers.h"

namespace harvane {
namespace {

constexpr const char* kDash = "\u2013";

// ---- order ---------------------------------------------------------------------------------

const TrackValues& LastValues(const TrackResult& track) {
  return track.after ? *track.after : track.before;
}

// What decides the order of the index: the larger stands first.
struct Badness {
  int status = 0;
  double missed = 0.0;     // by its worst rule, in that rule's unit
  double deviation = 0.0;  // from the target, LU
};

int RankOf(FileStatus status) {
  constexpr std::array kWorstFirst = {FileStatus::kCrashed,     FileStatus::kTimedOut,
                                      FileStatus::kRefused,     FileStatus::kFailed,
                                      FileStatus::kInterrupted, FileStatus::kDone};
  const auto* const found = std::find(kWorstFirst.begin(), kWorstFirst.end(), status);
  return static_cast<int>(kWorstFirst.end() - found);
}

Badness BadnessOf(const FileResult& file, const std::optional<double>& target) {
  Badness badness;
  badness.status = RankOf(file.status == FileStatus::kSkipped ? FileStatus::kDone : file.status);
  for (const TrackResult& track : file.tracks) {
    for (const RuleVerdict& rule : track.verdicts) {
      badness.missed = std::max(badness.missed, rule.excess.value_or(0.0));
    }
    const std::optional<double>& loudness = LastValues(track).integratedLoudness;
    if (target && loudness) {
      badness.deviation = std::max(badness.deviation, std::abs(*loudness - *target));
    }
  }
  return badness;
}

struct RankedFile {
  const FileResult* file;
  Badness badness;
};

std::vector<RankedFile> WorstFirst(const RunResult& run) {
  std::vector<RankedFile> files;
  for (const FileResult& file : run.files) {
    files.push_back({&file, BadnessOf(file, run.targetLoudness)});
  }
  std::stable_sort(files.begin(), files.end(), [](const RankedFile& a, const RankedFile& b) {
    if (a.badness.status != b.badness.status) return a.badness.status > b.badness.status;
    if (a.badness.missed != b.badness.missed) return a.badness.missed > b.badness.missed;
    return a.badness.deviation > b.badness.deviation;
  });
  return files;
}

// ---- small pieces --------------------------------------------------------------------------

std::string Chip(const char* style, const char* text) {
  return fmt::format("<span class=\"chip {}\">{}</span>", style, text);
}

const char* StatusWord(FileStatus status) {
  return status == FileStatus::kTimedOut ? "timed out" : NameOf(status);
}

std::string VerdictChip(Verdict verdict) {
  switch (verdict) {
    case Verdict::kPass:
      return Chip("good", "\u2713 pass");
    case Verdict::kFail:
      return Chip("bad", "\u2717 fail");
    case Verdict::kNotMeasured:
      return Chip("", "not measured");
  }
  return "";
}

// What a reader wants to know first of a file.
std::string FileChip(const FileResult& file) {
  if (file.status != FileStatus::kDone && file.status != FileStatus::kSkipped) {
    return Chip("bad", StatusWord(file.status));
  }
  if (HasVerdicts(file)) return VerdictChip(VerdictOf(file));
  return Chip("", StatusWord(file.status));
}

std::string BaseName(const std::string& path) {
  const std::size_t slash = path.find_last_of('/', path.size() < 2 ? 0 : path.size() - 2);
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

double SecondsOf(const FileResult& file) {
  return file.sampleRate > 0 ? static_cast<double>(file.frames) / file.sampleRate : 0.0;
}

std::string Counted(std::size_t count, const char* one, const char* many) {
  return fmt::format("{} {}", count, count == 1 ? one : many);
}

std::string Joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : " \u00B7 ") + part;
  return text;
}

// ---- head ----------------------------------------------------------------------------------

std::string AimText(const RunResult& run) {
  std::vector<std::string> parts;
  if (!run.command.empty()) parts.push_back(HtmlText(run.command));
  if (!run.preset.empty()) parts.push_back("rules " + HtmlText(run.preset));
  if (run.targetLoudness) {
    std::string target = "target " + HtmlNumber(*run.targetLoudness, 1);
    if (run.toleranceLu) target += " \u00B1" + HtmlNumber(*run.toleranceLu, 1);
    parts.push_back(target + " LUFS");
  }
  if (run.maxTruePeak) {
    parts.push_back("true peak at most " + HtmlNumber(*run.maxTruePeak, 1) + " dBTP");
  }
  return Joined(parts);
}

std::string Count(std::size_t count, const char* name, const char* style) {
  return fmt::format("<div class=\"{}\"><dt>{}</dt><dd>{}</dd></div>\n", style, name, count);
}

std::string Counts(const RunResult& run) {
  std::map<FileStatus, std::size_t> statuses;
  std::map<Verdict, std::size_t> verdicts;
  for (const FileResult& file : run.files) {
    ++statuses[file.status];
    if (HasVerdicts(file)) ++verdicts[VerdictOf(file)];
  }
  std::string html = "<dl class=\"counts\">\n";
  html += Count(run.files.size(), run.files.size() == 1 ? "file" : "files", "");
  for (const auto& [status, count] : statuses) {
    const bool isGood = status == FileStatus::kDone || status == FileStatus::kSkipped;
    html += Count(count, StatusWord(status), isGood ? "" : "bad");
  }
  for (const auto& [verdict, count] : verdicts) {
    const bool isOne = count == 1;
    const char* const name = verdict == Verdict::kPass
                                 ? (isOne ? "fits the rules" : "fit the rules")
                             : verdict == Verdict::kFail ? (isOne ? "misses a rule" : "miss a rule")
                                                         : "not measured";
    const char* const style = verdict == Verdict::kPass   ? "good"
                              : verdict == Verdict::kFail ? "bad"
                                                          : "";
    html += Count(count, name, style);
  }
  return html + "</dl>\n";
}

// ---- index ---------------------------------------------------------------------------------

// The values of a pass over all tracks, track by track.
std::string Loudnesses(const FileResult& file, bool isAfter) {
  std::string html;
  for (const TrackResult& track : file.tracks) {
    if (!html.empty()) html += "<br/>";
    if (isAfter && !track.after) {
      html += kDash;
      continue;
    }
    const TrackValues& values = isAfter ? *track.after : track.before;
    html += values.integratedLoudness ? HtmlNumber(*values.integratedLoudness, 1) : kDash;
  }
  return html;
}

std::string Peaks(const FileResult& file) {
  std::string html;
  for (const TrackResult& track : file.tracks) {
    const std::optional<PeakValue>& peak = LastValues(track).maxTruePeak;
    if (!html.empty()) html += "<br/>";
    html += peak ? HtmlNumber(peak->value, 1) : kDash;
  }
  return html;
}

std::string Index(const RunResult& run, const std::vector<RankedFile>& files) {
  const bool isProcessed = std::any_of(run.files.begin(), run.files.end(), [](const auto& file) {
    return std::any_of(file.tracks.begin(), file.tracks.end(),
                       [](const TrackResult& track) { return track.after.has_value(); });
  });
  const auto number = [](const std::string& text) {
    return "<td class=\"number\">" + text + "</td>";
  };
  std::string html = "<table class=\"index\">\n<thead><tr><th>File, the worst first</th><th></th>";
  html += isProcessed ? "<th class=\"number\">before<small>LUFS</small></th>"
                        "<th class=\"number\">after<small>LUFS</small></th>"
                      : "<th class=\"number\">integrated<small>LUFS</small></th>";
  html += "<th class=\"number\">true peak<small>dBTP</small></th>";
  if (run.targetLoudness) html += "<th class=\"number\">off target<small>LU</small></th>";
  html += "<th class=\"number\">missed by<small>worst rule</small></th></tr></thead>\n<tbody>\n";
  for (std::size_t i = 0; i < files.size(); ++i) {
    const auto& [file, badness] = files[i];
    html +=
        fmt::format("<tr><td class=\"name\"><a href=\"#file-{}\"><bdi>{}</bdi></a></td><td>{}</td>",
                    i + 1, HtmlText(file->input), FileChip(*file));
    html += number(Loudnesses(*file, false));
    if (isProcessed) html += number(Loudnesses(*file, true));
    html += number(Peaks(*file));
    const bool isMeasured = std::any_of(
        file->tracks.begin(), file->tracks.end(),
        [](const TrackResult& track) { return LastValues(track).integratedLoudness.has_value(); });
    if (run.targetLoudness) html += number(isMeasured ? HtmlNumber(badness.deviation, 1) : "");
    html += number(badness.missed > 0.0 ? HtmlNumber(badness.missed, 2) : "");
    html += "</tr>\n";
  }
  return html + "</tbody>\n</table>\n";
}

// ---- tracks --------------------------------------------------------------------------------

std::string ValueCell(const std::optional<double>& value) {
  return "<td class=\"number\">" + (value ? HtmlNumber(*value, 1) : "not measured") + "</td>";
}

std::string PeakCell(const std::optional<PeakValue>& peak) {
  if (!peak) return ValueCell({});
  return fmt::format("<td class=\"number\">{}<small>{}</small></td>", HtmlNumber(peak->value, 1),
                     TimeCode(peak->seconds));
}

std::string ValueRow(const char* pass, const TrackValues& values) {
  return fmt::format("<tr><td>{}</td>", pass) + ValueCell(values.integratedLoudness) +
         ValueCell(values.loudnessRange) + PeakCell(values.maxTruePeak) +
         PeakCell(values.maxShortTerm) + PeakCell(values.maxMomentary) + "</tr>\n";
}

std::string ValueTable(const TrackResult& track) {
  std::string html =
      "<table class=\"values\">\n<thead><tr><th></th>"
      "<th class=\"number\">integrated<small>LUFS</small></th>"
      "<th class=\"number\">range<small>LU</small></th>"
      "<th class=\"number\">true peak<small>dBTP</small></th>"
      "<th class=\"number\">max short-term<small>LUFS</small></th>"
      "<th class=\"number\">max momentary<small>LUFS</small></th></tr></thead>\n<tbody>\n";
  html += ValueRow(track.after ? "before" : "measured", track.before);
  if (track.after) html += ValueRow("after", *track.after);
  if (track.crossCheck) html += ValueRow("libebur128", *track.crossCheck);
  return html + "</tbody>\n</table>\n";
}

std::string RuleName(const std::string& rule) {
  static const std::map<std::string, std::string> kNames = {
      {"integratedLoudness", "integrated loudness"},
      {"loudnessRange", "loudness range"},
      {"maxTruePeak", "true peak"},
      {"maxShortTerm", "max short-term loudness"},
      {"maxMomentary", "max momentary loudness"}};
  const auto found = kNames.find(rule);
  return found == kNames.end() ? HtmlText(rule) : found->second;
}

// With true minus signs.
std::string WantedText(const std::string& wanted) {
  std::string html;
  const std::string text = HtmlText(wanted);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isMinus = text[i] == '-' && (i == 0 || text[i - 1] == ' ') && i + 1 < text.size() &&
                         text[i + 1] >= '0' && text[i + 1] <= '9';
    html += isMinus ? "\u2212" : std::string(1, text[i]);
  }
  return html;
}

std::string RuleRow(const RuleVerdict& rule) {
  const bool isFailed = rule.verdict == Verdict::kFail;
  const char* const sign = isFailed ? "\u2717" : rule.verdict == Verdict::kPass ? "\u2713" : kDash;
  const char* const style = isFailed ? "fail" : rule.verdict == Verdict::kPass ? "pass" : "soft";
  return fmt::format(
      "<tr><td class=\"{}\">{} {}</td><td>{}</td><td class=\"number\">{}</td>"
      "<td class=\"number {}\">{}</td></tr>\n",
      style, sign, RuleName(rule.rule), WantedText(rule.wanted),
      rule.value ? HtmlNumber(*rule.value, 2) : "not measured", style,
      isFailed && rule.excess ? HtmlNumber(*rule.excess, 2) : "");
}

std::string RuleTable(const TrackResult& track) {
  if (track.verdicts.empty()) return "";
  std::string html =
      "<table class=\"rules\">\n<thead><tr><th>rule</th><th>wanted</th>"
      "<th class=\"number\">is</th><th class=\"number\">missed by</th></tr></thead>\n<tbody>\n";
  for (const RuleVerdict& rule : track.verdicts) html += RuleRow(rule);
  return html + "</tbody>\n</table>\n";
}

std::string GainText(double gainDb) {
  return (gainDb > 0.0 ? "+" : "") + HtmlNumber(gainDb, 2) + " dB";
}

// What was done, in words.
std::string DeedText(const TrackResult& track) {
  std::vector<std::string> parts;
  switch (track.action) {
    case TrackAction::kMeasured:
      break;
    case TrackAction::kProcessed:
      if (track.gainDb) parts.push_back("gain " + GainText(*track.gainDb));
      parts.emplace_back(track.isLimited ? "limited" : "no limiter");
      break;
    case TrackAction::kKeptQuiet:
      parts.emplace_back("level kept: it could not be measured");
      break;
    case TrackAction::kWithinTolerance:
      parts.emplace_back("level kept: it fits already");
      break;
    case TrackAction::kNotRaised:
      parts.emplace_back("level kept: it would have been raised");
      break;
  }
  if (track.delayFrames != 0) parts.push_back(fmt::format("{} frames late", track.delayFrames));
  return Joined(parts);
}

std::string ConvergenceLine(const Convergence& convergence) {
  const std::string jobs =
      Counted(static_cast<std::size_t>(std::max(convergence.jobs, 0)), "job", "jobs");
  const std::string last =
      fmt::format("the last with Loudness {} and MaxTP {}", HtmlNumber(convergence.loudness, 2),
                  HtmlNumber(convergence.maxTruePeak, 2));
  const std::string text = convergence.isReached
                               ? "Target reached after " + jobs + ", " + last
                               : fmt::format("Target not reached: {} LU short of it after {}, {}",
                                             HtmlNumber(convergence.missedLu, 2), jobs, last);
  return "<p class=\"facts\">" + text + ".</p>\n";
}

std::string Channels(const TrackResult& track) {
  const bool isOne = track.channelOrder.empty() && track.firstChannel == track.lastChannel;
  return (isOne ? "channel " : "channels ") + ChannelsOf(track, kDash);
}

std::string Legend(const PictureTarget& target) {
  std::string html =
      "<span class=\"legend\"><span><i class=\"l-strong\"></i>short-term, 3 s</span>"
      "<span><i class=\"l-thin\"></i>momentary, 0.4 s</span>";
  if (target.loudness) {
    html += fmt::format("<span><i class=\"l-aim\"></i>{}</span>",
                        target.tolerance ? "target and tolerance" : "target");
  }
  return html + "</span>";
}

std::string Figure(const char* pass, const std::string& legend, const std::string& picture) {
  return fmt::format("<figure>\n<figcaption>{}{}</figcaption>\n{}</figure>\n", pass, legend,
                     picture);
}

std::string Figures(const TrackResult& track, const std::string& name, const RunResult& run,
                    double seconds) {
  const PictureTarget target = {run.targetLoudness, run.toleranceLu};
  const PictureScale scale = ScaleFor(track, target, seconds);
  std::string html;
  if (track.seriesBefore) {
    const char* const pass = track.after ? "Before" : "Measured";
    html += Figure(pass, Legend(target),
                   LoudnessPicture(*track.seriesBefore, track.before, scale, target,
                                   fmt::format("Loudness over time, {}, {}", name, pass)));
  }
  if (track.seriesAfter && track.after) {
    html += Figure("After", track.seriesBefore ? "" : Legend(target),
                   LoudnessPicture(*track.seriesAfter, *track.after, scale, target,
                                   fmt::format("Loudness over time, {}, after", name)));
  }
  return html;
}

std::string TrackHtml(std::size_t index, const TrackResult& track, const FileResult& file,
                      const RunResult& run) {
  const std::string name = fmt::format("Track {}", index + 1);
  std::vector<std::string> parts = {Channels(track)};
  if (!track.layout.empty()) parts.push_back(HtmlText(track.layout));
  const std::string deed = DeedText(track);
  if (!deed.empty()) parts.push_back(deed);
  std::string html = fmt::format(
      "<div class=\"track\">\n<div class=\"head\"><h3>{} <span class=\"did\">\u00B7 "
      "{}</span></h3>{}"
      "</div>\n",
      name, Joined(parts), HasVerdicts(track) ? VerdictChip(VerdictOf(track)) : "");
  html += ValueTable(track) + RuleTable(track);
  if (track.convergence) html += ConvergenceLine(*track.convergence);
  return html + Figures(track, name, run, SecondsOf(file)) + "</div>\n";
}

// ---- files ---------------------------------------------------------------------------------

std::string FactsText(const FileResult& file) {
  std::vector<std::string> parts;
  if (file.sampleRate > 0) {
    parts.push_back(TimeCode(SecondsOf(file)));
    parts.push_back(fmt::format("{} Hz", file.sampleRate));
    parts.push_back(
        Counted(static_cast<std::size_t>(std::max(file.channels, 0)), "channel", "channels"));
  }
  if (!file.layout.empty()) parts.push_back("layout " + HtmlText(file.layout));
  const std::string reduction = UnnotedReduction(file);
  if (!reduction.empty()) parts.push_back(HtmlText(reduction));
  return Joined(parts);
}

std::string PathLine(const char* word, const std::string& path) {
  if (path.empty()) return "";
  return fmt::format("<p class=\"facts\">{} <bdi>{}</bdi></p>\n", word, HtmlText(path));
}

// In a list of notes none needs to say that it is one.
std::string NoteText(std::string_view note) {
  constexpr std::string_view kNote = "note: ";
  return HtmlText(note.substr(note.starts_with(kNote) ? kNote.size() : 0));
}

std::string FileHtml(std::size_t index, const FileResult& file, const RunResult& run) {
  const std::string name = BaseName(file.input);
  std::string html = fmt::format(
      "<section id=\"file-{}\">\n<div class=\"start\">\n<div "
      "class=\"head\"><h2><bdi>{}</bdi></h2>{}</div>\n",
      index + 1, HtmlText(name), FileChip(file));
  const std::string facts = FactsText(file);
  if (!facts.empty()) html += "<p class=\"facts\">" + facts + "</p>\n";
  if (name != file.input) html += PathLine("from", file.input);
  html += PathLine("to", file.output);
  if (!file.error.empty()) html += "<p class=\"error\">" + HtmlText(file.error) + "</p>\n";
  if (!file.notes.empty()) {
    html += "<ul class=\"notes\">\n";
    for (const std::string& note : file.notes) html += "<li>" + NoteText(note) + "</li>\n";
    html += "</ul>\n";
  }
  // The first track stays with the head of the file.
  if (file.tracks.empty()) html += "</div>\n";
  for (std::size_t t = 0; t < file.tracks.size(); ++t) {
    html += TrackHtml(t, file.tracks[t], file, run);
    if (t == 0) html += "</div>\n";
  }
  return html + "</section>\n";
}

std::string Title(const RunResult& run) {
  if (run.files.size() != 1) return Counted(run.files.size(), "file", "files");
  return HtmlText(BaseName(run.files.front().input));
}

}  // namespace

std::string ReportPage(const RunResult& run) {
  const std::vector<RankedFile> files = WorstFirst(run);
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
      "<meta http-equiv=\"Content-Security-Policy\" "
      "content=\"default-src 'none'; style-src 'unsafe-inline'\"/>\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n";
  html += "<title>Loudness: " + Title(run) + "</title>\n<style>" + kReportStyle +
          "</style>\n</head>\n<body>\n<header>\n<h1>Loudness report</h1>\n";
  const std::string aim = AimText(run);
  if (!aim.empty()) html += "<p class=\"lead\">" + aim + "</p>\n";
  if (files.size() != 1) html += Counts(run);
  html += "</header>\n";
  if (files.size() > 1) html += Index(run, files);
  for (std::size_t i = 0; i < files.size(); ++i) html += FileHtml(i, *files[i].file, run);
  html +=
      "<footer>Values to one decimal, rules by the unrounded values. Loudness by ITU-R BS.1770 "
      "and EBU R 128. Harvane";
  if (!run.version.empty()) html += " " + HtmlText(run.version);
  return html + ".</footer>\n</body>\n</html>\n";
}

}  // namespace harvane
