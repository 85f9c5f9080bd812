#ifndef HARVANE_TOOL_WORKERPROCESS_H
#define HARVANE_TOOL_WORKERPROCESS_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tool/Interruption.h"

namespace harvane {

// What workers need of the system: processes with pipes between them. What goes through the pipes
// is no matter of this file.

// A process whose three standard streams are pipes to this one. It is in a group of its own, so
// that a key pressed at the terminal does not reach it, and ends with the object.
//
// Linux      asked to end by SIGTERM, killed by SIGKILL, each to the whole group.
// Windows    asked to end by Ctrl-Break, where there is a console. It lies in a job object, which
//            is killed as a whole, and with this process, however that ends.
// Texts      UTF-8. What comes on Windows comes without carriage returns where it is an error.
// Errors     std::bad_alloc; std::system_error where no pipe can be made.
// Thread     all calls come from one.
class WorkerProcess {
 public:
  // A path to the program, and its arguments.
  explicit WorkerProcess(const std::vector<std::string>& command);
  // Kills it with all that it has started.
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  // Why there is no process; empty where there is one. Without one no other function may be called.
  const std::string& StartError() const;

  // False where nobody reads. Waits while the pipe is full.
  bool WriteLine(const std::string& line);
  // The end of its standard input.
  void CloseInput();

  // Append what it has written and what was not read yet, without waiting. False at the end of the
  // stream.
  bool ReadOutput(std::string* text);
  bool ReadErrors(std::string* text);

  // Appends what Interruption::Await must look at to notice that there is something to read.
  void AddAwaited(std::vector<Awaited>* awaited) const;

  void AskToEnd();
  void Kill();

  // In words how it ended; empty while it lives. What it has started is killed by then, and all
  // that it wrote can be read. Tells it once.
  std::optional<std::string> TakeEnd();

 private:
  struct System;
  std::unique_ptr<System> system;
};

// The worker's side of it: the streams to the process that has started this one, taken over. What
// anything else here writes to standard output goes to standard error, and standard input is empty.
// This process ends when the other one does.
//
// Thread     one caller at a time; one object in a process.
class WorkerStreams {
 public:
  WorkerStreams();
  ~WorkerStreams();
  WorkerStreams(const WorkerStreams&) = delete;
  WorkerStreams& operator=(const WorkerStreams&) = delete;

  // Waits for something to read, and appends it. False at the end of the stream.
  bool Read(std::string* text);
  // False where nobody reads. Waits while the pipe is full.
  bool WriteLine(const std::string& line);

 private:
  struct System;
  std::unique_ptr<System> system;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_WORKERPROCESS_H
