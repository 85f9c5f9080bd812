#ifndef HARVANE_TOOL_PROGRAMARGUMENTS_H
#define HARVANE_TOOL_PROGRAMARGUMENTS_H

#include <string>
#include <vector>

namespace harvane {

// What the program was called with, without its own name. `arguments` are those of main; on Windows
// the command line itself is read, as UTF-8. Errors: std::bad_alloc. Thread: any.
std::vector<std::string> ProgramArguments(int count, const char* const* arguments);

}  // namespace harvane

#endif  // HARVANE_TOOL_PROGRAMARGUMENTS_H
