// The log where the disk does not do what is asked of it: it is full, refuses, or changes between
// two rows. Nobody is told; what is lost is what could not be written.

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/logging/LoggerFixture.h"
#include "tests/support/LinkedJob.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

#ifndef _WIN32
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#endif

namespace harvane {
namespace {

using namespace logger_tests;

constexpr std::size_t kLimit = 131072;  // bytes from which on a file is trimmed

class LoggerTrouble : public LoggerFixture {
 protected:
  // Sends one row and writes it.
  void Write(const std::string& name) {
    Add(name);
    WriteAll();
  }
  int FilesInFolder() const {
    const auto entries = std::filesystem::directory_iterator(folder.Path());
    return static_cast<int>(std::distance(begin(entries), end(entries)));
  }
};

// Where `bytes` has a banner at its start: what stands behind it.
std::string BehindTheBanner(const std::string& bytes) {
  const std::string banner = twin::BannerBytes("");
  const std::string head = banner.substr(0, banner.size() - std::string("\r\n\r\n").size());
  EXPECT_EQ(0U, bytes.find(head)) << bytes;
  const std::size_t end = bytes.find("\r\n\r\n", head.size());
  EXPECT_NE(std::string::npos, end) << bytes;
  return end == std::string::npos ? bytes : bytes.substr(end + 4);
}

// ---- a folder that vanishes

TEST_F(LoggerTrouble, FolderThatVanishesBetweenRowsIsMadeAgainWithABanner) {
  const std::filesystem::path lost = folder.Path() / "one" / "two";
  AddTo(lost.string(), "rows", "1");
  WriteAll();
  ASSERT_EQ(Row("1"), BehindTheBanner(Bytes(lost / "rows.csv")));
  std::filesystem::remove_all(folder.Path() / "one");
  AddTo(lost.string(), "rows", "2");
  AddTo(lost.string(), "rows", "3");
  WriteAll();
  EXPECT_EQ(Rows({"2", "3"}), BehindTheBanner(Bytes(lost / "rows.csv")));
}

TEST_F(LoggerTrouble, FolderThatVanishesWithinADrainIsMadeAgainByTheNextRow) {
  const std::filesystem::path lost = folder.Path() / "one";
  for (const char* name : {"1", "2", "3", "4", "5", "6"}) AddTo(lost.string(), "rows", name);
  logger->DrainQueue();
  ASSERT_EQ(3, logger->WaitingEntries());
  std::filesystem::remove_all(lost);
  WriteAll();
  EXPECT_EQ(Rows({"4", "5", "6"}), BehindTheBanner(Bytes(lost / "rows.csv")));
}

TEST_F(LoggerTrouble, FileThatVanishesBetweenRowsIsMadeAgainWithABanner) {
  Write("1");
  std::filesystem::remove(InFolder("rows.csv"));
  Write("2");
  EXPECT_EQ(Row("2"), BehindTheBanner(File()));
}

TEST_F(LoggerTrouble, FolderReplacedByAFileLosesRowsUntilItIsAFolderAgain) {
  const std::filesystem::path place = folder.Path() / "place";
  AddTo(place.string(), "rows", "1");
  WriteAll();
  std::filesystem::remove_all(place);
  support::WriteBytes(place.string(), "in the way");
  AddTo(place.string(), "rows", "2");
  WriteAll();
  EXPECT_EQ("in the way", Bytes(place));
  std::filesystem::remove(place);
  AddTo(place.string(), "rows", "3");
  WriteAll();
  EXPECT_EQ(Row("3"), BehindTheBanner(Bytes(place / "rows.csv")));
}

// The folder goes at any moment of the writing. A row may go with it, whole, and never comes twice.
TEST_F(LoggerTrouble, FolderThatKeepsVanishingLosesWholeRowsOnly) {
  const std::filesystem::path place = folder.Path() / "place";
  const std::filesystem::path aside = folder.Path() / "aside";
  std::filesystem::create_directory(aside);
  const int wanted = static_cast<int>(support::SeedsFor(100).count);
  std::atomic<int> vanished{0};
  std::thread remover([&] {
    std::error_code failure;
    while (vanished < wanted) {
      std::filesystem::rename(place, aside / std::to_string(vanished), failure);
      if (!failure) ++vanished;
      std::this_thread::yield();
    }
  });
  for (int i = 0; vanished < wanted; ++i) {
    AddTo(place.string(), "rows", std::to_string(i));
    if (i % 10 == 9) WriteAll();
  }
  remover.join();
  AddTo(place.string(), "rows", "last");
  WriteAll();
  EXPECT_EQ(0, logger->WaitingEntries());

  std::set<std::string> written;
  for (const auto& found : std::filesystem::recursive_directory_iterator(folder.Path())) {
    if (!found.is_regular_file()) continue;
    const std::string bytes = Bytes(found.path());
    std::string rows;
    for (const std::string& name : NamesIn(bytes)) {
      EXPECT_TRUE(written.insert(name).second) << name << " twice";
      rows += Row(name);
    }
    // Rows without a gap, behind a banner or none.
    ASSERT_GE(bytes.size(), rows.size());
    EXPECT_EQ(rows, bytes.substr(bytes.size() - rows.size()));
    EXPECT_EQ(std::string::npos, bytes.substr(0, bytes.size() - rows.size()).find("Analysis"));
  }
  // Of the others none need have been quick enough.
  EXPECT_EQ(1U, written.count("last"));
}

// ---- sizes

TEST_F(LoggerTrouble, LineEndAsTheLastByteOfALongFileIsAllThatATrimLeaves) {
  support::WriteBytes(folder.FileIn("rows.csv"), std::string(kLimit, 'x') + "\n");
  Write("one");
  EXPECT_EQ("\n" + Row("one"), File());
}

TEST_F(LoggerTrouble, RowsBringTheFileToTheLimitAndTheNextOneTrimsIt) {
  // Two rows fit up to the very last byte; the third finds no byte too many, the fourth a row's.
  const std::size_t row = Row("1").size();
  const std::string line(99, 'x');
  std::string old(kLimit - 2 * row - 100, 'y');
  old[50] = '\n';
  old[150] = '\n';
  old += line + "\n";
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  ASSERT_EQ(kLimit, old.size() + Rows({"1", "2"}).size());
  Write("1");
  Write("2");
  EXPECT_EQ(old + Rows({"1", "2"}), File());
  Write("3");
  EXPECT_EQ(old + Rows({"1", "2", "3"}), File());
  Write("4");
  EXPECT_EQ((old + Rows({"1", "2", "3"})).substr(150) + Row("4"), File()) << "row of " << row;
}

TEST_F(LoggerTrouble, NameLongerThanTheLimitIsWrittenWholeAndTrimmedAwayByTheNextRow) {
  const std::string name(200000, 'n');
  Write("1");
  Write(name);
  const std::string bytes = File();
  EXPECT_EQ(Rows({"1", name}), BehindTheBanner(bytes));
  Write("2");
  // The search meets the line end behind the long row.
  EXPECT_EQ("\n\r\n" + Row("2"), File());
}

// ---- names

const char* const kForeignNames[] = {
    "\xc3\x9c"
    "berg\xc3\xa4nge \xc3\x9f",  // Latin letters
    "U\xcc\x88"
    "bergang",                                           // a mark of its own behind the U
    "\xd0\xb6\xd1\x83\xd1\x80\xd0\xbd\xd0\xb0\xd0\xbb",  // Cyrillic
    "\xe9\x9f\xb3\xe9\x87\x8f\xe8\xa8\x98\xe9\x8c\xb2",  // Chinese
    "\xd7\x99\xd7\x95\xd7\x9e\xd7\x9f",                  // Hebrew, right to left
    "\xf0\x9f\x94\x8a\xf0\x9d\x84\x9e",                  // beyond sixteen bits
    "a b  c.d'e,f;g=h+i[j]",                             // what shells and lists trip over
};

TEST_F(LoggerTrouble, FileUnderAForeignNameIsTrimmedInItsPlace) {
  for (const std::string name : kForeignNames) {
    SCOPED_TRACE(name);
    const std::filesystem::path place = folder.Path() / PathOf(name);
    std::filesystem::create_directory(place);
    const std::string old = "first line\nsecond" + std::string(kLimit + 1 - 17, 'x');
    std::ofstream(place / PathOf(name + ".csv"), std::ios::binary) << old;
    AddTo(folder.FileIn("") + name, name, name);
    WriteAll();
    EXPECT_EQ(old.substr(10) + Row(name), Bytes(place / PathOf(name + ".csv")));
    const auto entries = std::filesystem::directory_iterator(place);
    EXPECT_EQ(1, std::distance(begin(entries), end(entries)));
  }
}

TEST_F(LoggerTrouble, ForeignNamesOfTheDocumentReachTheDiskAsTheyAre) {
  for (const std::string name : kForeignNames) {
    SCOPED_TRACE(name);
    support::ParameterTexts texts;
    texts.numberOfPasses = "1";
    texts.logPath = folder.FileIn("") + name;
    texts.logFileName = name;
    texts.logEntryName = name;
    HostSession session(LinkedModuleExports());
    session.Configure(ParameterDocument(texts), {48000, 8, {}});
    session.StartSequence();
    session.StartPass(0);
    session.EndPass();
    session.EndSequence();
    WriteWaitingLogRows();
    const std::string bytes = Bytes(folder.Path() / PathOf(name) / PathOf(name + ".csv"));
    EXPECT_EQ(0U, BehindTheBanner(bytes).find(name + ",Analysis,0,")) << bytes;
  }
}

#ifndef _WIN32

// ---- a full disk

// While one lives, no file of this process grows beyond `bytes`: the system cuts the write that
// would, and refuses what follows, as it does at the end of a disk.
class EndOfDisk {
 public:
  explicit EndOfDisk(std::size_t bytes) : handler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit limit = before;
    limit.rlim_cur = bytes;
    isSet = setrlimit(RLIMIT_FSIZE, &limit) == 0;
  }
  ~EndOfDisk() {
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
  }
  EndOfDisk(const EndOfDisk&) = delete;
  EndOfDisk& operator=(const EndOfDisk&) = delete;
  bool IsSet() const { return isSet; }

 private:
  void (*handler)(int);
  rlimit before{};
  bool isSet;
};

class LoggerOnAFullDisk : public LoggerTrouble {
 protected:
  // Writes all that waits with room for `bytes` in any file.
  void WriteAllWithin(std::size_t bytes) {
    const EndOfDisk end(bytes);
    ASSERT_TRUE(end.IsSet());
    WriteAll();
  }
};

TEST_F(LoggerOnAFullDisk, EndOfDiskCutsAWriteAndRefusesTheNextOnPosix) {
  const std::string path = folder.FileIn("plain");
  const int file = open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(file, 0);
  {
    const EndOfDisk end(5);
    ASSERT_TRUE(end.IsSet());
    EXPECT_EQ(5, write(file, "1234567", 7));
    EXPECT_EQ(-1, write(file, "8", 1));
  }
  EXPECT_EQ(1, write(file, "9", 1));
  close(file);
  EXPECT_EQ("123459", support::ReadBytes(path));
}

TEST_F(LoggerOnAFullDisk, RowsThatFitAreWrittenAndTheOthersAreLostOnPosix) {
  support::WriteBytes(folder.FileIn("rows.csv"), "before\r\n");
  AddNumbered(5);
  WriteAllWithin(8 + Rows({"1", "2"}).size());
  EXPECT_EQ("before\r\n" + Rows({"1", "2"}), File());
  EXPECT_EQ(0, logger->WaitingEntries());
  Write("6");
  EXPECT_EQ("before\r\n" + Rows({"1", "2", "6"}), File());
}

// Deliberate: what the system took of a row is not taken back.
TEST_F(LoggerOnAFullDisk, RowThatMeetsTheEndIsCutAndTheNextStandsBehindItOnPosix) {
  for (const std::size_t room : {std::size_t{1}, Row("1").size() / 2, Row("1").size() - 1}) {
    SCOPED_TRACE(room);
    support::WriteBytes(folder.FileIn("rows.csv"), "before\r\n");
    AddNumbered(3);
    WriteAllWithin(8 + room);
    EXPECT_EQ("before\r\n" + Row("1").substr(0, room), File());
    Write("4");
    EXPECT_EQ("before\r\n" + Row("1").substr(0, room) + Row("4"), File());
  }
}

TEST_F(LoggerOnAFullDisk, BannerThatMeetsTheEndIsCutAndDoesNotComeAgainOnPosix) {
  constexpr std::size_t kRoom = 100;
  AddNumbered(2);
  WriteAllWithin(kRoom);
  const std::string cut = twin::BannerBytes("").substr(0, kRoom);
  EXPECT_EQ(cut, File());
  Write("3");
  EXPECT_EQ(cut + Row("3"), File());
}

TEST_F(LoggerOnAFullDisk, NewFileStaysEmptyAndGetsNoBannerLaterOnPosix) {
  AddNumbered(2);
  WriteAllWithin(0);
  EXPECT_TRUE(std::filesystem::exists(InFolder("rows.csv")));
  EXPECT_EQ("", File());
  Write("3");
  EXPECT_EQ(Row("3"), File());
}

// Deliberate: the file is replaced by its copy, however much of that there was room for.
TEST_F(LoggerOnAFullDisk, TrimKeepsWhatThereIsRoomForOnPosix) {
  std::string old = "a\n";
  for (int i = 0; old.size() < kLimit + 1000; ++i) old += std::to_string(i) + "\r\n";
  const std::string copied = old.substr(old.find_first_of("\r\n", old.size() - kLimit));
  for (const std::size_t room : {std::size_t{0}, std::size_t{1}, std::size_t{50000}}) {
    SCOPED_TRACE(room);
    support::WriteBytes(folder.FileIn("rows.csv"), old);
    Add("1");
    WriteAllWithin(room);
    EXPECT_EQ(copied.substr(0, room), File());
    Write("2");
    EXPECT_EQ(copied.substr(0, room) + Row("2"), File());
    EXPECT_EQ(1, FilesInFolder());
  }
}

TEST_F(LoggerOnAFullDisk, OtherFilesOfTheSameDrainAreWrittenOnPosix) {
  ASSERT_EQ(0, symlink("/dev/full", folder.FileIn("full.csv").c_str()));
  for (const char* name : {"1", "2", "3"}) {
    AddTo(folder.Text(), "full", name);
    Add(name);
  }
  WriteAll();
  EXPECT_EQ(Rows({"1", "2", "3"}), BehindTheBanner(File()));
}

// ---- a folder that refuses

TEST_F(LoggerTrouble, FolderThatRefusesRootAsWellLosesTheRowSilentlyOnPosix) {
  for (const char* path :
       {"/proc", "/proc/self", "/proc/harvane/logs", "/dev/null", "/dev/null/a"}) {
    AddTo(path, "rows", "lost");
    Add("kept");
    WriteAll();
    EXPECT_FALSE(std::filesystem::exists(std::string(path) + "/rows.csv")) << path;
  }
  EXPECT_EQ(std::vector<std::string>(5, "kept"), Names());
}

TEST_F(LoggerTrouble, CircleOfLinksLosesTheRowSilentlyOnPosix) {
  ASSERT_EQ(0, symlink("round", folder.FileIn("round").c_str()));
  ASSERT_EQ(0, symlink("circle.csv", folder.FileIn("circle.csv").c_str()));
  AddTo(folder.FileIn("round"), "rows", "lost");
  AddTo(folder.Text(), "circle", "lost");
  Write("kept");
  EXPECT_EQ(std::vector<std::string>{"kept"}, Names());
}

// No place for the copy: the file stays as long as it is, and grows.
TEST_F(LoggerTrouble, FileInAReadOnlyFolderTakesRowsWithoutATrimOnPosix) {
  const std::string old = "first line\n" + std::string(kLimit, 'x');
  const std::string path = folder.FileIn("rows.csv");
  support::WriteBytes(path, old);
  ASSERT_EQ(0, chmod(path.c_str(), 0666));
  ASSERT_EQ(0, chmod(folder.Text().c_str(), 0555));
  AddNumbered(2);
  {
    const OrdinaryUser user;
    ASSERT_TRUE(user.IsOrdinary());
    WriteAll();
  }
  ASSERT_EQ(0, chmod(folder.Text().c_str(), 0755));
  EXPECT_EQ(old + Rows({"1", "2"}), File());
  EXPECT_EQ(1, FilesInFolder());
}

// Deliberate: a stream opens its file for reading, too.
TEST_F(LoggerTrouble, FileThatCannotBeReadIsNeitherTrimmedNorWrittenOnPosix) {
  const std::string old = "first line\n" + std::string(kLimit, 'x');
  const std::string path = folder.FileIn("rows.csv");
  support::WriteBytes(path, old);
  ASSERT_EQ(0, chmod(path.c_str(), 0222));
  ASSERT_EQ(0, chmod(folder.Text().c_str(), 0777));
  Add("1");
  {
    const OrdinaryUser user;
    ASSERT_TRUE(user.IsOrdinary());
    WriteAll();
  }
  ASSERT_EQ(0, chmod(path.c_str(), 0666));
  EXPECT_EQ(old, File());
  EXPECT_EQ(1, FilesInFolder());
}

// ---- a file that another program holds

TEST_F(LoggerTrouble, LockOfAnotherProgramHindersNobodyOnPosix) {
  Write("1");
  const int other = open(folder.FileIn("rows.csv").c_str(), O_RDWR);
  ASSERT_GE(other, 0);
  ASSERT_EQ(0, flock(other, LOCK_EX));
  Write("2");
  close(other);
  EXPECT_EQ((std::vector<std::string>{"1", "2"}), Names());
}

TEST_F(LoggerTrouble, ReaderOfATrimmedFileKeepsWhatItHasOpenOnPosix) {
  const std::string old = "first line\nsecond" + std::string(kLimit + 1 - 17, 'x');
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  std::ifstream reader(folder.FileIn("rows.csv"), std::ios::binary);
  Write("1");
  const std::string read{std::istreambuf_iterator<char>(reader), std::istreambuf_iterator<char>()};
  EXPECT_EQ(old, read);
  EXPECT_EQ(old.substr(10) + Row("1"), File());
}

// ---- a file of many gigabytes

TEST_F(LoggerTrouble, FileBeyondFourGibibytesIsTrimmedLikeAnyOtherOnPosix) {
  constexpr off64_t kHole = off64_t{5} << 30;
  const std::string end = "first line\nsecond" + std::string(kLimit - 17, 'x');
  const int file = open64(folder.FileIn("rows.csv").c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(file, 0);
  ASSERT_EQ(static_cast<ssize_t>(end.size()), pwrite64(file, end.data(), end.size(), kHole));
  close(file);
  Write("1");
  ASSERT_EQ(end.size() - 10 + Row("1").size(), std::filesystem::file_size(InFolder("rows.csv")));
  EXPECT_EQ(end.substr(10) + Row("1"), File());
}

#endif  // _WIN32

}  // namespace
}  // namespace harvane
