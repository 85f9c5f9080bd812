#ifndef HARVANE_TOOL_RESULTS_LOGTEXT_H
#define HARVANE_TOOL_RESULTS_LOGTEXT_H

#include <string>
#include <vector>

#include "host/LogReading.h"

namespace harvane {

// Logs of the module for people and programs.
//
// Levels     to one decimal, as they are logged. Not measured, which the log shows as -70.0: "not
//            measured", an empty field, null. What is infinite or not a number is null in JSON.
// Channels   count from 1, over the channels of tracks.
// Times      "00:12:03:09" with video frames, "00:12:03.360" with milliseconds. JSON has the
//            latter in seconds too; a log does not say how many frames a second has.
// Errors     std::bad_alloc. Thread: any.

struct LogOfFile {
  std::string path;
  LogReading reading;
};

// A table under the file's name.
std::string LogTable(const LogOfFile& log);

// One header, and the rows of all logs.
std::string LogCsv(const std::vector<LogOfFile>& logs);

// An object with "rows" and "problems", each with its file and line; harvane-log.schema.json
// describes it.
std::string LogJson(const std::vector<LogOfFile>& logs);

// A row a line.
std::string LogJsonLines(const std::vector<LogOfFile>& logs);

// "FILE:12: reason", or "FILE: reason" for the file as a whole.
std::vector<std::string> LogProblemLines(const LogOfFile& log);

// True where the file, or the end of it, could not be read.
bool IsUnread(const LogReading& reading);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_LOGTEXT_H
