#ifndef HARVANE_HOST_JOBRUN_H
#define HARVANE_HOST_JOBRUN_H

#include <string>
#include <vector>

#include "host/ParameterDocument.h"
#include "host/Report.h"

namespace harvane {

// One file's job, as the command line asks for it.
struct JobRequest {
  std::string input;
  std::string output;             // empty where nothing is written
  std::vector<int> groupFormats;  // empty: chosen by the number of channels
  JobParameters parameters;       // passes, formats and names of files are filled in by the run
  std::string module;             // a module file; empty for the linked module
  bool isLogAwaited = false;      // keep a module file until its log is written
};

// Runs the job: all of the input through one pass and back, or through two and to
// the output. Notes, warnings and progress go to standard error.
//
// Values     of a linked module: its own, as the log gets them. A module file tells
//            none; what went in and what came out is then measured by the linked
//            module, and the decision is what that module would decide.
// Errors     FileError, naming the file and, where it is one, the track; ModuleError;
//            std::bad_alloc. The output is then as it was before.
//
// A limiter at 176400 or 192000 Hz would end the process inside the module; such a
// job is refused between the passes.
std::vector<TrackReport> MeasureFile(const JobRequest& request);
std::vector<TrackReport> NormaliseFile(const JobRequest& request);

}  // namespace harvane

#endif  // HARVANE_HOST_JOBRUN_H
