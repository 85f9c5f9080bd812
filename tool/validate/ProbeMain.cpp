// harvane-probe: a module probed by a program of the module's own platform.

#include <string>
#include <vector>

#include "tool/validate/Probe.h"

#ifdef _WIN32
#include <windows.h>
// Behind windows.h, whose types it takes.
#include <shellapi.h>

namespace {

std::string Utf8(const wchar_t* wide) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, text.data(), size, nullptr, nullptr);
  text.pop_back();
  return text;
}

}  // namespace

int main() {
  // No dialog where a module crashes.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  int count = 0;
  LPWSTR* const wide = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(Utf8(wide[i]));
  harvane::RunProbe(arguments);
}
#else
int main(int count, char** arguments) { harvane::RunProbe({arguments + 1, arguments + count}); }
#endif
