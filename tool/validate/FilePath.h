#ifndef HARVANE_TOOL_VALIDATE_FILEPATH_H
#define HARVANE_TOOL_VALIDATE_FILEPATH_H

#include <filesystem>
#include <string>

namespace harvane {

// A path in UTF-8 as the standard library takes it. Linux: any bytes. Windows: throws
// std::system_error for what is no UTF-8.
inline std::filesystem::path FilePath(const std::string& text) {
  return std::u8string(text.begin(), text.end());
}

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_FILEPATH_H
