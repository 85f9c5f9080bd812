#ifndef HARVANE_TOOL_PRINTING_H
#define HARVANE_TOOL_PRINTING_H

#include <string>
#include <string_view>

namespace harvane {

// What a command says. Thread: any.

// Results, to standard output, which is then flushed. False, with a line on standard error, where
// that did not work.
bool PrintResults(std::string_view text);

// "harvane: LINE" on standard error, control characters as question marks.
void PrintLine(const std::string& line);

}  // namespace harvane

#endif  // HARVANE_TOOL_PRINTING_H
