#include "tool/results/ResultFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>

#include "host/FileError.h"
#include "host/PendingFile.h"

namespace harvane {

std::string ReadWholeFile(const std::string& path) {
  constexpr std::size_t kChunk = 1 << 16;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) throw FileError(path, SystemText(errno));
  // A pipe is fine: a shell's <(...) is one.
  if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) {
    throw FileError(path, "is not a file");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) throw FileError(path, SystemText(errno));
  std::string bytes;
  std::array<char, kChunk> chunk;
  while (file.read(chunk.data(), chunk.size()), file.gcount() > 0) {
    bytes.append(chunk.data(), static_cast<std::size_t>(file.gcount()));
  }
  if (file.bad()) throw FileError(path, "cannot be read");
  return bytes;
}

void WriteWholeFile(const std::string& path, std::string_view bytes) {
  // It replaces no file that is being read.
  constexpr FileIdentity kNone = {};
  PendingFile pending(path, kNone);
  while (!bytes.empty()) {
    const ssize_t written = ::write(pending.Number(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw FileError(path, SystemText(errno));
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  pending.Commit();
}

}  // namespace harvane
