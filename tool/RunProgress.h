#ifndef HARVANE_TOOL_RUNPROGRESS_H
#define HARVANE_TOOL_RUNPROGRESS_H

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <map>
#include <optional>
#include <string>

#include "tool/FileJob.h"
#include "tool/FileResult.h"

namespace harvane {

// How far a run is.
struct RunState {
  std::size_t files = 0;
  std::size_t filesDone = 0;    // in whatever way they ended
  std::size_t filesFailed = 0;  // of these, those that are neither done nor skipped
  std::string step;             // what a run of one file does just now
  double part = 0.0;            // of all the work, 0 to 1; files count alike
  double audioSeconds = 0.0;    // of material done; all passes over it together count once
  double elapsedSeconds = 0.0;  // of the clock
};

// Seconds until the end, if it goes on like this; empty before anything is done.
std::optional<double> SecondsLeft(const RunState& state);

// "3/20 files [####      ]  45 %  312 x real time  1:20 left", at most `columns` characters; with
// one file its step in place of the number of files. What is not known yet is left out.
std::string ProgressLine(const RunState& state, int columns);

// The same as one line of JSON, without its end: {"event":"progress","files":20,"filesDone":3,
// "filesFailed":0,"part":0.45,"speed":312.1,"secondsLeft":80.2}. Null: not known.
std::string ProgressJson(const RunState& state);

// {"event":"file","input":"a.wav","status":"done","seconds":1.2}
std::string FileEventJson(const FileResult& file);

// How far a run is, on a stream that may be a terminal, where one line is written over, ten times a
// second; or as lines of JSON, twice a second and at the end of each file; or not at all.
// Errors: none that are reported. Thread: one.
class RunProgress {
 public:
  enum class Way { kAuto, kNone, kJson };  // kAuto: the line on a terminal, else nothing

  // `passes`: how often the job goes over a file.
  RunProgress(std::FILE* stream, Way way, std::size_t files, int passes);
  // Clears the line.
  ~RunProgress();
  RunProgress(const RunProgress&) = delete;
  RunProgress& operator=(const RunProgress&) = delete;

  // True where news of the files are of any use.
  bool IsShown() const { return way != Way::kNone; }

  void Note(std::size_t file, const JobProgress& progress);
  void End(std::size_t file, const FileResult& result);
  void Tick();

  // Before anything else is written to the terminal.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;
  struct Running {
    double part = 0.0;
    double audioSeconds = 0.0;  // of the whole file
  };

  RunState State() const;
  void Show();

  std::FILE* stream;
  Way way;
  int passes;
  RunState ended;  // of the files that have come to their end
  std::map<std::size_t, Running> running;
  Clock::time_point start = Clock::now();
  Clock::time_point next = start;
  bool isLineShown = false;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_RUNPROGRESS_H
