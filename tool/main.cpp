#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include "delay_audio/PassObserver.h"
#include "host/CommandLine.h"
#include "host/JobRun.h"
#include "host/LogPlace.h"
#include "host/Report.h"
#include "tool/Commands.h"

namespace {

using harvane::JobRequest;

void RunFile(const JobRequest& request, bool isMeasure) {
  const auto tracks = isMeasure ? harvane::MeasureFile(request) : harvane::NormaliseFile(request);
  fmt::print("{}", harvane::ReportTable(isMeasure ? request.input : request.output, tracks));
}

// False, with a line on standard error, where the file failed.
bool Succeeds(const JobRequest& request, bool isMeasure) {
  try {
    RunFile(request, isMeasure);
    return true;
  } catch (const std::bad_alloc&) {
    fmt::print(stderr, "harvane: {}: memory exhausted\n", request.input);
  } catch (const std::exception& failure) {
    fmt::print(stderr, "harvane: {}\n", failure.what());
  }
  return false;
}

// The state of the linked module's log, as far as it tells that rows were added.
struct LogState {
  std::string path;
  juce::Time changed;
  juce::int64 bytes;
  bool operator==(const LogState&) const = default;
};

LogState StateOfLog(const JobRequest& request) {
  const std::string path = harvane::LogFileFor(request.parameters, juce::Time::getCurrentTime());
  const juce::File file(juce::String::fromUTF8(path.c_str()));
  return {path, file.getLastModificationTime(), file.getSize()};
}

// Completes the linked module's log and says where it is, or that it should be there.
void FinishLog(const JobRequest& request, const LogState& start, bool isAnyDone) {
  harvane::WriteWaitingLogRows();
  const LogState end = StateOfLog(request);
  if (!(end == start)) {
    fmt::print(stderr, "harvane: log: {}\n", end.path);
  } else if (isAnyDone) {
    fmt::print(stderr, "harvane: warning: the log could not be written: {}\n", end.path);
  }
}

// Commands that do no job by themselves.
void AddOtherCommands(CLI::App* app, harvane::Run* run) {
  harvane::AddLogCommand(app, run);
  harvane::AddMergeCommand(app, run);
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    // A write beyond the limit of file sizes shall fail as an error of that file.
    std::signal(SIGXFSZ, SIG_IGN);
    harvane::Options options;
    harvane::Run run;
    const auto code = harvane::ParseCommandLine(
        argumentCount, arguments, &options, [&run](CLI::App* app) { AddOtherCommands(app, &run); });
    if (code) return *code;
    if (run) return run();
    const LogState start = StateOfLog(options.request);
    bool isAllDone = true;
    bool isAnyDone = false;
    for (const std::string& input : options.inputs) {
      options.request.input = input;
      const bool isDone = Succeeds(options.request, options.isMeasure);
      isAllDone = isAllDone && isDone;
      isAnyDone = isAnyDone || isDone;
    }
    if (options.request.module.empty()) FinishLog(options.request, start, isAnyDone);
    if (std::fflush(stdout) != 0) {
      fmt::print(stderr, "harvane: the results cannot be written to standard output\n");
      return harvane::kFileFailed;
    }
    return isAllDone ? harvane::kDone : harvane::kFileFailed;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "harvane: %s\n", failure.what());
    return harvane::kFileFailed;
  }
}
