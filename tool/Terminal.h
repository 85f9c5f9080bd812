#ifndef HARVANE_TOOL_TERMINAL_H
#define HARVANE_TOOL_TERMINAL_H

#include <cstdio>

namespace harvane {

// What shows a standard stream. Windows: a console that understands escape sequences is all of it.

// A terminal on which a line can be written over.
bool IsLineTerminal(std::FILE* stream);
// A terminal that says that it has colours.
bool IsColourTerminal(std::FILE* stream);
// 80 where nobody knows.
int TerminalColumns(std::FILE* stream);

}  // namespace harvane

#endif  // HARVANE_TOOL_TERMINAL_H
