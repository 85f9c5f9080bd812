#include "tool/Printing.h"

#include <fmt/format.h>

#include <cstdio>

#include "tool/results/TextTable.h"

namespace harvane {

bool PrintResults(std::string_view text) {
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (std::fflush(stdout) == 0 && isWritten) return true;
  PrintLine("the results cannot be written to standard output");
  return false;
}

void PrintLine(const std::string& line) { fmt::print(stderr, "harvane: {}\n", OneLine(line)); }

}  // namespace harvane
