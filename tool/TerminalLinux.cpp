#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "tool/Terminal.h"

namespace harvane {
namespace {

constexpr int kUsualColumns = 80;
constexpr std::string_view kDumb = "dumb";

}  // namespace

bool IsLineTerminal(std::FILE* stream) {
  const char* const kind = std::getenv("TERM");
  return isatty(fileno(stream)) != 0 && (kind == nullptr || kind != kDumb);
}

bool IsColourTerminal(std::FILE* stream) {
  const char* const kind = std::getenv("TERM");
  return isatty(fileno(stream)) != 0 && kind != nullptr && kind != kDumb;
}

int TerminalColumns(std::FILE* stream) {
  winsize size{};
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

}  // namespace harvane
