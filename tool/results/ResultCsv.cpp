#include "tool/results/ResultCsv.h"

#include <fmt/format.h>

#include <cmath>
#include <initializer_list>
#include <vector>

#include "tool/results/LoudnessCurve.h"
#include "tool/results/ResultNames.h"
#include "tool/results/ResultNumbers.h"

namespace harvane {
namespace {

using Fields = std::vector<std::string>;

const std::initializer_list<const char*> kFileColumns = {
    "input", "output", "status", "error", "sample_rate", "channels", "frames"};
const std::initializer_list<const char*> kTrackColumns = {
    "track", "first_channel", "last_channel", "channel_order", "layout", "action"};
const std::initializer_list<const char*> kDoneColumns = {"gain_db",
                                                         "limited",
                                                         "delay_frames",
                                                         "convergence_jobs",
                                                         "convergence_reached",
                                                         "convergence_missed_lu",
                                                         "verdict",
                                                         "rules"};
const std::initializer_list<const char*> kValueColumns = {
    "integrated_lufs",     "range_lu",
    "true_peak_dbtp",      "true_peak_seconds",
    "max_short_term_lufs", "max_short_term_seconds",
    "max_momentary_lufs",  "max_momentary_seconds"};
const std::initializer_list<const char*> kPasses = {"before_", "after_", "cross_check_"};
const std::initializer_list<const char*> kLastColumns = {"reduction", "notes", "wall_seconds"};

std::string Number(const std::optional<double>& value) {
  return value && std::isfinite(*value) ? ShortNumber(*value) : "";
}

void AddPeak(const std::optional<PeakValue>& peak, Fields* fields) {
  fields->push_back(peak ? Number(peak->value) : "");
  fields->push_back(peak ? Number(peak->seconds) : "");
}

void AddValues(const std::optional<TrackValues>& values, Fields* fields) {
  if (!values) {
    fields->resize(fields->size() + kValueColumns.size());
    return;
  }
  fields->push_back(Number(values->integratedLoudness));
  fields->push_back(Number(values->loudnessRange));
  AddPeak(values->maxTruePeak, fields);
  AddPeak(values->maxShortTerm, fields);
  AddPeak(values->maxMomentary, fields);
}

// "integratedLoudness pass; maxTruePeak fail by 0.6"
std::string Rules(const TrackResult& track) {
  std::string text;
  for (const RuleVerdict& rule : track.verdicts) {
    if (!text.empty()) text += "; ";
    text += rule.rule + " " + NameOf(rule.verdict);
    if (rule.excess) text += " by " + Number(rule.excess);
  }
  return text;
}

Fields FileFields(const FileResult& file) {
  return {file.input,
          file.output,
          NameOf(file.status),
          file.error,
          fmt::format("{}", file.sampleRate),
          fmt::format("{}", file.channels),
          fmt::format("{}", file.frames)};
}

void AddTrack(std::size_t index, const TrackResult& track, Fields* fields) {
  fields->insert(
      fields->end(),
      {fmt::format("{}", index + 1), fmt::format("{}", track.firstChannel),
       fmt::format("{}", track.lastChannel), fmt::format("{}", fmt::join(track.channelOrder, " ")),
       track.layout, NameOf(track.action)});
  AddValues(track.before, fields);
  AddValues(track.after, fields);
  AddValues(track.crossCheck, fields);
  const bool isProcessed = track.after.has_value();
  const auto yesOrNo = [](bool is) { return is ? "yes" : "no"; };
  fields->insert(fields->end(),
                 {Number(track.gainDb), isProcessed ? yesOrNo(track.isLimited) : "",
                  isProcessed ? fmt::format("{}", track.delayFrames) : "",
                  track.convergence ? fmt::format("{}", track.convergence->jobs) : "",
                  track.convergence ? yesOrNo(track.convergence->isReached) : "",
                  track.convergence ? Number(track.convergence->missedLu) : "",
                  HasVerdicts(track) ? NameOf(VerdictOf(track)) : "", Rules(track)});
}

void AddLast(const FileResult& file, Fields* fields) {
  std::string notes;
  for (const std::string& note : file.notes) notes += (notes.empty() ? "" : "; ") + note;
  fields->insert(fields->end(), {file.reduction, notes, Number(file.wallSeconds)});
}

void AppendSeries(const Fields& track, const char* pass, const LoudnessSeries& series,
                  std::string* text) {
  const auto append = [&](const char* kind, const LoudnessCurve& curve) {
    for (std::size_t i = 0; i < curve.values.size(); ++i) {
      Fields fields = track;
      const std::optional<float>& value = curve.values[i];
      fields.insert(fields.end(),
                    {pass, kind, ShortNumber(curve.SecondsOf(i)), value ? Number(*value) : ""});
      *text += CsvRow(fields);
    }
  };
  append("momentary", MomentaryCurve(series));
  append("shortTerm", ShortTermCurve(series));
}

}  // namespace

std::string CsvField(std::string_view text) {
  const bool isPlain = text.find_first_of(",\"\r\n") == std::string_view::npos &&
                       !text.starts_with(' ') && !text.ends_with(' ');
  if (isPlain) return std::string(text);
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

std::string CsvRow(const std::vector<std::string>& fields) {
  std::string row;
  for (const std::string& field : fields) {
    if (&field != &fields.front()) row += ',';
    row += CsvField(field);
  }
  return row + "\n";
}

std::string CsvHeader() {
  Fields fields(kFileColumns.begin(), kFileColumns.end());
  fields.insert(fields.end(), kTrackColumns.begin(), kTrackColumns.end());
  for (const char* const pass : kPasses) {
    for (const char* const column : kValueColumns) fields.push_back(std::string(pass) + column);
  }
  fields.insert(fields.end(), kDoneColumns.begin(), kDoneColumns.end());
  fields.insert(fields.end(), kLastColumns.begin(), kLastColumns.end());
  return CsvRow(fields);
}

std::string CsvRows(const FileResult& file) {
  if (file.tracks.empty()) {
    Fields fields = FileFields(file);
    fields.resize(fields.size() + kTrackColumns.size() + kPasses.size() * kValueColumns.size() +
                  kDoneColumns.size());
    AddLast(file, &fields);
    return CsvRow(fields);
  }
  std::string rows;
  for (std::size_t t = 0; t < file.tracks.size(); ++t) {
    Fields fields = FileFields(file);
    AddTrack(t, file.tracks[t], &fields);
    AddLast(file, &fields);
    rows += CsvRow(fields);
  }
  return rows;
}

std::string ToCsv(const RunResult& run) {
  std::string text = CsvHeader();
  for (const FileResult& file : run.files) text += CsvRows(file);
  return text;
}

std::string SeriesCsv(const RunResult& run) {
  std::string text = "input,track,pass,kind,seconds,lufs\n";
  for (const FileResult& file : run.files) {
    for (std::size_t t = 0; t < file.tracks.size(); ++t) {
      const TrackResult& track = file.tracks[t];
      const Fields fields = {file.input, fmt::format("{}", t + 1)};
      const char* const first = track.after ? "before" : "measured";
      if (track.seriesBefore) AppendSeries(fields, first, *track.seriesBefore, &text);
      if (track.seriesAfter) AppendSeries(fields, "after", *track.seriesAfter, &text);
    }
  }
  return text;
}

}  // namespace harvane
