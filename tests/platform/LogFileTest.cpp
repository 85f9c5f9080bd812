#include "platform/LogFile.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "tests/support/TemporaryFolder.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/stat.h>

#include "tests/support/OrdinaryUser.h"
#endif

namespace harvane {
namespace {

constexpr juce::int64 kMaxBytes = 131072;

class LogFileTest : public testing::Test {
 protected:
  juce::File File() const { return juce::File(juce::String(Path())); }
  std::string Path() const { return folder.FileIn("log.csv"); }
  std::string Bytes() const { return support::ReadBytes(Path()); }
  void Write(const std::string& bytes) const { support::WriteBytes(Path(), bytes); }
  // The file after `bytes` were trimmed.
  std::string Trimmed(const std::string& bytes) const {
    Write(bytes);
    LogFile log(File(), "", kMaxBytes);
    return Bytes();
  }

  support::TemporaryFolder folder;
};

TEST_F(LogFileTest, NewFileWithoutAWelcomeIsEmpty) {
  LogFile log(File(), "", kMaxBytes);
  EXPECT_TRUE(File().existsAsFile());
  EXPECT_EQ(Bytes(), "");
}

TEST_F(LogFileTest, MessageEndsInCrLf) {
  LogFile log(File(), "", kMaxBytes);
  log.LogMessage("row\n");
  EXPECT_EQ(Bytes(), "row\n\r\n");
  log.LogMessage("");
  EXPECT_EQ(Bytes(), "row\n\r\n\r\n");
}

TEST_F(LogFileTest, MessagesAreAppendedToWhatIsThere) {
  Write("other contents");
  LogFile log(File(), "", kMaxBytes);
  log.LogMessage("row");
  EXPECT_EQ(Bytes(), "other contentsrow\r\n");
}

TEST_F(LogFileTest, MessageIsUtf8WithoutAByteOrderMark) {
  LogFile log(File(), "", kMaxBytes);
  log.LogMessage(juce::String::fromUTF8("\xC3\xA4\xE2\x82\xAC"));
  EXPECT_EQ(Bytes(), "\xC3\xA4\xE2\x82\xAC\r\n");
}

TEST_F(LogFileTest, MessageLongerThanTheStreamsBuffer) {
  LogFile log(File(), "", kMaxBytes);
  log.LogMessage(juce::String(std::string(10000, 'x')));
  EXPECT_EQ(Bytes(), std::string(10000, 'x') + "\r\n");
}

TEST_F(LogFileTest, WelcomeIsWrittenInABanner) {
  LogFile log(File(), "Name, Pass\n", kMaxBytes);
  log.LogMessage("row");
  const std::regex wanted(
      "\r\n\\*{58}\r\nName, Pass\n\r\nLog started: [1-9][0-9]? "
      "[A-Z][a-z]{2} [0-9]{4} [1-9][0-2]?:[0-5][0-9]:[0-5][0-9][ap]m\r\n\r\n"
      "row\r\n");
  EXPECT_TRUE(std::regex_match(Bytes(), wanted)) << Bytes();
}

TEST_F(LogFileTest, FoldersOverTheFileAreMade) {
  const juce::File file = File().getSiblingFile("a").getChildFile("b").getChildFile("log.csv");
  LogFile log(file, "", kMaxBytes);
  log.LogMessage("row");
  EXPECT_EQ(support::ReadBytes(file.getFullPathName().toStdString()), "row\r\n");
}

TEST_F(LogFileTest, FileThatCannotBeMadeIsPassedOver) {
  Write("a file in place of a folder");
  const juce::File file = File().getChildFile("log.csv");
  LogFile log(file, "", kMaxBytes);
  log.LogMessage("row");
  EXPECT_FALSE(file.exists());
  EXPECT_EQ(Bytes(), "a file in place of a folder");
}

TEST_F(LogFileTest, FolderInPlaceOfTheFileIsPassedOver) {
  ASSERT_TRUE(File().createDirectory().wasOk());
  LogFile log(File(), "", kMaxBytes);
  log.LogMessage("row");
  EXPECT_TRUE(File().isDirectory());
}

TEST_F(LogFileTest, FileIsClosedBetweenMessages) {
  LogFile log(File(), "", kMaxBytes);
  log.LogMessage("a");
  ASSERT_TRUE(File().deleteFile());
  log.LogMessage("b");
  EXPECT_EQ(Bytes(), "b\r\n");
}

TEST_F(LogFileTest, FileOfTheMaximumSizeIsKept) {
  const std::string bytes = std::string(kMaxBytes - 1, 'x') + "\n";
  EXPECT_EQ(Trimmed(bytes), bytes);
}

TEST_F(LogFileTest, OneByteMoreIsTrimmedToTheNextLineEnd) {
  // One byte is too many; the search starts behind it and meets the line end at 5.
  const std::string bytes = "aaaaa\n" + std::string(kMaxBytes + 1 - 7, 'x') + "\n";
  ASSERT_EQ(bytes.size(), static_cast<std::size_t>(kMaxBytes + 1));
  EXPECT_EQ(Trimmed(bytes), bytes.substr(5));
}

TEST_F(LogFileTest, LineEndAtTheStartOfTheSearchIsKept) {
  const std::string bytes = "a\n" + std::string(kMaxBytes - 1, 'x');
  EXPECT_EQ(Trimmed(bytes), bytes.substr(1));
}

TEST_F(LogFileTest, LineEndInFrontOfTheSearchDoesNotCount) {
  const std::string bytes = "\naaaa\n" + std::string(kMaxBytes - 5, 'x');
  ASSERT_EQ(bytes.size(), static_cast<std::size_t>(kMaxBytes + 1));
  EXPECT_EQ(Trimmed(bytes), bytes.substr(5));
}

TEST_F(LogFileTest, CarriageReturnIsALineEnd) {
  const std::string bytes = "aaaaaaa\r\nb" + std::string(kMaxBytes - 5, 'x');
  EXPECT_EQ(Trimmed(bytes), bytes.substr(7));
}

TEST_F(LogFileTest, FileWithoutALineEndStaysAsItIs) {
  const std::string bytes(kMaxBytes + 1, 'x');
  EXPECT_EQ(Trimmed(bytes), bytes);
}

TEST_F(LogFileTest, FileWithItsOnlyLineEndInFrontOfTheSearchStaysAsItIs) {
  const std::string bytes = "\n" + std::string(kMaxBytes, 'x');
  EXPECT_EQ(Trimmed(bytes), bytes);
}

TEST_F(LogFileTest, NulBeforeTheLineEndKeepsTheFileAsItIs) {
  std::string bytes = "aaaa\nb\n" + std::string(kMaxBytes, 'x') + "\n";
  bytes[bytes.size() - kMaxBytes] = '\0';
  bytes[bytes.size() - kMaxBytes + 1] = '\n';
  EXPECT_EQ(Trimmed(bytes), bytes);
}

TEST_F(LogFileTest, NulBehindTheLineEndIsKept) {
  std::string bytes = "aaaa\n" + std::string(kMaxBytes, 'x');
  bytes[bytes.size() - kMaxBytes] = '\n';
  bytes[bytes.size() - kMaxBytes + 1] = '\0';
  EXPECT_EQ(Trimmed(bytes), bytes.substr(5));
}

TEST_F(LogFileTest, TrimmedFileLeavesNoTemporaryFile) {
  Trimmed("a\n" + std::string(kMaxBytes, 'x') + "\n");
  EXPECT_EQ(File().getParentDirectory().getNumberOfChildFiles(juce::File::findFiles), 1);
}

TEST_F(LogFileTest, UntrimmableFileLeavesNoTemporaryFile) {
  Trimmed(std::string(kMaxBytes + 1, 'x'));
  EXPECT_EQ(File().getParentDirectory().getNumberOfChildFiles(juce::File::findFiles), 1);
}

// A file that is over the limit and could be trimmed, to its line of "x".
std::string TooLong() { return "a\nb\n" + std::string(kMaxBytes - 2, 'x') + "\n"; }

TEST_F(LogFileTest, FileThatCanBeOpenedIsTrimmed) {
  EXPECT_EQ(Trimmed(TooLong()), TooLong().substr(3));
}

#ifdef _WIN32
TEST_F(LogFileTest, FileThatCannotBeOpenedIsNotTrimmed) {
  Write(TooLong());
  const HANDLE held = CreateFileW(File().getFullPathName().toWideCharPointer(), GENERIC_READ, 0,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  { LogFile log(File(), "", kMaxBytes); }
  CloseHandle(held);
  EXPECT_EQ(Bytes(), TooLong());
  EXPECT_EQ(File().getParentDirectory().getNumberOfChildFiles(juce::File::findFiles), 1);
}
#else
TEST_F(LogFileTest, FileThatCannotBeOpenedIsNotTrimmed) {
  Write(TooLong());
  ASSERT_EQ(chmod(folder.Text().c_str(), 0777), 0);
  ASSERT_EQ(chmod(Path().c_str(), 0222), 0);
  {
    const support::OrdinaryUser user;
    ASSERT_TRUE(user.IsOrdinary());
    LogFile log(File(), "", kMaxBytes);
  }
  ASSERT_EQ(chmod(Path().c_str(), 0644), 0);
  EXPECT_EQ(Bytes(), TooLong());
  EXPECT_EQ(File().getParentDirectory().getNumberOfChildFiles(juce::File::findFiles), 1);
}

TEST_F(LogFileTest, FileBesideWhichNoOtherCanBeMadeIsNotTrimmedOnPosix) {
  Write(TooLong());
  ASSERT_EQ(chmod(Path().c_str(), 0666), 0);
  ASSERT_EQ(chmod(folder.Text().c_str(), 0555), 0);
  {
    const support::OrdinaryUser user;
    ASSERT_TRUE(user.IsOrdinary());
    LogFile log(File(), "", kMaxBytes);
    EXPECT_EQ(Bytes(), TooLong());
    log.LogMessage("row");
  }
  ASSERT_EQ(chmod(folder.Text().c_str(), 0755), 0);
  EXPECT_EQ(Bytes(), TooLong() + "row\r\n") << "appending goes on";
  EXPECT_EQ(File().getParentDirectory().getNumberOfChildFiles(juce::File::findFiles), 1);
}
#endif

TEST_F(LogFileTest, MessageDoesNotTrim) {
  LogFile log(File(), "", kMaxBytes);
  const std::string line(1000, 'x');
  for (int i = 0; i < 140; ++i) log.LogMessage(juce::String(line));
  EXPECT_EQ(Bytes().size(), 140u * 1002u);
}

}  // namespace
}  // namespace harvane
