#ifndef HARVANE_TOOL_WORKERS_H
#define HARVANE_TOOL_WORKERS_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace harvane {

class Interruption;

// Jobs in processes of their own, for a job may end its process.
//
// A worker process lives long and does one job at a time. It is started by its command, which must
// come to ServeJobs, and again where it has died with jobs left to do. It has a process group of
// its own, so that a key pressed at the terminal reaches only the program that is in charge, and
// ends when that one ends, however it does.
//
// Jobs, answers and news are texts of one line, without its end, that this file does not look into.

// How one job came to its end.
struct JobEnd {
  enum class Kind {
    kAnswered,
    kCrashed,      // its worker died, or none could be started
    kTimedOut,     // its worker was ended
    kInterrupted,  // its worker was ended at the user's wish
  };
  std::size_t job;  // index
  Kind kind;
  std::string text;  // the answer, or in words how the worker ended
  double seconds;    // since the job was handed out
};

struct WorkerSettings {
  std::vector<std::string> command;      // a path to the program, and its arguments
  int processes = 1;                     // at most, from 1
  std::optional<double> timeoutSeconds;  // for one job
};

// Called between the waits, one at a time. Must not throw.
struct WorkerListener {
  std::function<void(std::size_t job)> onStart;
  std::function<void(const JobEnd& end)> onEnd;
  std::function<void(std::size_t job, const std::string& text)> onNews;
  std::function<void(const std::string& line)> onErrorLine;  // what a worker says on stderr
  std::function<void()> onTick;                              // now and then, ten times a second
};

// Does all jobs, begun in their order. Each is told to the listener once at its end, but after an
// interruption those that were not handed out: they are not told of. True where none is left out.
//
// Crash      a worker that dies before it has begun with its job gives it back, three times at
//            most. Three workers in turn that die before they are ready: the jobs that are left
//            end as crashed.
// Ending     a worker is asked to end, and a second later killed (WorkerProcess.h).
// Errors     std::bad_alloc, std::system_error where no pipe can be made; the workers are then
//            ended.
// Thread     one caller at a time, and the process has no other child that it waits for.
bool RunInWorkers(const WorkerSettings& settings, const std::vector<std::string>& jobs,
                  const WorkerListener& listener, Interruption* interruption);

// What a worker does to a job: gives the answer, and may tell news meanwhile. Must not throw.
using TellNews = std::function<void(const std::string& text)>;
using WorkerJob = std::function<std::string(const std::string& job, const TellNews& tell)>;

// The worker's side: does jobs until there are no more. What anything else in the process writes
// to standard output goes to standard error, and its standard input is empty.
void ServeJobs(const WorkerJob& work);

}  // namespace harvane

#endif  // HARVANE_TOOL_WORKERS_H
