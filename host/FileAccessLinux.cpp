#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "host/FileAccess.h"

namespace harvane {
namespace {

FileState StateOf(const struct stat& status) {
  const FileKind kind = S_ISREG(status.st_mode)    ? FileKind::kRegular
                        : S_ISDIR(status.st_mode)  ? FileKind::kFolder
                        : S_ISFIFO(status.st_mode) ? FileKind::kPipe
                                                   : FileKind::kOther;
  return {kind,
          {status.st_dev, status.st_ino},
          {status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec}};
}

}  // namespace

std::filesystem::path PathOf(const std::string& name) { return name; }

std::string FoldedName(const std::string& name) { return name; }

Descriptor::~Descriptor() {
  if (number >= 0) close(number);
}

bool ReadState(int descriptor, FileState* state) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return false;
  *state = StateOf(status);
  return true;
}

bool ReadState(const std::string& path, FileState* state) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return false;
  *state = StateOf(status);
  return true;
}

Descriptor OpenForReading(const std::string& path) {
  // Without O_NONBLOCK a pipe would be waited for.
  return Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

std::int64_t ReadFrom(int descriptor, void* bytes, std::size_t count) {
  return read(descriptor, bytes, count);
}

std::int64_t ReadAt(int descriptor, void* bytes, std::size_t count, std::int64_t place) {
  return pread(descriptor, bytes, count, place);
}

std::int64_t WriteTo(int descriptor, const void* bytes, std::size_t count) {
  ssize_t written = 0;
  do {
    written = write(descriptor, bytes, count);
  } while (written < 0 && errno == EINTR);
  return written;
}

std::int64_t WriteAt(int descriptor, const void* bytes, std::size_t count, std::int64_t place) {
  ssize_t written = 0;
  do {
    written = pwrite(descriptor, bytes, count, place);
  } while (written < 0 && errno == EINTR);
  return written;
}

std::int64_t SeekIn(int descriptor, std::int64_t offset, int whence) {
  return lseek(descriptor, offset, whence);
}

void StartWriting(int descriptor) { sync_file_range(descriptor, 0, 0, SYNC_FILE_RANGE_WRITE); }

int FolderTrouble(const std::string& folder) {
  return access(folder.c_str(), W_OK) == 0 ? 0 : errno;
}

}  // namespace harvane
