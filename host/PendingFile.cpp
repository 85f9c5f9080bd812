#include "host/PendingFile.h"

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <system_error>

#include "host/FileError.h"

namespace harvane {

PendingFile::PendingFile(const std::string& path, const FileIdentity& input, Naming naming,
                         Existing existing)
    : path(path), target(path), input(input), existing(existing) {
  RefuseInput();
  std::error_code failure;
  const std::filesystem::path resolved = std::filesystem::weakly_canonical(PathOf(path), failure);
  if (!failure && !resolved.empty()) target = resolved.string();
  folder = std::filesystem::absolute(PathOf(target)).parent_path().string();
  if (naming == Naming::kHidden || !OpenNameless()) OpenHidden();
}

void PendingFile::RefuseExisting() const { throw FileError(path, "is there already"); }

void PendingFile::RefuseName(int error) const {
  throw FileError(path, "cannot be given its name: " + SystemText(error));
}

void PendingFile::RefuseInput() const {
  FileState state{};
  if (!ReadState(path, &state)) {
    if (errno == ENOENT) return;
    throw FileError(path, "cannot be written: " + SystemText(errno));
  }
  if (state.kind == FileKind::kFolder) {
    throw FileError(path, "is a folder; a file name is needed");
  }
  if (state.kind != FileKind::kRegular) throw FileError(path, "is not a regular file");
  if (state.identity == input) {
    throw FileError(path, "is the input itself, which is never written over");
  }
  if (existing == Existing::kRefused) RefuseExisting();
}

std::string PendingFile::HiddenName() const {
  std::random_device chance;
  return fmt::format("{}/.harvane-{:08x}{:08x}", folder, chance(), chance());
}

}  // namespace harvane
