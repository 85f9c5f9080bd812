#ifndef HARVANE_TOOL_FILEJOB_H
#define HARVANE_TOOL_FILEJOB_H

#include <cstdint>
#include <functional>
#include <string>

#include "tool/FileResult.h"
#include "tool/JobOptions.h"

namespace harvane {

// How far a file's job is.
struct JobProgress {
  std::string step;             // "measuring", "pass 1 of 2", "pass 2 of 2", "trial 3, pass 1 of 2"
  std::int64_t frames = 0;      // done of this step
  std::int64_t allFrames = -1;  // of this step; negative if unknown
  int sampleRate = 0;           // Hz
};

// Called on the thread of the job, once per unit of 65536 frames. False stops the job, which
// leaves no output.
using ProgressSink = std::function<bool(const JobProgress&)>;

// One file through the module, by options that ResolveJobOptions has read.
//
// Result     all of it, with the wall time. Nothing is printed. `notes` says what a user should
//            know of the module's limits: reduced samples, rough rates, late tracks.
// Status     kDone; kSkipped where --tolerance asks and every track fits; kFailed for the file,
//            its output or a module file that cannot be loaded; kRefused for a code that the
//            module answered; kCrashed where a module ended the process of its own that it was in;
//            kInterrupted where `progress` said so. Errors are one line without the file's name.
//            The output is there only after kDone.
// Throws     nothing for a fault of the file; std::bad_alloc becomes kFailed too.
// Log        the module's rows are the same as those of any host. Rows of the linked module wait
//            until WriteWaitingLogRows, which the end of the program calls. Trials of --converge
//            log to nowhere; a track that was converged has its rows from the job of its own.
// Deaths     jobs that would end the process inside the module are refused before: a limited
//            track at 176400 or 192000 Hz, a document without groups or with more than four.
// Thread     one job at a time in a process.
//
// `output` is empty for a job that writes nothing. `progress` may be null.
FileResult RunFileJob(const JobOptions& options, const std::string& input,
                      const std::string& output, const ProgressSink* progress);

}  // namespace harvane

#endif  // HARVANE_TOOL_FILEJOB_H
