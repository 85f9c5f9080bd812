#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <bit>
#include <vector>

#include "tool/ChildProcessWindows.h"
#include "tool/OwnProcess.h"

namespace harvane {
namespace {

constexpr int kOutput = 1;
constexpr int kErrors = 2;

// A closed stream of the C library has no descriptor, and the next file would get it.
void FillStandardStreams() {
  for (;;) {
    const int number = _open("NUL", _O_RDWR | _O_BINARY);
    if (number < 0) return;
    if (number > kErrors) {
      _close(number);
      return;
    }
  }
}

}  // namespace

void PrepareProcess() {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
  FillStandardStreams();
  _setmode(kOutput, _O_BINARY);
  _setmode(kErrors, _O_BINARY);
  SetConsoleOutputCP(CP_UTF8);
}

std::string OwnProgram() {
  std::vector<wchar_t> path(MAX_PATH);
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length < path.size()) return PlainText({path.data(), length});
    path.resize(2 * path.size());
  }
}

int UsableProcessors() {
  DWORD_PTR usable = 0;
  DWORD_PTR all = 0;
  if (GetProcessAffinityMask(GetCurrentProcess(), &usable, &all) == FALSE || usable == 0) return 1;
  return std::popcount(usable);
}

struct ProgramTurn::Lock {
  SystemHandle mutex{CreateMutexW(nullptr, FALSE, L"Global\\HarvaneProgramTurn")};
  bool isHeld = false;
};

ProgramTurn::ProgramTurn() : lock(std::make_unique<Lock>()) {
  if (!lock->mutex.IsOpen()) return;
  // Also where its last holder died.
  const DWORD answer = WaitForSingleObject(lock->mutex.Get(), INFINITE);
  lock->isHeld = answer == WAIT_OBJECT_0 || answer == WAIT_ABANDONED;
}

ProgramTurn::~ProgramTurn() {
  if (lock->isHeld) ReleaseMutex(lock->mutex.Get());
}

}  // namespace harvane
