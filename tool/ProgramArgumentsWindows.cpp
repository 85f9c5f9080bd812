#include <windows.h>
// Behind windows.h, whose types it takes.
#include <shellapi.h>

#include <new>

#include "tool/ProgramArguments.h"

namespace harvane {
namespace {

// Half of a surrogate pair becomes U+FFFD.
std::string Utf8(const wchar_t* wide) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, text.data(), size, nullptr, nullptr);
  text.pop_back();
  return text;
}

}  // namespace

std::vector<std::string> ProgramArguments(int /*count*/, const char* const* /*arguments*/) {
  int count = 0;
  LPWSTR* const wide = CommandLineToArgvW(GetCommandLineW(), &count);
  if (wide == nullptr) throw std::bad_alloc();
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(Utf8(wide[i]));
  LocalFree(wide);
  return arguments;
}

}  // namespace harvane
