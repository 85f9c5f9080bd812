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

struct ThreadEnd::State {
  HANDLE left = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

ThreadEnd::ThreadEnd() : state(std::make_unique<State>()) {}
ThreadEnd::~ThreadEnd() { CloseHandle(state->left); }

void ThreadEnd::Enter() {}

void ThreadEnd::Leave() {
  SetEvent(state->left);
  for (;;) Sleep(INFINITE);
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
  return hasLeft;
}

}  // namespace harvane
