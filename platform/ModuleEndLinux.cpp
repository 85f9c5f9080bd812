#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "platform/ModuleEnd.h"

namespace harvane {
namespace {

// For a thread that hangs. juce::Thread would cancel it, and the unwinding of a
// cancelled thread ends the process where JUCE catches it.
const int kEndSignal = SIGRTMAX - 1;

void EndThisThread(int /*signal*/) { syscall(SYS_exit, 0); }

bool IsGone(pid_t threadId) { return syscall(SYS_tgkill, getpid(), threadId, 0) != 0; }

template <class Condition>
void WaitUntil(Condition condition, int timeoutMs) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!condition() && std::chrono::steady_clock::now() < end) juce::Thread::sleep(1);
}

void WaitUntilGone(pid_t threadId, int timeoutMs) {
  WaitUntil([threadId] { return IsGone(threadId); }, timeoutMs);
}

void EndByForce(pid_t threadId, int timeoutMs) {
  struct sigaction ending = {};
  struct sigaction before = {};
  ending.sa_handler = EndThisThread;
  if (sigaction(kEndSignal, &ending, &before) != 0) return;
  syscall(SYS_tgkill, getpid(), threadId, kEndSignal);
  WaitUntilGone(threadId, timeoutMs);
  sigaction(kEndSignal, &before, nullptr);
}

}  // namespace

bool ProcessIsEnding() { return false; }

namespace {

std::atomic<int> callsInside{0};
std::atomic<pid_t> endingThread{0};

pid_t ThisThread() { return static_cast<pid_t>(syscall(SYS_gettid)); }

// Made by the first call, so behind all statics of the files: destroyed before them.
struct EndsModule {
  EndsModule() = default;
  ~EndsModule() { ModuleCall::EndModule(); }
};

}  // namespace

ModuleCall::ModuleCall() {
  static const EndsModule end;
  ++callsInside;
  if (!IsModuleEnding() || endingThread == ThisThread()) return;
  --callsInside;
  isRefused = true;
  std::this_thread::sleep_for(std::chrono::milliseconds(kLateCallMs));
}

ModuleCall::~ModuleCall() {
  if (!isRefused) --callsInside;
}

bool ModuleCall::IsModuleEnding() { return endingThread != 0; }

void ModuleCall::EndModule() {
  pid_t nobody = 0;
  if (!endingThread.compare_exchange_strong(nobody, ThisThread())) return;
  WaitUntil([] { return callsInside <= 0; }, kCallTimeoutMs);
}

struct ThreadEnd::State {
  std::atomic<pid_t> threadId{0};
  std::atomic<bool> hasLeft{false};
};

ThreadEnd::ThreadEnd() : state(std::make_unique<State>()) {}
ThreadEnd::~ThreadEnd() = default;

void ThreadEnd::Enter() { state->threadId = ThisThread(); }

void ThreadEnd::Leave() { state->hasLeft = true; }

void ThreadEnd::AwaitEntry(int timeoutMs) {
  WaitUntil([this] { return state->threadId != 0; }, timeoutMs);
}

bool ThreadEnd::Stop(juce::Thread* thread, int timeoutMs) {
  thread->signalThreadShouldExit();
  thread->notify();
  const bool hasEnded = thread->waitForThreadToExit(timeoutMs);
  const pid_t id = state->threadId;
  if (!hasEnded && id != 0) EndByForce(id, timeoutMs);
  thread->stopThread(0);
  // A thread that ended by itself still returns through this module's code after
  // JUCE has let go of it.
  if (hasEnded && id != 0) WaitUntilGone(id, timeoutMs);
  return state->hasLeft;
}

}  // namespace harvane
