#ifndef HARVANE_TOOL_AUDIORUN_H
#define HARVANE_TOOL_AUDIORUN_H

#include <optional>
#include <string>
#include <vector>

#include "tool/InputFiles.h"
#include "tool/JobOptions.h"
#include "tool/ResultStream.h"
#include "tool/RunProgress.h"

namespace harvane {

// What the user asked for: which files, what becomes of them, and how it is done and shown.
struct AudioRunOptions {
  JobOptions job;  // read by ResolveJobOptions
  InputOptions files;

  std::optional<ResultFormat> format;  // empty: by the ending of the results' file, else text
  std::string resultsFile;             // empty: standard output
  std::string reportFile;              // HTML; empty: none
  std::string seriesFile;              // CSV; empty: none
  std::string resumedFile;             // results of an earlier run; empty: none
  RunProgress::Way progress = RunProgress::Way::kAuto;
  int processes = 1;  // at most; 0: one per processor
  std::optional<double> timeoutSeconds;

  std::vector<std::string> workerCommand;  // starts a process that comes to ServeAudioJobs
};

// Does all files in worker processes and gives the results out: these to standard output or to a
// file, all else to standard error. Files, but for outputs, are written whole or not at all.
//
// Resuming   a file whose earlier result is complete (IsComplete), and whose output is still there,
//            keeps that result, in its place in the list. A missing file of results is a run
//            without any. It must come from the same command with the same targets.
// Interrupt  what runs is ended and has no output; what was done is given out.
// Returns    the exit code: that of the worst file; 130 where it was interrupted; at least 1 where
//            results could not be written.
// Errors     UsageError before anything is done; std::bad_alloc; std::system_error.
int RunAudioFiles(const AudioRunOptions& options);

// A worker's side of it. Returns when there is no more to do.
void ServeAudioJobs(const AudioRunOptions& options);

}  // namespace harvane

#endif  // HARVANE_TOOL_AUDIORUN_H
