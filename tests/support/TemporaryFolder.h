#ifndef HARVANE_TESTS_SUPPORT_TEMPORARYFOLDER_H
#define HARVANE_TESTS_SUPPORT_TEMPORARYFOLDER_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace support {

// A new empty folder, removed with all that is in it at its end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::random_device chance;
    do {
      path = std::filesystem::temp_directory_path() / ("harvane-test-" + std::to_string(chance()));
    } while (!std::filesystem::create_directories(path));
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  // UTF-8, in the platform's notation, without a separator behind it.
  std::string Text() const { return path.string(); }
  std::string FileIn(const std::string& name) const { return (path / name).string(); }
  const std::filesystem::path& Path() const { return path; }

 private:
  std::filesystem::path path;
};

// All bytes of a file; empty if there is none.
inline std::string ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_TEMPORARYFOLDER_H
