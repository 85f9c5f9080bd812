#include "tool/ProgramArguments.h"

namespace harvane {

std::vector<std::string> ProgramArguments(int count, const char* const* arguments) {
  return {arguments + 1, arguments + count};
}

}  // namespace harvane
