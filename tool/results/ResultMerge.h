#ifndef HARVANE_TOOL_RESULTS_RESULTMERGE_H
#define HARVANE_TOOL_RESULTS_RESULTMERGE_H

#include <string>
#include <vector>

#include "tool/FileResult.h"

namespace harvane {

// A part of a run: what one shard, or one start of it, has written.
struct ResultPart {
  std::string path;
  RunResult run;
  std::vector<std::string> problems;  // "PATH: reason", one line each; empty: it was read whole
};

// JSON or JSON Lines, by what it holds. A file that cannot be read is a problem. A part with
// problems still has the files that could be read.
// Errors: std::bad_alloc. Thread: any.
ResultPart ReadResultPart(const std::string& path);

// True where `file` needs no other run: done, or skipped with good reason.
bool IsComplete(const FileResult& file);

struct Merged {
  RunResult run;
  std::vector<std::string> remarks;  // one line each: a file in two parts, parts of unlike runs
};

// Joins the parts. The result does not depend on how the files are spread over them.
//
// Twice      of two results for one input the better counts: done, skipped, failed in any way,
//            interrupted; of equally good ones that of the part named later.
// Order      that of `expected`, then, and without it, by the bytes of the names.
// Missing    an expected file without a result failed with "no result".
// Run        command, preset, targets and version are those of the first part that has a command.
// Errors: std::bad_alloc. Thread: any.
Merged MergeParts(const std::vector<ResultPart>& parts, const std::vector<std::string>& expected);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_RESULTMERGE_H
