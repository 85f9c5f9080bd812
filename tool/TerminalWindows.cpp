#include <io.h>
#include <windows.h>

#include "tool/Terminal.h"

namespace harvane {
namespace {

constexpr int kUsualColumns = 80;
constexpr DWORD kEscapeSequences = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING

HANDLE HandleOf(std::FILE* stream) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
}

}  // namespace

bool IsLineTerminal(std::FILE* stream) {
  DWORD mode = 0;
  return GetConsoleMode(HandleOf(stream), &mode) != FALSE &&
         SetConsoleMode(HandleOf(stream), mode | kEscapeSequences) != FALSE;
}

bool IsColourTerminal(std::FILE* stream) { return IsLineTerminal(stream); }

int TerminalColumns(std::FILE* stream) {
  CONSOLE_SCREEN_BUFFER_INFO screen{};
  if (GetConsoleScreenBufferInfo(HandleOf(stream), &screen) == FALSE) return kUsualColumns;
  return screen.srWindow.Right - screen.srWindow.Left + 1;
}

}  // namespace harvane
