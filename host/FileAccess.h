#ifndef HARVANE_HOST_FILEACCESS_H
#define HARVANE_HOST_FILEACCESS_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace harvane {

// What systems do differently with files.
//
// Names      in UTF-8, on Linux whatever bytes a name has. std::filesystem::path gives such a name
//            by string(), but takes one by PathOf only: its own constructors take another encoding
//            on Windows.
// Errors     in errno, on Windows too, as the functions say; SystemText puts it in words.
// Thread     any; one caller at a time for one file.

// The name as the standard library takes it. What is no UTF-8 becomes U+FFFD on Windows.
std::filesystem::path PathOf(const std::string& name);

// The text that two names of one file in one folder share: the name, on Windows in lower case.
std::string FoldedName(const std::string& name);

// What the system says about `error`, an errno.
std::string SystemText(int error);

// An open file; closed at its end.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number(number) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : number(other.number) { other.number = -1; }
  Descriptor& operator=(Descriptor&& other) noexcept;
  int Number() const { return number; }
  bool IsOpen() const { return number >= 0; }

 private:
  int number;
};

// Which file it is, whatever name or link leads to it.
struct FileIdentity {
  std::uint64_t device;
  std::uint64_t inode;
  bool operator==(const FileIdentity&) const = default;
};

// Changes when the file is written to.
struct FileVersion {
  std::int64_t bytes;
  std::int64_t seconds;
  std::int64_t nanoseconds;
  bool operator==(const FileVersion&) const = default;
};

enum class FileKind { kRegular, kFolder, kPipe, kOther };

struct FileState {
  FileKind kind;
  FileIdentity identity;
  FileVersion version;
};

// False with errno: ENOENT where there is no such file.
bool ReadState(int descriptor, FileState* state);
bool ReadState(const std::string& path, FileState* state);

// Open for reading, or not open with errno. Others may read, write, rename and remove the file
// meanwhile; nothing is waited for.
Descriptor OpenForReading(const std::string& path);

// As read, write and lseek, with 64 bits; `place` leaves the file's own place where the system has
// a way to. Fewer than 0 with errno.
std::int64_t ReadFrom(int descriptor, void* bytes, std::size_t count);
std::int64_t ReadAt(int descriptor, void* bytes, std::size_t count, std::int64_t place);
// Some or all of `count` bytes.
std::int64_t WriteTo(int descriptor, const void* bytes, std::size_t count);
std::int64_t WriteAt(int descriptor, const void* bytes, std::size_t count, std::int64_t place);
// `whence`: SEEK_SET, SEEK_CUR, SEEK_END.
std::int64_t SeekIn(int descriptor, std::int64_t offset, int whence);

// A hint that what was written may go to the disk now; returns at once.
void StartWriting(int descriptor);

// 0 where files can be made in `folder`, as far as the system says so beforehand; else an errno.
int FolderTrouble(const std::string& folder);

}  // namespace harvane

#endif  // HARVANE_HOST_FILEACCESS_H
