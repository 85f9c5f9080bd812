#include "tool/results/LogText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tool/results/ResultCsv.h"
#include "tool/results/ResultNumbers.h"
#include "tool/results/TextTable.h"

namespace harvane {
namespace {

using Json = nlohmann::ordered_json;

// As the log shows what was not measured.
constexpr double kNotMeasuredInLog = -70.0;

bool IsMeasured(double level) { return level != kNotMeasuredInLog; }

const char* PassName(LoggedPass pass) {
  return pass == LoggedPass::kAnalysis ? "analysis" : "process";
}

const char* FormatName(LoggedFormat format) {
  switch (format) {
    case LoggedFormat::kMono:
      return "mono";
    case LoggedFormat::kStereo:
      return "stereo";
    case LoggedFormat::kSurround:
      return "5.1";
    case LoggedFormat::kUnspecified:
      break;
  }
  return "unspecified";
}

std::string TimeText(const LoggedTime& time, bool hasFrames) {
  const std::string whole =
      fmt::format("{:02}:{:02}:{:02}", time.hours, time.minutes, time.seconds);
  return hasFrames ? fmt::format("{}:{:02}", whole, time.framesOrMilliseconds)
                   : fmt::format("{}.{:03}", whole, time.framesOrMilliseconds);
}

// ---- table and CSV -------------------------------------------------------------------------

std::string LevelText(double level, const char* none) {
  return IsMeasured(level) ? fmt::format("{:.1f}", level) : none;
}

std::string PeakTime(double level, const LoggedTime& time, bool hasFrames) {
  return IsMeasured(level) ? TimeText(time, hasFrames) : "";
}

std::vector<std::string> ValueFields(const LoggedTrack& track, const char* none) {
  return {LevelText(track.integratedLoudness, none),
          LevelText(track.loudnessRange, none),
          LevelText(track.maxTruePeak, none),
          PeakTime(track.maxTruePeak, track.maxTruePeakTime, track.hasFrames),
          LevelText(track.maxShortTerm, none),
          PeakTime(track.maxShortTerm, track.maxShortTermTime, track.hasFrames),
          LevelText(track.maxMomentary, none),
          PeakTime(track.maxMomentary, track.maxMomentaryTime, track.hasFrames)};
}

std::string ChannelsText(const LoggedTrack& track) {
  return track.firstChannel == track.lastChannel
             ? fmt::format("{}", track.firstChannel + 1LL)
             : fmt::format("{}-{}", track.firstChannel + 1LL, track.lastChannel + 1LL);
}

void Append(std::vector<std::string> more, std::vector<std::string>* fields) {
  fields->insert(fields->end(), std::make_move_iterator(more.begin()),
                 std::make_move_iterator(more.end()));
}

// ---- JSON ----------------------------------------------------------------------------------

Json LevelJson(double level) {
  return IsMeasured(level) && std::isfinite(level) ? Json(level) : Json();
}

Json PeakJson(double level, const LoggedTime& time, bool hasFrames) {
  constexpr double kMinute = 60.0;
  constexpr double kHour = 3600.0;
  constexpr double kMillisecondsPerSecond = 1000.0;
  if (!IsMeasured(level) || !std::isfinite(level)) return {};
  Json seconds;
  if (!hasFrames) {
    seconds = time.hours * kHour + time.minutes * kMinute + time.seconds +
              time.framesOrMilliseconds / kMillisecondsPerSecond;
  }
  return {{"value", level}, {"time", TimeText(time, hasFrames)}, {"seconds", seconds}};
}

Json RowJson(const std::string& path, const LoggedTrack& track) {
  const bool hasFrames = track.hasFrames;
  return {{"file", path},
          {"line", track.line},
          {"name", track.name},
          {"pass", PassName(track.pass)},
          {"firstChannel", track.firstChannel + 1LL},
          {"lastChannel", track.lastChannel + 1LL},
          {"format", FormatName(track.format)},
          {"integratedLoudness", LevelJson(track.integratedLoudness)},
          {"loudnessRange", LevelJson(track.loudnessRange)},
          {"maxTruePeak", PeakJson(track.maxTruePeak, track.maxTruePeakTime, hasFrames)},
          {"maxShortTerm", PeakJson(track.maxShortTerm, track.maxShortTermTime, hasFrames)},
          {"maxMomentary", PeakJson(track.maxMomentary, track.maxMomentaryTime, hasFrames)}};
}

std::string Text(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string LogTable(const LogOfFile& log) {
  std::vector<std::vector<std::string>> rows = {
      {"name", "pass", "channels", "format", "integrated", "range", "true peak", "at",
       "max short-term", "at", "max momentary", "at"},
      {"", "", "", "", "LUFS", "LU", "dBTP", "", "LUFS", "", "LUFS", ""}};
  for (const LoggedTrack& track : log.reading.tracks) {
    rows.push_back(
        {OneLine(track.name), PassName(track.pass), ChannelsText(track), FormatName(track.format)});
    Append(ValueFields(track, "not measured"), &rows.back());
  }
  return OneLine(log.path) + "\n" + TextTable(rows);
}

std::string LogCsv(const std::vector<LogOfFile>& logs) {
  std::string text =
      "file,line,name,pass,first_channel,last_channel,format,integrated_lufs,range_lu,"
      "true_peak_dbtp,true_peak_time,max_short_term_lufs,max_short_term_time,max_momentary_lufs,"
      "max_momentary_time\n";
  for (const LogOfFile& log : logs) {
    for (const LoggedTrack& track : log.reading.tracks) {
      std::vector<std::string> fields = {log.path,
                                         fmt::format("{}", track.line),
                                         track.name,
                                         PassName(track.pass),
                                         fmt::format("{}", track.firstChannel + 1LL),
                                         fmt::format("{}", track.lastChannel + 1LL),
                                         FormatName(track.format)};
      Append(ValueFields(track, ""), &fields);
      text += CsvRow(fields);
    }
  }
  return text;
}

std::string LogJson(const std::vector<LogOfFile>& logs) {
  Json rows = Json::array();
  Json problems = Json::array();
  for (const LogOfFile& log : logs) {
    for (const LoggedTrack& track : log.reading.tracks) rows.push_back(RowJson(log.path, track));
    for (const LogProblem& problem : log.reading.problems) {
      problems.push_back({{"file", log.path}, {"line", problem.line}, {"reason", problem.reason}});
    }
  }
  return Text({{"rows", rows}, {"problems", problems}}, 2);
}

std::string LogJsonLines(const std::vector<LogOfFile>& logs) {
  std::string text;
  for (const LogOfFile& log : logs) {
    for (const LoggedTrack& track : log.reading.tracks) text += Text(RowJson(log.path, track), -1);
  }
  return text;
}

std::vector<std::string> LogProblemLines(const LogOfFile& log) {
  std::vector<std::string> lines;
  for (const LogProblem& problem : log.reading.problems) {
    const std::string place =
        problem.line == 0 ? log.path : fmt::format("{}:{}", log.path, problem.line);
    lines.push_back(fmt::format("{}: {}", place, problem.reason));
  }
  const std::size_t untold = log.reading.problemCount - log.reading.problems.size();
  if (untold > 0) lines.push_back(fmt::format("{}: and {} more", log.path, untold));
  if (log.reading.isMemoryExhausted) {
    lines.push_back(log.path + ": memory exhausted: the rest was not read");
  }
  return lines;
}

bool IsUnread(const LogReading& reading) {
  return reading.isMemoryExhausted ||
         std::any_of(reading.problems.begin(), reading.problems.end(),
                     [](const LogProblem& problem) { return problem.line == 0; });
}

}  // namespace harvane
