#include "tool/results/ResultFile.h"

#include <array>
#include <cerrno>
#include <fstream>

#include "host/FileAccess.h"
#include "host/FileError.h"
#include "host/PendingFile.h"

namespace harvane {

std::string ReadWholeFile(const std::string& path) {
  constexpr std::size_t kChunk = 1 << 16;
  FileState state{};
  if (!ReadState(path, &state)) throw FileError(path, SystemText(errno));
  // A pipe is fine: a shell's <(...) is one.
  if (state.kind != FileKind::kRegular && state.kind != FileKind::kPipe) {
    throw FileError(path, "is not a file");
  }
  std::ifstream file(PathOf(path), std::ios::binary);
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
    const std::int64_t written = WriteTo(pending.Number(), bytes.data(), bytes.size());
    if (written < 0) throw FileError(path, SystemText(errno));
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  pending.Commit();
}

}  // namespace harvane
