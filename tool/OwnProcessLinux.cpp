#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "host/PendingFile.h"
#include "tool/OwnProcess.h"

namespace harvane {
namespace {

constexpr const char* kThisProgram = "/proc/self/exe";

void FillStandardStreams() {
  for (;;) {
    const int number = open("/dev/null", O_RDONLY);
    if (number < 0) return;
    if (number > STDERR_FILENO) {
      close(number);
      return;
    }
  }
}

}  // namespace

void PrepareProcess() {
  FillStandardStreams();
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
}

std::string OwnProgram() { return kThisProgram; }

int UsableProcessors() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) return 1;
  return std::max(1, CPU_COUNT(&processors));
}

// The end of the descriptor gives it back.
struct ProgramTurn::Lock {
  Descriptor program{open(kThisProgram, O_RDONLY | O_CLOEXEC)};
};

ProgramTurn::ProgramTurn() : lock(std::make_unique<Lock>()) {
  flock(lock->program.Number(), LOCK_EX);
}

ProgramTurn::~ProgramTurn() = default;

}  // namespace harvane
