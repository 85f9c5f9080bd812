#ifndef HARVANE_HOST_REPORT_H
#define HARVANE_HOST_REPORT_H

#include <optional>
#include <string>
#include <vector>

#include "logging/LogMeasurement.h"
#include "normalisation/GainDecision.h"

namespace harvane {

inline constexpr int kLimiterDelayFrames = 95;

// One track of a finished job.
struct TrackReport {
  LogMeasurement before;
  std::optional<LogMeasurement> after;  // this and the next: in a job of two passes
  std::optional<GainDecision> decision;
};

// The results of one file as a table with a line per track and pass, under the
// file's name. Values are unrounded: the shortest text that reads back as the same
// single-precision number. A value that was not measured says so. Channels count
// from 1.
// Errors: std::bad_alloc. Thread: any.
std::string ReportTable(const std::string& path, const std::vector<TrackReport>& tracks);

// "track 2 (channels 3-4)" for the measurement of track `index`, which counts from 0.
std::string TrackName(std::size_t index, const LogMeasurement& measurement);

// "95 frames (1.979 ms)"
std::string LimiterDelayText(int sampleRate);

}  // namespace harvane

#endif  // HARVANE_HOST_REPORT_H
