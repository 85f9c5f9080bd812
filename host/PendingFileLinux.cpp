#include "host/PendingFile.h"

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
#include <filesystem>
#include <random>
#include <system_error>
#include <utility>

#include "host/FileError.h"

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

}  // namespace

Descriptor::~Descriptor() {
  if (number >= 0) close(number);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number, other.number);
  return *this;
}

PendingFile::PendingFile(const std::string& path, const FileIdentity& input, Naming naming,
                         Existing existing)
    : path(path), target(path), input(input), existing(existing) {
  RefuseInput();
  std::error_code failure;
  const std::filesystem::path resolved = std::filesystem::weakly_canonical(path, failure);
  if (!failure && !resolved.empty()) target = resolved.string();
  folder = std::filesystem::absolute(target).parent_path().string();
  if (naming == Naming::kHidden || !OpenNameless()) OpenHidden();
}

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
  if (existing == Existing::kRefused) {
    if (!(hidden.empty() ? LinkAs(target) : MoveTo(target))) RefuseExisting();
  } else if (!hidden.empty() || !LinkAs(target)) {
    ReplaceTarget();
  }
  const Descriptor parent(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (parent.IsOpen()) fsync(parent.Number());
}

bool PendingFile::LinkAs(const std::string& name) const {
  const std::string own = fmt::format("/proc/self/fd/{}", descriptor.Number());
  if (linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) return true;
  if (errno == EEXIST) return false;
  throw FileError(path, "cannot be given its name: " + SystemText(errno));
}

bool PendingFile::MoveTo(const std::string& name) {
  if (renameat2(AT_FDCWD, hidden.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) != 0) {
    if (errno == EEXIST) return false;
    // A file system that cannot refuse by itself; the look was a moment ago.
    if (errno != EINVAL || std::rename(hidden.c_str(), name.c_str()) != 0) {
      throw FileError(path, "cannot be given its name: " + SystemText(errno));
    }
  }
  hidden.clear();
  KeepAtSignals();
  return true;
}

void PendingFile::RefuseExisting() const { throw FileError(path, "is there already"); }

void PendingFile::ReplaceTarget() {
  if (hidden.empty()) {
    const std::string name = HiddenName();
    RemoveAtSignals(name);
    if (!LinkAs(name)) {
      throw FileError(path, "cannot be given its name: " + name + " is there");
    }
    hidden = name;
  }
  if (std::rename(hidden.c_str(), target.c_str()) != 0) {
    throw FileError(path, "cannot be given its name: " + SystemText(errno));
  }
  hidden.clear();
  KeepAtSignals();
}

void PendingFile::RefuseInput() const {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return;
    throw FileError(path, "cannot be written: " + SystemText(errno));
  }
  if (FileIdentity{status.st_dev, status.st_ino} == input) {
    throw FileError(path, "is the input itself, which is never written over");
  }
  if (S_ISDIR(status.st_mode)) throw FileError(path, "is a folder; a file name is needed");
  if (!S_ISREG(status.st_mode)) throw FileError(path, "is not a regular file");
  if (existing == Existing::kRefused) RefuseExisting();
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

std::string PendingFile::HiddenName() const {
  std::random_device chance;
  return fmt::format("{}/.harvane-{:08x}{:08x}", folder, chance(), chance());
}

std::string SystemText(int error) { return std::generic_category().message(error); }

}  // namespace harvane
