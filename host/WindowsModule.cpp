#include "host/WindowsModule.h"

#include <array>
#include <fstream>

#include "host/FileAccess.h"

namespace harvane {

bool IsWindowsModule(const std::string& path) {
  constexpr std::streamoff kHeaderOffsetPosition = 0x3C;
  std::ifstream file(PathOf(path), std::ios::binary);
  std::array<char, 2> mark{};
  std::array<unsigned char, 4> offset{};
  std::array<char, 4> signature{};
  if (!file.read(mark.data(), mark.size()) || mark != std::array<char, 2>{'M', 'Z'}) return false;
  file.seekg(kHeaderOffsetPosition);
  if (!file.read(reinterpret_cast<char*>(offset.data()), offset.size())) return false;
  file.seekg(offset[0] | offset[1] << 8 | offset[2] << 16 |
             static_cast<std::streamoff>(offset[3]) << 24);
  return file.read(signature.data(), signature.size()) &&
         signature == std::array<char, 4>{'P', 'E', '\0', '\0'};
}

}  // namespace harvane
