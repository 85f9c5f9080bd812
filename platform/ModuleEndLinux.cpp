#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

#include "platform/ModuleEnd.h"

namespace harvane {

bool ProcessIsEnding() { return false; }

struct ThreadEnd::State {
  std::atomic<pid_t> threadId{0};
  std::atomic<bool> hasLeft{false};
};

ThreadEnd::ThreadEnd() : state(std::make_unique<State>()) {}
ThreadEnd::~ThreadEnd() = default;

void ThreadEnd::Enter() { state->threadId = static_cast<pid_t>(syscall(SYS_gettid)); }

void ThreadEnd::Leave() { state->hasLeft = true; }

bool ThreadEnd::Stop(juce::Thread* thread, int timeoutMs) {
  thread->stopThread(timeoutMs);
  const bool hasLeft = state->hasLeft;
  // The thread still returns through this module's code after JUCE has let go of it.
  const pid_t id = state->threadId;
  for (int waitedMs = 0; hasLeft && waitedMs < timeoutMs; ++waitedMs) {
    if (syscall(SYS_tgkill, getpid(), id, 0) != 0) break;
    juce::Thread::sleep(1);
  }
  return hasLeft;
}

}  // namespace harvane
