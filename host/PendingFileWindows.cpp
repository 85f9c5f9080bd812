#include <fcntl.h>
#include <windows.h>

#include <cerrno>

#include "host/FileError.h"
#include "host/PendingFile.h"
#include "host/WindowsFiles.h"

namespace harvane {
namespace {

// A new file that nobody else writes to. Renaming it takes that its removal is shared.
int Create(const std::string& name) {
  return NumberFor(CreateFileW(PathOf(name).c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                               FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                               FILE_ATTRIBUTE_NORMAL, nullptr),
                   _O_RDWR);
}

// Whether the system removes the file at its closing, which the end of a process is as well.
bool SetRemoval(int descriptor, bool isRemoved) {
  FILE_DISPOSITION_INFO removal{};
  removal.DeleteFile = isRemoved ? TRUE : FALSE;
  return SetFileInformationByHandle(HandleOf(descriptor), FileDispositionInfo, &removal,
                                    sizeof removal) != 0;
}

bool Move(const std::string& from, const std::string& to, DWORD flags) {
  if (MoveFileExW(PathOf(from).c_str(), PathOf(to).c_str(), flags | MOVEFILE_WRITE_THROUGH) != 0) {
    return true;
  }
  TakeWindowsError();
  return false;
}

}  // namespace

PendingFile::~PendingFile() {
  if (!hidden.empty()) DeleteFileW(PathOf(hidden).c_str());
}

void PendingFile::Commit() {
  if (FlushFileBuffers(HandleOf(descriptor.Number())) == 0) {
    TakeWindowsError();
    throw FileError(path, "cannot be written: " + SystemText(errno));
  }
  RefuseInput();
  if (!SetRemoval(descriptor.Number(), false)) {
    TakeWindowsError();
    RefuseName(errno);
  }
  if (existing != Existing::kRefused) {
    ReplaceTarget();
  } else if (!MoveTo(target)) {
    RefuseExisting();
  }
  // Most programs open no file that is still open for its removal.
  descriptor = Descriptor();
}

bool PendingFile::MoveTo(const std::string& name) {
  if (!Move(hidden, name, 0)) {
    if (errno == EEXIST) return false;
    RefuseName(errno);
  }
  hidden.clear();
  return true;
}

void PendingFile::ReplaceTarget() {
  if (!Move(hidden, target, MOVEFILE_REPLACE_EXISTING)) RefuseName(errno);
  hidden.clear();
}

bool PendingFile::OpenNameless() {
  const std::string name = HiddenName();
  Descriptor file(Create(name));
  if (!file.IsOpen()) return false;
  if (!SetRemoval(file.Number(), true)) {
    DeleteFileW(PathOf(name).c_str());
    return false;
  }
  hidden = name;
  descriptor = std::move(file);
  return true;
}

void PendingFile::OpenHidden() {
  const std::string name = HiddenName();
  descriptor = Descriptor(Create(name));
  if (!descriptor.IsOpen()) {
    throw FileError(path, "cannot be written in " + folder + ": " + SystemText(errno));
  }
  hidden = name;
}

}  // namespace harvane
