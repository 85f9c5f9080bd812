#include <windows.h>

#include <atomic>
#include <csignal>
#include <system_error>

#include "tool/FileResult.h"
#include "tool/Interruption.h"

namespace harvane {
namespace {

// After the handler of such a wish Windows ends the process, and after a few seconds in any case.
constexpr DWORD kLeaveMs = 10'000;

std::atomic<int> wishCount{0};
std::atomic<HANDLE> wish{nullptr};  // an event

void NoteInterruption() {
  if (wishCount.fetch_add(1) > 0) TerminateProcess(GetCurrentProcess(), kExitInterrupted);
  SetEvent(wish);
}

extern "C" void NoteSignal(int signal) {
  std::signal(signal, NoteSignal);  // it holds for one time only
  NoteInterruption();
}

// On a thread of its own.
BOOL WINAPI NoteConsole(DWORD kind) {
  NoteInterruption();
  if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) Sleep(kLeaveMs);
  return TRUE;
}

}  // namespace

struct Interruption::Former {
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  void (*handler)(int) = nullptr;  // of SIGTERM
};

Interruption::Interruption() : former(std::make_unique<Former>()) {
  if (former->event == nullptr) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                            "interruptions cannot be noted");
  }
  wishCount = 0;
  wish = former->event;
  SetConsoleCtrlHandler(NoteConsole, TRUE);
  former->handler = std::signal(SIGTERM, NoteSignal);
}

Interruption::~Interruption() {
  std::signal(SIGTERM, former->handler);
  SetConsoleCtrlHandler(NoteConsole, FALSE);
  // A handler that is still at work sets an event that is not there, and fails.
  wish = nullptr;
  CloseHandle(former->event);
}

bool Interruption::HasCome() {
  isTold = wishCount.load() > 0;
  return isTold;
}

void Interruption::Await(const std::vector<Awaited>& awaited, int milliseconds) const {
  if (!awaited.empty() || (wishCount.load() > 0 && !isTold)) return;
  WaitForSingleObjectEx(former->event, static_cast<DWORD>(milliseconds), TRUE);
}

}  // namespace harvane
