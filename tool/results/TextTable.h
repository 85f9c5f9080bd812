#ifndef HARVANE_TOOL_RESULTS_TEXTTABLE_H
#define HARVANE_TOOL_RESULTS_TEXTTABLE_H

#include <string>
#include <string_view>
#include <vector>

namespace harvane {

// Rows of cells as lines, the columns flush left and two blanks apart. A row may have fewer cells
// than another. Widths count the code points of UTF-8. Thread: any.
std::string TextTable(const std::vector<std::vector<std::string>>& rows);

// For a terminal: control characters become question marks.
std::string OneLine(std::string_view text);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_TEXTTABLE_H
