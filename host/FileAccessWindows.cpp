#include <fcntl.h>
#include <io.h>
#include <utf8.h>
#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cwchar>
#include <iterator>
#include <limits>

#include "host/FileAccess.h"
#include "host/WindowsFiles.h"

namespace harvane {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::int64_t kTicksPerSecond = 10'000'000;  // of a FILETIME
constexpr std::int64_t kNanosecondsPerTick = 100;

std::int64_t Joined(DWORD high, DWORD low) {
  return static_cast<std::int64_t>(std::uint64_t{high} << 32U | low);
}

// One call takes no more.
unsigned Piece(std::size_t count) {
  return static_cast<unsigned>(
      std::min<std::size_t>(count, static_cast<std::size_t>(std::numeric_limits<int>::max())));
}

OVERLAPPED PlaceIn(std::int64_t place) {
  OVERLAPPED where{};
  where.Offset = static_cast<DWORD>(place & 0xFFFFFFFF);
  where.OffsetHigh = static_cast<DWORD>(place >> 32U);
  return where;
}

bool StateOf(HANDLE file, FileState* state) {
  const DWORD type = GetFileType(file);
  if (type != FILE_TYPE_DISK) {
    *state = {type == FILE_TYPE_PIPE ? FileKind::kPipe : FileKind::kOther, {}, {}};
    return true;
  }
  BY_HANDLE_FILE_INFORMATION found;
  if (GetFileInformationByHandle(file, &found) == 0) {
    TakeWindowsError();
    return false;
  }
  const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const std::int64_t written =
      Joined(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime);
  *state = {
      isFolder ? FileKind::kFolder : FileKind::kRegular,
      {found.dwVolumeSerialNumber,
       static_cast<std::uint64_t>(Joined(found.nFileIndexHigh, found.nFileIndexLow))},
      {Joined(found.nFileSizeHigh, found.nFileSizeLow), written / kTicksPerSecond,
       written % kTicksPerSecond * kNanosecondsPerTick},
  };
  return true;
}

}  // namespace

void TakeWindowsError() {
  switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_NETPATH:
      errno = ENOENT;
      break;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      errno = EEXIST;
      break;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      errno = ENOSPC;
      break;
    case ERROR_TOO_MANY_OPEN_FILES:
      errno = EMFILE;
      break;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
      errno = EACCES;
      break;
    default:
      errno = EIO;
  }
}

int NumberFor(void* file, int flags) {
  if (file == INVALID_HANDLE_VALUE) {
    TakeWindowsError();
    return -1;
  }
  const int number =
      _open_osfhandle(reinterpret_cast<intptr_t>(file), flags | _O_BINARY | _O_NOINHERIT);
  if (number < 0) CloseHandle(file);
  return number;
}

void* HandleOf(int descriptor) { return reinterpret_cast<void*>(_get_osfhandle(descriptor)); }

std::filesystem::path PathOf(const std::string& name) {
  std::string valid;
  utf8::replace_invalid(name.begin(), name.end(), std::back_inserter(valid));
  return std::u8string(valid.begin(), valid.end());
}

std::string FoldedName(const std::string& name) {
  std::wstring wide = PathOf(name).native();
  CharLowerBuffW(wide.data(), static_cast<DWORD>(wide.size()));
  return std::filesystem::path(wide).string();
}

Descriptor::~Descriptor() {
  if (number >= 0) _close(number);
}

bool ReadState(int descriptor, FileState* state) { return StateOf(HandleOf(descriptor), state); }

bool ReadState(const std::string& path, FileState* state) {
  HANDLE const file = CreateFileW(PathOf(path).c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    TakeWindowsError();
    return false;
  }
  const bool isRead = StateOf(file, state);
  CloseHandle(file);
  return isRead;
}

Descriptor OpenForReading(const std::string& path) {
  // A folder opens with this flag only, and then says what it is.
  return Descriptor(NumberFor(CreateFileW(PathOf(path).c_str(), GENERIC_READ, kShareAll, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr),
                              _O_RDONLY));
}

std::int64_t ReadFrom(int descriptor, void* bytes, std::size_t count) {
  return _read(descriptor, bytes, Piece(count));
}

std::int64_t ReadAt(int descriptor, void* bytes, std::size_t count, std::int64_t place) {
  OVERLAPPED where = PlaceIn(place);
  DWORD read = 0;
  if (ReadFile(HandleOf(descriptor), bytes, Piece(count), &read, &where) != 0) return read;
  if (GetLastError() == ERROR_HANDLE_EOF) return 0;
  TakeWindowsError();
  return -1;
}

std::int64_t WriteTo(int descriptor, const void* bytes, std::size_t count) {
  return _write(descriptor, bytes, Piece(count));
}

std::int64_t WriteAt(int descriptor, const void* bytes, std::size_t count, std::int64_t place) {
  OVERLAPPED where = PlaceIn(place);
  DWORD written = 0;
  if (WriteFile(HandleOf(descriptor), bytes, Piece(count), &written, &where) != 0) return written;
  TakeWindowsError();
  return -1;
}

std::int64_t SeekIn(int descriptor, std::int64_t offset, int whence) {
  return _lseeki64(descriptor, offset, whence);
}

// Windows has no such hint; it writes behind by itself.
void StartWriting(int /*descriptor*/) {}

// What a folder allows only shows when a file is made in it.
int FolderTrouble(const std::string& folder) {
  FileState state{};
  if (!ReadState(folder, &state)) return errno;
  return state.kind == FileKind::kFolder ? 0 : ENOTDIR;
}

}  // namespace harvane
