#include "host/Report.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "logging/LogRow.h"
#include "measurement/TrackMeasurement.h"

namespace harvane {
namespace {

constexpr std::size_t kColumns = 11;
using Line = std::array<std::string, kColumns>;

const Line kHeader = {"track",     "channels",       "format",        "pass", "integrated", "range",
                      "true peak", "max short-term", "max momentary", "gain", "limiter"};
const Line kUnits = {"", "", "", "", "LUFS", "LU", "dBTP", "LUFS", "LUFS", "dB", ""};

std::string Channels(const LogMeasurement& measurement) {
  const int first = measurement.startChannel + 1;
  const int last = measurement.endChannel + 1;
  return first == last ? fmt::format("{}", first) : fmt::format("{}-{}", first, last);
}

std::string Value(float value) {
  return value == kNotMeasured ? "not measured" : fmt::format("{}", value);
}

Line LineFor(std::size_t index, const char* pass, const LogMeasurement& measurement) {
  return {fmt::format("{}", index + 1),
          Channels(measurement),
          ChannelsFormat(measurement.endChannel - measurement.startChannel + 1),
          pass,
          Value(measurement.integratedLoudness),
          Value(measurement.loudnessRange),
          Value(measurement.maxTruePeak),
          Value(measurement.maxShortTerm),
          Value(measurement.maxMomentary),
          "",
          ""};
}

}  // namespace

std::string ReportTable(const std::string& path, const std::vector<TrackReport>& tracks) {
  std::vector<Line> lines = {kHeader, kUnits};
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    const TrackReport& track = tracks[t];
    if (!track.after) {
      lines.push_back(LineFor(t, "measured", track.before));
      continue;
    }
    lines.push_back(LineFor(t, "before", track.before));
    lines.push_back(LineFor(t, "after", *track.after));
    if (track.decision) {
      lines.back()[kColumns - 2] = fmt::format("{}", track.decision->gainDb);
      lines.back()[kColumns - 1] = track.decision->limiterNeeded ? "yes" : "no";
    }
  }
  // Nothing is decided where nothing is processed.
  const bool isDecided = std::any_of(tracks.begin(), tracks.end(),
                                     [](const auto& track) { return track.decision.has_value(); });
  const std::size_t columns = isDecided ? kColumns : kColumns - 2;
  std::array<std::size_t, kColumns> widths{};
  for (const Line& line : lines) {
    for (std::size_t c = 0; c < kColumns; ++c) widths[c] = std::max(widths[c], line[c].size());
  }
  std::string text = path + "\n";
  for (const Line& line : lines) {
    std::string row;
    for (std::size_t c = 0; c < columns; ++c) row += fmt::format("{:<{}}  ", line[c], widths[c]);
    row.erase(row.find_last_not_of(' ') + 1);
    text += row + "\n";
  }
  return text;
}

std::string TrackName(std::size_t index, const LogMeasurement& measurement) {
  const bool isOne = measurement.startChannel == measurement.endChannel;
  return fmt::format("track {} ({} {})", index + 1, isOne ? "channel" : "channels",
                     Channels(measurement));
}

std::string LimiterDelayText(int sampleRate) {
  constexpr double kMillisecondsPerSecond = 1000.0;
  return fmt::format("{} frames ({:.3f} ms)", kLimiterDelayFrames,
                     kLimiterDelayFrames * kMillisecondsPerSecond / sampleRate);
}

}  // namespace harvane
