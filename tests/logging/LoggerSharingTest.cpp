// The log where another program has its file open. To the system a handle is a handle, whoever
// has it: these are the test's own.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/logging/LoggerFixture.h"

namespace harvane {
namespace {

using namespace logger_tests;

constexpr std::size_t kLimit = 131072;  // bytes from which on a file is trimmed
constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;

// An existing file, opened as another program has it.
class ForeignHandle {
 public:
  ForeignHandle(const std::filesystem::path& path, DWORD access, DWORD sharing)
      : handle(CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr)) {
    EXPECT_NE(INVALID_HANDLE_VALUE, handle);
  }
  ~ForeignHandle() { CloseHandle(handle); }
  ForeignHandle(const ForeignHandle&) = delete;
  ForeignHandle& operator=(const ForeignHandle&) = delete;

 private:
  HANDLE handle;
};

class LoggerSharing : public LoggerFixture {
 protected:
  void Write(const std::string& name) {
    Add(name);
    WriteAll();
  }
  // A file that the next row would trim.
  std::string MakeLongFile() const {
    const std::string old = "first line\nsecond" + std::string(kLimit + 1 - 17, 'x');
    support::WriteBytes(folder.FileIn("rows.csv"), old);
    return old;
  }
  // The file and whatever copies of it were left; a copy's name begins like its own. What the
  // system keeps aside of a replacement that failed does not count.
  int FilesOfTheLog() const {
    const auto entries = std::filesystem::directory_iterator(folder.Path());
    return static_cast<int>(std::count_if(begin(entries), end(entries), [](const auto& entry) {
      return entry.path().filename().string().rfind("rows", 0) == 0;
    }));
  }
};

TEST_F(LoggerSharing, FileOpenWithoutSharingLosesRowsUntilItIsClosed) {
  Write("1");
  {
    const ForeignHandle other(InFolder("rows.csv"), GENERIC_READ, 0);
    AddNumbered(3);
    WriteAll();
    EXPECT_EQ(0, logger->WaitingEntries());
  }
  Write("4");
  EXPECT_EQ((std::vector<std::string>{"1", "4"}), Names());
}

TEST_F(LoggerSharing, FileSharedForReadingOnlyLosesRowsUntilItIsClosed) {
  Write("1");
  {
    const ForeignHandle other(InFolder("rows.csv"), GENERIC_READ, FILE_SHARE_READ);
    Write("2");
  }
  Write("3");
  EXPECT_EQ((std::vector<std::string>{"1", "3"}), Names());
}

// Deliberate: the logger lets nobody else write while it does, so whoever could keeps it out.
TEST_F(LoggerSharing, FileThatAnotherMayWriteLosesRowsThoughItIsShared) {
  Write("1");
  {
    const ForeignHandle other(InFolder("rows.csv"), kReadWrite,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    Write("2");
  }
  Write("3");
  EXPECT_EQ((std::vector<std::string>{"1", "3"}), Names());
}

TEST_F(LoggerSharing, ReaderThatSharesForWritingHindersNobody) {
  Write("1");
  const ForeignHandle other(InFolder("rows.csv"), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  Write("2");
  EXPECT_EQ((std::vector<std::string>{"1", "2"}), Names());
}

TEST_F(LoggerSharing, LongFileOpenWithoutSharingIsNeitherTrimmedNorWritten) {
  const std::string old = MakeLongFile();
  {
    const ForeignHandle other(InFolder("rows.csv"), GENERIC_READ, 0);
    Write("1");
  }
  EXPECT_EQ(old, File());
  EXPECT_EQ(1, FilesOfTheLog());
  Write("2");
  EXPECT_EQ(old.substr(10) + Row("2"), File());
}

// The copy cannot take the file's place.
TEST_F(LoggerSharing, LongFileWithAReaderTakesTheRowWithoutATrim) {
  const std::string old = MakeLongFile();
  {
    const ForeignHandle other(InFolder("rows.csv"), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE);
    Write("1");
  }
  EXPECT_EQ(old + Row("1"), File());
  EXPECT_EQ(1, FilesOfTheLog());
}

TEST_F(LoggerSharing, FolderNamesThatTheSystemRefusesLoseTheRowSilently) {
  for (const char* name : {"a?b", "a*b", "a<b", "a|b", "a\"b"}) {
    AddTo(folder.FileIn(name), "rows", "lost");
    AddTo(folder.Text(), name, "lost");
    Add("kept");
    WriteAll();
  }
  EXPECT_EQ(std::vector<std::string>(5, "kept"), Names());
}

}  // namespace
}  // namespace harvane
