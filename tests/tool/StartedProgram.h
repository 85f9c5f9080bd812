#ifndef HARVANE_TESTS_TOOL_STARTEDPROGRAM_H
#define HARVANE_TESTS_TOOL_STARTEDPROGRAM_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/TemporaryFolder.h"

namespace support {

// The program under way in a workplace, for what happens to it meanwhile. Killed at the end.
class StartedProgram {
 public:
  StartedProgram(const Workplace& place, const std::vector<std::string>& arguments);
  ~StartedProgram();
  StartedProgram(const StartedProgram&) = delete;
  StartedProgram& operator=(const StartedProgram&) = delete;

  // What it has written by now.
  std::string Out() const;
  std::string Err() const;

  // Its worker processes.
  std::vector<pid_t> Workers() const;

  void Signal(int signal) const;
  RunResult Wait();

 private:
  TemporaryFolder home;
  TemporaryFolder streams;
  pid_t process = -1;
};

// True once `isSo` is true, false after half a minute.
bool Comes(const std::function<bool()>& isSo);

// True where the process is gone, or dead and only not waited for.
bool IsDead(pid_t process);

}  // namespace support

#endif  // HARVANE_TESTS_TOOL_STARTEDPROGRAM_H
