#ifndef HARVANE_TOOL_RESULTS_RESULTJSON_H
#define HARVANE_TOOL_RESULTS_RESULTJSON_H

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tool/FileResult.h"

namespace harvane {

// The results for programs; harvane-result.schema.json describes them.
//
// What is read back equals what was written, field by field and bit by bit, but for two things that
// JSON cannot hold: a number that is infinite or not a number becomes null (or 0 where there is no
// null), and in texts other than file names bytes that are no UTF-8 become U+FFFD.
//
// File names  one that is no UTF-8 is shown with U+FFFD and stands whole, in hexadecimal, under
//             "inputBytes" or "outputBytes".
// Derived     "exitCode" of a run and "verdict" of a file are for the reader; reading back passes
//             over them, and over keys that it does not know.
// Numbers     the shortest text that reads back as the same double; series: as the same float.
// Thread      any.

// Text that is no result: not JSON, a key missing, a value of another kind. One line.
class ResultError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The whole run, indented, with a line end behind it. Errors: std::bad_alloc.
std::string ToJson(const RunResult& run);

// One file on one line, with a line end behind it. Errors: std::bad_alloc.
std::string ToJsonLine(const FileResult& file);

// The same, with all of the run but its files beside it, under "run": a line that stands alone.
std::string ToJsonLine(const FileResult& file, const RunResult& run);

// Errors: ResultError, std::bad_alloc.
FileResult FileResultFromJson(std::string_view text);
RunResult RunResultFromJson(std::string_view text);

// What a text of results holds.
struct ReadResults {
  RunResult run;
  std::vector<std::string> problems;  // one line each; empty: all was read
};

// What ToJson wrote, or any number of lines of ToJsonLine. The run's own fields are those of the
// last line that has them. A last line without its end was cut: that is a problem, and so is a line
// that cannot be read; the others count. Errors: std::bad_alloc.
ReadResults ReadJsonOrLines(std::string_view text);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_RESULTJSON_H
