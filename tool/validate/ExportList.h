#ifndef HARVANE_TOOL_VALIDATE_EXPORTLIST_H
#define HARVANE_TOOL_VALIDATE_EXPORTLIST_H

#include <string>
#include <vector>

namespace harvane {

// What a module file offers to whoever loads it, in its table's order: the names in the export
// directory of a Windows module, of 32 or 64 bits; the symbols that an ELF file (little-endian, 32
// or 64 bits, with its section headers) defines and shows to others. "ordinal N" is an export of a
// Windows module without a name.
//
// Read from the bytes: nothing is loaded or run, and nothing outside the file is looked at,
// whatever it says. `path` in UTF-8.
// Throws ModuleError: not readable, no such file format, a table that does not lie in the file.
std::vector<std::string> ExportedNames(const std::string& path);

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_EXPORTLIST_H
