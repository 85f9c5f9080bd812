#ifndef HARVANE_TOOL_RESULTS_RESULTTEXT_H
#define HARVANE_TOOL_RESULTS_RESULTTEXT_H

#include <string>

#include "tool/FileResult.h"

namespace harvane {

// The results for people, as plain text in UTF-8. Values are unrounded (ResultNumbers.h), channels
// and tracks count from 1, and a value that was not measured says so.
// Errors: std::bad_alloc. Thread: any.

// One file: its name and state; a table with a line per track and pass, gain, limiter and delay
// where anything was processed, libebur128's values where they were asked for; then the verdicts
// rule by rule, what repeating came to, and the notes. Ends in a blank line.
std::string FileText(const FileResult& file);

// How many files became what, and the verdicts: "25 files: 23 done, 1 failed, 1 crashed; verdicts:
// 20 pass, 3 fail". A list of the files that are not done follows, with their errors.
std::string SummaryText(const RunResult& run);

// All files and the summary.
std::string RunText(const RunResult& run);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_RESULTTEXT_H
