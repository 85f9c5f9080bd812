#ifndef HARVANE_TOOL_RESULTS_RESULTNAMES_H
#define HARVANE_TOOL_RESULTS_RESULTNAMES_H

#include <string>
#include <string_view>

#include "tool/FileResult.h"

namespace harvane {

// The words of the JSON and the CSV: "done", "timedOut"; "processed", "withinTolerance"; "pass",
// "notMeasured". Thread: any.
const char* NameOf(FileStatus status);
const char* NameOf(TrackAction action);
const char* NameOf(Verdict verdict);

// The value that a name stands for. False, and nothing written, where it is none.
bool FromName(std::string_view name, FileStatus* status);
bool FromName(std::string_view name, TrackAction* action);
bool FromName(std::string_view name, Verdict* verdict);

// "3", "1-2", "1,3,2": the channels of a track. `dash` stands between the ends.
std::string ChannelsOf(const TrackResult& track, const char* dash = "-");

// How samples became 16 bits, where no note says so already; else empty.
std::string UnnotedReduction(const FileResult& file);

// True where any rule was judged.
bool HasVerdicts(const TrackResult& track);
bool HasVerdicts(const FileResult& file);

// The verdict on all rules together: fail before not measured before pass. Not measured where
// there are none.
Verdict VerdictOf(const TrackResult& track);
Verdict VerdictOf(const FileResult& file);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_RESULTNAMES_H
