#ifndef HARVANE_TOOL_RESULTS_RESULTFILE_H
#define HARVANE_TOOL_RESULTS_RESULTFILE_H

#include <string>
#include <string_view>

namespace harvane {

// All bytes of a file. Errors: FileError; a folder and a device cannot be read. Thread: any.
std::string ReadWholeFile(const std::string& path);

// The file appears under its name whole or not at all, over what is there (PendingFile.h).
// Errors: FileError; then `path` is as before. Thread: one caller at a time.
void WriteWholeFile(const std::string& path, std::string_view bytes);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_RESULTFILE_H
