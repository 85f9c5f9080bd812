#include <windows.h>

#include <atomic>

#include "platform/ModuleEnd.h"

namespace harvane {
namespace {

std::atomic<bool> isProcessEnding{false};

// Takes JUCE's line about killing a thread, which is true only where a thread
// that was still at work is ended.
class SilentLogger : public juce::Logger {
 public:
  SilentLogger() : previous(getCurrentLogger()) { setCurrentLogger(this); }
  ~SilentLogger() override { setCurrentLogger(previous); }
  void logMessage(const juce::String& /*message*/) override {}

 private:
  juce::Logger* previous;
};

}  // namespace

bool ProcessIsEnding() { return isProcessEnding; }
void NoteProcessEnd() { isProcessEnding = true; }

ModuleCall::ModuleCall() = default;
ModuleCall::~ModuleCall() = default;
bool ModuleCall::IsModuleEnding() { return false; }
void ModuleCall::EndModule() {}

struct ThreadEnd::State {
  HANDLE entered = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE left = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE thread = nullptr;  // from Enter on
};

ThreadEnd::ThreadEnd() : state(std::make_unique<State>()) {}

ThreadEnd::~ThreadEnd() {
  for (const HANDLE handle : {state->entered, state->left, state->thread}) {
    if (handle != nullptr) CloseHandle(handle);
  }
}

void ThreadEnd::Enter() {
  const HANDLE process = GetCurrentProcess();
  DuplicateHandle(process, GetCurrentThread(), process, &state->thread, SYNCHRONIZE, FALSE, 0);
  SetEvent(state->entered);
}

void ThreadEnd::Leave() {
  SetEvent(state->left);
  for (;;) Sleep(INFINITE);
}

void ThreadEnd::AwaitEntry(int timeoutMs) {
  WaitForSingleObject(state->entered, static_cast<DWORD>(timeoutMs));
}

bool ThreadEnd::Stop(juce::Thread* thread, int timeoutMs) {
  thread->signalThreadShouldExit();
  thread->notify();
  const bool hasLeft =
      WaitForSingleObject(state->left, static_cast<DWORD>(timeoutMs)) == WAIT_OBJECT_0;
  if (hasLeft) {
    const SilentLogger silent;
    thread->stopThread(0);
  } else {
    thread->stopThread(0);
  }
  // A thread ends some time after it was told to.
  if (WaitForSingleObject(state->entered, 0) == WAIT_OBJECT_0 && state->thread != nullptr) {
    WaitForSingleObject(state->thread, static_cast<DWORD>(timeoutMs));
  }
  return hasLeft;
}

}  // namespace harvane
