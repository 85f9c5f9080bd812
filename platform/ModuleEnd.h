#ifndef HARVANE_PLATFORM_MODULEEND_H
#define HARVANE_PLATFORM_MODULEEND_H

#include "platform/JuceCore.h"

namespace harvane {

// True from the moment at which the process ends with this module still loaded,
// where the system has ended all other threads before it tells the module (a
// Windows DLL). A thread that was cut off may hold any lock for ever, so nothing
// may be waited for. Always false elsewhere.
bool ProcessIsEnding();

#ifdef _WIN32
// Called by the module's entry point when the process ends.
void NoteProcessEnd();
#endif

// One call of the host, for as long as it is inside this module.
//
// Where a process calls exit while other threads are at work in the module, its statics and those
// of the libraries below it (libxml2's, JUCE's) are destroyed under them. So the end waits until
// they are outside, kCallTimeoutMs at most. Whoever comes in later is held for kLateCallMs, by when
// the process is mostly gone, and refused then: a static object of the host may be waiting for that
// thread. The thread that ends the process still comes in: such an object may hold an instance.
// Nothing to do on Windows, where these threads are gone by then.
//
// Cost     two atomic operations.
// Thread   any; calls may be nested. No thread-local data: LeakSanitizer falls over that of a
//          module that is unloaded.
class ModuleCall {
 public:
  ModuleCall();
  ~ModuleCall();
  ModuleCall(const ModuleCall&) = delete;
  ModuleCall& operator=(const ModuleCall&) = delete;

  // This call must do nothing.
  bool IsRefused() const { return isRefused; }

  // The end has begun: statics may be gone.
  static bool IsModuleEnding();
  // Begins the end. At the latest, what the first call registered does it.
  static void EndModule();

 private:
  bool isRefused = false;
};

inline constexpr int kCallTimeoutMs = 1000;
inline constexpr int kLateCallMs = 2000;  // an end waits as long, for calls and for the writer

// Ends a juce::Thread so that none of this module's code runs on it afterwards,
// and the module may be taken out of memory. juce::Thread itself counts a thread
// as ended while that thread still has module code to leave.
//
// Use: the thread's run() calls Enter first and Leave last. Another thread calls
// AwaitEntry after startThread, and Stop, once.
class ThreadEnd {
 public:
  ThreadEnd();
  ~ThreadEnd();
  ThreadEnd(const ThreadEnd&) = delete;
  ThreadEnd& operator=(const ThreadEnd&) = delete;

  void Enter();

  // On Windows does not return: the thread waits, holding nothing, to be ended
  // by Stop. A thread of a DLL cannot end by itself while the DLL is being
  // unloaded, and must not come back to code that is gone.
  void Leave();

  // Waits until the thread is in run(), `timeoutMs` at most. On Windows a thread that
  // was only just started would hang at its very beginning as soon as the DLL is being
  // unloaded. On Linux it would make JUCE's static of the threads behind the statics of
  // whoever has started it, which is then gone before them.
  void AwaitEntry(int timeoutMs);

  // Asks `thread` to exit and waits up to `timeoutMs` for it; then ends it by
  // force. False where force cut run() off, or run() never began.
  bool Stop(juce::Thread* thread, int timeoutMs);

 private:
  struct State;
  std::unique_ptr<State> state;
};

}  // namespace harvane

#endif  // HARVANE_PLATFORM_MODULEEND_H
