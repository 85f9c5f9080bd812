#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "host/FileError.h"
#include "host/PendingFile.h"

namespace harvane {
namespace {

constexpr mode_t kNewFileMode = 0666;  // less the process's mask
constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP};

// The hidden file that a signal must take away: a plain buffer, for a handler may
// not touch a string.
std::array<char, PATH_MAX> removalPath;
std::atomic<bool> isRemovalDue{false};

extern "C" void RemoveAndEnd(int signal) {
  if (isRemovalDue.load()) unlink(removalPath.data());
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void RemoveAtSignals(const std::string& path) {
  if (path.size() >= removalPath.size()) return;
  std::memcpy(removalPath.data(), path.c_str(), path.size() + 1);
  isRemovalDue = true;
  for (const int signal : kEndingSignals) {
    struct sigaction former {};
    sigaction(signal, nullptr, &former);
    if (former.sa_handler == SIG_DFL) std::signal(signal, RemoveAndEnd);
  }
}

void KeepAtSignals() {
  isRemovalDue = false;
  for (const int signal : kEndingSignals) {
    struct sigaction present {};
    sigaction(signal, nullptr, &present);
    if (present.sa_handler == RemoveAndEnd) std::signal(signal, SIG_DFL);
  }
}

// Gives a nameless file a name: 0 or an errno.
int Link(int descriptor, const std::string& name) {
  const std::string own = fmt::format("/proc/self/fd/{}", descriptor);
  const int result = linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW);
  return result == 0 ? 0 : errno;
}

}  // namespace

PendingFile::~PendingFile() {
  if (hidden.empty()) return;
  unlink(hidden.c_str());
  KeepAtSignals();
}

void PendingFile::Commit() {
  if (fsync(descriptor.Number()) != 0) {
    throw FileError(path, "cannot be written: " + SystemText(errno));
  }
  RefuseInput();
  const bool isRefused = existing == Existing::kRefused;
  if (!hidden.empty()) {
    if (!isRefused) {
      ReplaceTarget();
    } else if (!MoveTo(target)) {
      RefuseExisting();
    }
  } else if (const int error = Link(descriptor.Number(), target); error != 0) {
    if (error != EEXIST) RefuseName(error);
    if (isRefused) RefuseExisting();
    ReplaceTarget();
  }
  const Descriptor parent(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (parent.IsOpen()) fsync(parent.Number());
}

bool PendingFile::MoveTo(const std::string& name) {
  if (renameat2(AT_FDCWD, hidden.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) != 0) {
    if (errno == EEXIST) return false;
    // A file system that cannot refuse by itself; the look was a moment ago.
    if (errno != EINVAL || std::rename(hidden.c_str(), name.c_str()) != 0) {
      RefuseName(errno);
    }
  }
  hidden.clear();
  KeepAtSignals();
  return true;
}

void PendingFile::ReplaceTarget() {
  if (hidden.empty()) {
    const std::string name = HiddenName();
    RemoveAtSignals(name);
    if (const int error = Link(descriptor.Number(), name); error != 0) RefuseName(error);
    hidden = name;
  }
  if (std::rename(hidden.c_str(), target.c_str()) != 0) {
    RefuseName(errno);
  }
  hidden.clear();
  KeepAtSignals();
}

bool PendingFile::OpenNameless() {
  descriptor = Descriptor(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kNewFileMode));
  return descriptor.IsOpen();
}

void PendingFile::OpenHidden() {
  const std::string name = HiddenName();
  RemoveAtSignals(name);
  descriptor = Descriptor(open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, kNewFileMode));
  if (!descriptor.IsOpen()) {
    const int error = errno;
    KeepAtSignals();
    throw FileError(path, "cannot be written in " + folder + ": " + SystemText(error));
  }
  hidden = name;
}

}  // namespace harvane
