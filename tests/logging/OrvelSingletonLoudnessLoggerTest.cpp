#include "logging/OrvelSingletonLoudnessLogger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/logging/LoggerFixture.h"
#include "tests/support/KeepsLines.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/twin/Kernels.h"

#ifdef _WIN32
#include <windows.h>
// After windows.h.
#include <shlobj.h>
#else
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/OrdinaryUser.h"
#endif

namespace harvane {
namespace {

using namespace std::chrono_literals;
using namespace logger_tests;

class Logger : public LoggerFixture {
 protected:
  // Until the writer has gone through its loop once and sleeps again.
  void WakeTheWriter() {
    AddTo(folder.FileIn("elsewhere"), "first", "first");
    logger->notify();
    ASSERT_TRUE(Within(10s, [this] { return logger->WaitingEntries() == 0; }));
    std::this_thread::sleep_for(20ms);
  }
};

// ---- draining

struct Halving {
  int entries;
  std::vector<int> writtenPerDrain;
};

class LoggerHalving : public Logger, public testing::WithParamInterface<Halving> {};

TEST_P(LoggerHalving, ADrainWritesHalfOfTheQueueRoundedUp) {
  AddNumbered(GetParam().entries);
  std::size_t written = 0;
  for (const int count : GetParam().writtenPerDrain) {
    logger->DrainQueue();
    written += static_cast<std::size_t>(count);
    ASSERT_EQ(written, Names().size());
    for (std::size_t i = 0; i < written; ++i) EXPECT_EQ(std::to_string(i + 1), Names()[i]);
    EXPECT_EQ(GetParam().entries - static_cast<int>(written), logger->WaitingEntries());
  }
  EXPECT_EQ(0, logger->WaitingEntries());
}

INSTANTIATE_TEST_SUITE_P(Queue, LoggerHalving,
                         testing::Values(Halving{1, {1}}, Halving{2, {1, 1}}, Halving{3, {2, 1}},
                                         Halving{4, {2, 1, 1}}, Halving{5, {3, 1, 1}},
                                         Halving{8, {4, 2, 1, 1}}),
                         [](const auto& info) {
                           return "Entries" + std::to_string(info.param.entries);
                         });

TEST_F(Logger, DrainOfAnEmptyQueueMakesNoFile) {
  logger->DrainQueue();
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST_F(Logger, EntryWaitsUntilTheWriterWakes) {
  WakeTheWriter();
  Add("one");
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(1, logger->WaitingEntries());
  EXPECT_EQ("", File());
}

TEST_F(Logger, WriterWakesByItself) {
  Start(Now, 5);
  Add("one");
  ASSERT_TRUE(Within(10s, [this] { return logger->WaitingEntries() == 0; }));
  EXPECT_EQ(std::vector<std::string>{"one"}, Names());
}

TEST_F(Logger, FirstDrainComesOneIntervalAfterTheStart) {
  const auto start = Steady::now();
  Start(Now, 200);
  Add("one");
  ASSERT_TRUE(Within(10s, [this] { return logger->WaitingEntries() == 0; }));
  EXPECT_GE(Steady::now() - start, 195ms);
}

TEST_F(Logger, WakesEveryFiveSecondsByDefault) {
  EXPECT_EQ(5000, kDrainIntervalMs);
  EXPECT_EQ(1000, kStopTimeoutMs);
}

TEST_F(Logger, WriterHasItsName) {
  EXPECT_EQ("Logger Writer", logger->getThreadName().toStdString());
}

TEST_F(Logger, EntriesOfSeveralInstancesGoToTheirFilesInOrder) {
  for (const char* name : {"1", "2", "3"}) {
    AddTo(folder.FileIn("left"), "a", name);
    AddTo(folder.FileIn("right"), "b", name);
    AddTo(folder.FileIn("left"), "c", name);
  }
  WriteAll();
  const std::vector<std::string> wanted = {"1", "2", "3"};
  EXPECT_EQ(wanted, NamesIn(Bytes(folder.Path() / "left" / "a.csv")));
  EXPECT_EQ(wanted, NamesIn(Bytes(folder.Path() / "right" / "b.csv")));
  EXPECT_EQ(wanted, NamesIn(Bytes(folder.Path() / "left" / "c.csv")));
}

TEST_F(Logger, RowsKeepTheQueueOrderOverManyDrains) {
  AddNumbered(40);
  WriteAll();
  std::vector<std::string> wanted;
  for (int i = 1; i <= 40; ++i) wanted.push_back(std::to_string(i));
  EXPECT_EQ(wanted, Names());
}

// ---- producers

TEST_F(Logger, ManyProducersLoseNothingAndKeepTheirOrder) {
  constexpr int kProducers = 4;
  constexpr int kEach = 150;
  Start(Now, 1);
  std::atomic<bool> isGoing{false};
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([this, p, &isGoing] {
      while (!isGoing) std::this_thread::yield();
      for (int i = 0; i < kEach; ++i) Add(std::to_string(p) + "/" + std::to_string(i));
    });
  }
  isGoing = true;
  for (int i = 0; i < 50; ++i) logger->DrainQueue();
  for (std::thread& producer : producers) producer.join();
  WriteAll();

  std::map<std::string, int> next;
  for (const std::string& name : Names()) {
    const std::size_t slash = name.find('/');
    ASSERT_EQ(std::to_string(next[name.substr(0, slash)]++), name.substr(slash + 1));
  }
  ASSERT_EQ(static_cast<std::size_t>(kProducers), next.size());
  for (const auto& [producer, count] : next) EXPECT_EQ(kEach, count) << producer;
}

TEST_F(Logger, AddEntryTakesNoLockAndReturnsWhileADrainIsHeldUp) {
  Start(HeldNow);
  isHeld = true;
  waitingForTime = 0;
  AddTo(folder.Text(), "", "slow");
  logger->notify();
  ASSERT_TRUE(Within(10s, [] { return waitingForTime > 0; }));

  std::future<Steady::duration> fastest = std::async(std::launch::async, [this] {
    auto shortest = Steady::duration::max();
    for (int i = 0; i < 50; ++i) {
      const auto start = Steady::now();
      Add(std::to_string(i));
      shortest = std::min(shortest, Steady::now() - start);
    }
    return shortest;
  });
  const bool hasReturned = fastest.wait_for(5s) == std::future_status::ready;
  const int waiting = logger->WaitingEntries();
  isHeld = false;
  EXPECT_TRUE(hasReturned);
  EXPECT_LT(fastest.get(), 1ms);
  EXPECT_EQ(51, waiting);
  WriteAll();
  EXPECT_EQ(50U, Names().size());
}

TEST_F(Logger, AddEntryMakesNoFile) {
  AddNumbered(20);
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST_F(Logger, SingletonIsOneObject) {
  EXPECT_EQ(&OrvelSingletonLoudnessLogger::SingletonInstance(),
            &OrvelSingletonLoudnessLogger::SingletonInstance());
}

// ---- bytes of the file

TEST_F(Logger, NewFileStartsWithTheBanner) {
  const juce::Time before = juce::Time::getCurrentTime();
  Add("one");
  WriteAll();
  const juce::Time after = juce::Time::getCurrentTime();
  std::vector<std::string> wanted;
  for (juce::Time t = before; t <= after + juce::RelativeTime(1.0); t += juce::RelativeTime(1.0)) {
    wanted.push_back(
        twin::BannerBytes(twin::StartTimeText(t.getDayOfMonth(), t.getMonth() + 1, t.getYear(),
                                              t.getHours(), t.getMinutes(), t.getSeconds())) +
        Row("one"));
  }
  EXPECT_NE(wanted.end(), std::find(wanted.begin(), wanted.end(), File())) << File();
}

TEST_F(Logger, StartTimeHasATwelveHourClockWithoutABlankBeforeItsMark) {
  // The form that the banner takes from JUCE.
  const juce::Time time(2013, 2, 7, 17, 4, 9, 0, true);
  EXPECT_EQ("7 Mar 2013 5:04:09pm", time.toString(true, true).toStdString());
  const juce::Time midnight(2013, 2, 7, 0, 0, 0, 0, true);
  EXPECT_EQ("7 Mar 2013 12:00:00am", midnight.toString(true, true).toStdString());
}

TEST_F(Logger, SecondRowHasNoBanner) {
  AddNumbered(2);
  WriteAll();
  const std::string bytes = File();
  EXPECT_EQ(bytes.rfind("***"), bytes.find("*****\r\n") + 2);
  EXPECT_EQ(Rows({"1", "2"}), bytes.substr(bytes.size() - Rows({"1", "2"}).size()));
}

TEST_F(Logger, ExistingEmptyFileGetsNoBanner) {
  support::WriteBytes(folder.FileIn("rows.csv"), "");
  Add("one");
  WriteAll();
  EXPECT_EQ(Row("one"), File());
}

TEST_F(Logger, ExistingFileOfOtherContentsGetsRowsWithoutABanner) {
  support::WriteBytes(folder.FileIn("rows.csv"), "a letter without an end");
  Add("one");
  WriteAll();
  EXPECT_EQ("a letter without an end" + Row("one"), File());
}

TEST_F(Logger, RowsAreUtf8WithoutAByteOrderMark) {
  support::WriteBytes(folder.FileIn("rows.csv"), "");
  Add("Gr\xc3\xbc\xc3\x9f\xe2\x82\xac\xf0\x9f\x8e\xb5");
  WriteAll();
  EXPECT_EQ(Row("Gr\xc3\xbc\xc3\x9f\xe2\x82\xac\xf0\x9f\x8e\xb5"), File());
}

TEST_F(Logger, NameWithACommaOrALineEndStandsAsItIs) {
  support::WriteBytes(folder.FileIn("rows.csv"), "");
  Add("a, b\r\nc\nd");
  WriteAll();
  EXPECT_EQ(Row("a, b\r\nc\nd"), File());
}

// ---- trimming

TEST_F(Logger, FileAtTheLimitIsNotTrimmed) {
  const std::string old = "first line\n" + std::string(131072 - 11, 'x');
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  Add("one");
  WriteAll();
  EXPECT_EQ(old + Row("one"), File());
}

TEST_F(Logger, FileOneByteOverTheLimitIsTrimmedToALineBorder) {
  const std::string old = "first line\nsecond" + std::string(131073 - 17, 'x');
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  Add("one");
  WriteAll();
  EXPECT_EQ(old.substr(10) + Row("one"), File());
}

TEST_F(Logger, TrimKeepsTheCarriageReturnItMeets) {
  const std::string old = "xx\r\n" + std::string(131073 - 4, 'x');
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  Add("one");
  WriteAll();
  EXPECT_EQ(old.substr(2) + Row("one"), File());
}

TEST_F(Logger, TrimLooksForALineEndOnlyFromTheLimitOn) {
  // The search starts at position 1: a line end at 0 is passed by.
  const std::string old = "\nyy\n" + std::string(131073 - 4, 'x');
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  Add("one");
  WriteAll();
  EXPECT_EQ(old.substr(3) + Row("one"), File());
}

TEST_F(Logger, LineEndAtTheLimitItselfIsKept) {
  const std::string old = "y\n" + std::string(131073 - 2, 'x');
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  Add("one");
  WriteAll();
  EXPECT_EQ(old.substr(1) + Row("one"), File());
}

TEST_F(Logger, FileWithoutALineEndIsNotTrimmed) {
  const std::string old(140000, 'x');
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  Add("one");
  WriteAll();
  EXPECT_EQ(old + Row("one"), File());
}

TEST_F(Logger, ZeroByteBeforeTheLineEndStopsTheTrim) {
  std::string old = "first line\nsecond" + std::string(131073 - 17, 'x');
  old[5] = '\0';
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  Add("one");
  WriteAll();
  EXPECT_EQ(old + Row("one"), File());
}

TEST_F(Logger, HeaderDoesNotComeBackAfterATrim) {
  Add("one");
  WriteAll();
  const std::string banner = File().substr(0, File().size() - Row("one").size());
  support::WriteBytes(folder.FileIn("rows.csv"), banner + std::string(131072, 'x') + "\n");
  AddNumbered(3);
  WriteAll();
  EXPECT_EQ(std::string::npos, File().find("Name, Pass"));
  EXPECT_EQ(std::string::npos, File().find("****"));
  EXPECT_EQ((std::vector<std::string>{"1", "2", "3"}), Names());
}

TEST_F(Logger, EveryRowIsPrecededByATrim) {
  std::string old;
  while (old.size() < 131072) old += Row("old");
  support::WriteBytes(folder.FileIn("rows.csv"), old);
  AddNumbered(30);
  WriteAll();
  EXPECT_LE(File().size(), 131072 + Row("30").size());
  EXPECT_EQ("30", Names().back());
}

TEST_F(Logger, TrimLeavesNoTemporaryFileBehind) {
  support::WriteBytes(folder.FileIn("rows.csv"), "a\n" + std::string(131072, 'x'));
  Add("one");
  WriteAll();
  const auto entries = std::filesystem::directory_iterator(folder.Path());
  EXPECT_EQ(1, std::distance(begin(entries), end(entries)));
}

// ---- names and folders

TEST_F(Logger, SeparatorBehindTheFolderMakesNoDifference) {
  const std::string separator(1, static_cast<char>(std::filesystem::path::preferred_separator));
  AddTo(folder.Text(), "rows", "without");
  AddTo(folder.Text() + separator, "rows", "with");
  WriteAll();
  EXPECT_EQ((std::vector<std::string>{"without", "with"}), Names());
}

TEST_F(Logger, TrailingSeparatorIsAddedOnlyWhereItIsMissing) {
  const juce::String separator = juce::File::getSeparatorString();
  EXPECT_EQ("a" + separator, EnsureTrailingBackslash("a"));
  EXPECT_EQ("a" + separator, EnsureTrailingBackslash("a" + separator));
  EXPECT_EQ(separator, EnsureTrailingBackslash(""));
}

TEST_F(Logger, MissingFoldersAreMade) {
  const auto deep = folder.Path() / "one" / "two" / "three";
  AddTo(deep.string(), "rows", "name");
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "one"));
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{"name"}, NamesIn(Bytes(deep / "rows.csv")));
}

TEST_F(Logger, ExtensionIsAddedToANameThatHasIt) {
  AddTo(folder.Text(), "rows.csv", "one");
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{"one"}, NamesIn(Bytes(folder.Path() / "rows.csv.csv")));
}

TEST_F(Logger, FoldersAndFilesHaveNamesInUtf8) {
  const std::string name = "L\xc3\xa4rm \xe6\x97\xa5\xe6\x9c\xac";
  AddTo(folder.FileIn("") + name, name, name);
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{name},
            NamesIn(Bytes(folder.Path() / PathOf(name) / PathOf(name + ".csv"))));
}

TEST_F(Logger, EmptyFileNameGivesTheDatedDefaultName) {
  AddTo(folder.Text(), "", "one");
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{"one"}, NamesIn(Bytes(folder.Path() / "Log7_Mar_2013.csv")));
}

TEST_F(Logger, EmptyEntryNameGivesTheDefaultName) {
  Add("");
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{"JobAt_5:4:9"}, Names());
}

TEST_F(Logger, DefaultEntryNameIsReadAnewForEachRow) {
  Add("");
  SetLocalTime(2013, 3, 7, 17, 4, 10);
  Add("");
  WriteAll();
  EXPECT_EQ((std::vector<std::string>{"JobAt_5:4:9", "JobAt_5:4:10"}), Names());
}

TEST_F(Logger, RowsOfOnePassCanFallIntoTwoFilesAtMidnight) {
  SetLocalTime(2013, 3, 31, 23, 59, 59);
  AddTo(folder.Text(), "", "");
  AddTo(folder.Text(), "", "");
  logger->DrainQueue();
  SetLocalTime(2013, 4, 1, 0, 0, 1);
  logger->DrainQueue();
  EXPECT_EQ(std::vector<std::string>{"JobAt_11:59:59"},
            NamesIn(Bytes(folder.Path() / "Log31_Mar_2013.csv")));
  EXPECT_EQ(std::vector<std::string>{"JobAt_11:59:59"},
            NamesIn(Bytes(folder.Path() / "Log1_Apr_2013.csv")));
}

// ---- failures

TEST_F(Logger, FolderThatIsAFileLosesTheRowSilently) {
  support::WriteBytes(folder.FileIn("taken"), "as it was");
  AddTo(folder.FileIn("taken"), "rows", "lost");
  Add("kept");
  WriteAll();
  EXPECT_EQ("as it was", support::ReadBytes(folder.FileIn("taken")));
  EXPECT_EQ(std::vector<std::string>{"kept"}, Names());
}

TEST_F(Logger, FileThatIsAFolderLosesTheRowSilently) {
  std::filesystem::create_directory(folder.Path() / "taken.csv");
  AddTo(folder.Text(), "taken", "lost");
  Add("kept");
  WriteAll();
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path() / "taken.csv"));
  EXPECT_EQ(std::vector<std::string>{"kept"}, Names());
}

TEST_F(Logger, PathTooLongLosesTheRowSilently) {
  AddTo(folder.Text(), std::string(5000, 'x'), "lost");
  AddTo(folder.FileIn(std::string(5000, 'y')), "rows", "lost");
  Add("kept");
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{"kept"}, Names());
}

TEST_F(Logger, LostRowIsNotTriedAgain) {
  support::WriteBytes(folder.FileIn("taken"), "");
  AddTo(folder.FileIn("taken"), "rows", "lost");
  WriteAll();
  std::filesystem::remove(folder.Path() / "taken");
  AddTo(folder.FileIn("taken"), "rows", "kept");
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{"kept"}, NamesIn(Bytes(folder.Path() / "taken" / "rows.csv")));
}

#ifndef _WIN32
TEST_F(Logger, ReadOnlyFolderLosesTheRowSilentlyOnPosix) {
  ASSERT_EQ(0, chmod(folder.Text().c_str(), 0555));
  Add("lost");
  {
    const support::OrdinaryUser user;
    ASSERT_TRUE(user.IsOrdinary());
    WriteAll();
  }
  ASSERT_EQ(0, chmod(folder.Text().c_str(), 0755));
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST_F(Logger, ReadOnlyFileLosesTheRowSilentlyOnPosix) {
  support::WriteBytes(folder.FileIn("rows.csv"), "as it was");
  ASSERT_EQ(0, chmod(folder.FileIn("rows.csv").c_str(), 0444));
  Add("lost");
  {
    const support::OrdinaryUser user;
    ASSERT_TRUE(user.IsOrdinary());
    WriteAll();
  }
  EXPECT_EQ("as it was", File());
}

TEST_F(Logger, FullDiskLosesTheRowSilentlyOnPosix) {
  ASSERT_EQ(0, symlink("/dev/full", folder.FileIn("full.csv").c_str()));
  AddTo(folder.Text(), "full", "lost");
  Add("kept");
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{"kept"}, Names());
}

TEST_F(Logger, PipeInPlaceOfTheFileHoldsNobodyUpOnPosix) {
  ASSERT_EQ(0, mkfifo(folder.FileIn("pipe.csv").c_str(), 0600));
  AddTo(folder.Text(), "pipe", "lost");
  Add("kept");
  WriteAll();
  EXPECT_EQ(std::vector<std::string>{"kept"}, Names());
}

class HomeGuard {
 public:
  explicit HomeGuard(const std::string& home) {
    if (const char* const text = std::getenv("HOME")) previous = text;
    setenv("HOME", home.c_str(), 1);
  }
  ~HomeGuard() { setenv("HOME", previous.c_str(), 1); }

 private:
  std::string previous;
};

TEST_F(Logger, EmptyFolderGivesTheDocumentsFolderOnPosix) {
  const HomeGuard home(folder.Text());
  Start();
  AddTo("", "rows", "one");
  AddTo("", "", "two");
  WriteAll();
  const auto logs = folder.Path() / "Documents" / "HarvaneLogs";
  EXPECT_EQ(std::vector<std::string>{"one"}, NamesIn(Bytes(logs / "rows.csv")));
  EXPECT_EQ(std::vector<std::string>{"two"}, NamesIn(Bytes(logs / "Log7_Mar_2013.csv")));
}

TEST_F(Logger, DocumentsFolderIsReadAtTheStartOnPosix) {
  {
    const HomeGuard home(folder.Text());
    Start();
  }
  const HomeGuard other(folder.FileIn("other"));
  AddTo("", "rows", "one");
  WriteAll();
  EXPECT_TRUE(std::filesystem::exists(folder.Path() / "Documents" / "HarvaneLogs" / "rows.csv"));
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "other"));
}
#else
TEST_F(Logger, EmptyFolderGivesTheDocumentsFolderOnWindows) {
  wchar_t documents[MAX_PATH];
  ASSERT_EQ(SHGetFolderPathW(nullptr, CSIDL_PERSONAL, nullptr, SHGFP_TYPE_CURRENT, documents),
            S_OK);
  const std::filesystem::path logs = std::wstring(documents) + L"\\HarvaneLogs\\";
  const bool wasThere = std::filesystem::exists(logs);
  // A name that nobody else's log has.
  const std::string stem = folder.Path().filename().string();
  AddTo("", stem, "one");
  WriteAll();
  const auto file = logs / (stem + ".csv");
  EXPECT_EQ(std::vector<std::string>{"one"}, NamesIn(Bytes(file)));
  EXPECT_TRUE(std::filesystem::remove(file));
  if (!wasThere) std::filesystem::remove(logs);
}

TEST_F(Logger, SeparatorIsABackslashOnWindows) {
  EXPECT_EQ("C:\\a\\", EnsureTrailingBackslash("C:\\a").toStdString());
  EXPECT_EQ("C:\\a\\", EnsureTrailingBackslash("C:\\a\\").toStdString());
}
#endif

// ---- the end

class LoggerEnd : public Logger, public testing::WithParamInterface<int> {};

TEST_P(LoggerEnd, LastDrainWritesHalfOfTheQueueRoundedUp) {
  WakeTheWriter();
  AddNumbered(GetParam());
  logger = nullptr;
  std::vector<std::string> wanted;
  for (int i = 1; i <= (GetParam() + 1) / 2; ++i) wanted.push_back(std::to_string(i));
  EXPECT_EQ(wanted, Names());
}

INSTANTIATE_TEST_SUITE_P(Queue, LoggerEnd, testing::Values(0, 1, 2, 3, 4, 5, 8),
                         [](const auto& info) { return "Entries" + std::to_string(info.param); });

juce::Time SlowNow() {
  std::this_thread::sleep_for(100ms);
  return Now();
}

TEST_F(Logger, TimeOfTheLastDrainBeginsWithTheEndNotWithTheDrain) {
  Start(SlowNow);
  std::vector<std::string> wanted;
  for (int i = 1; i <= 20; ++i) {
    AddTo(folder.Text(), "", std::to_string(i));  // whose file name asks for the time
    if (i <= 10) wanted.push_back(std::to_string(i));
  }
  logger->notify();
  static_assert(kLastDrainMs <= 8 * 100, "the time of a last drain has gone by");
  ASSERT_TRUE(Within(10s, [this] { return logger->WaitingEntries() <= 20 - 8; }));
  logger = nullptr;
  EXPECT_EQ(wanted, NamesIn(Bytes(folder.Path() / "Log7_Mar_2013.csv")));
}

TEST_F(Logger, EndInTimeSaysNothingToTheJuceLogger) {
  support::KeepsLines lines;
  for (int i = 0; i < 3; ++i) {
    WakeTheWriter();
    AddNumbered(3);
    Start();
  }
  logger = nullptr;
  EXPECT_TRUE(lines.lines.empty());
  EXPECT_EQ(juce::Logger::getCurrentLogger(), &lines);
}

TEST_F(Logger, EndComesAtOnceThoughTheWriterSleeps) {
  WakeTheWriter();
  AddNumbered(4);
  const auto start = Steady::now();
  logger = nullptr;
  EXPECT_LT(Steady::now() - start, 500ms);
}

TEST_F(Logger, EndRightAfterTheStartReturns) {
  for (int i = 0; i < 100; ++i) {
    Start();
    Add("one");
  }
  const auto start = Steady::now();
  logger = nullptr;
  EXPECT_LT(Steady::now() - start, 900ms);
}

TEST_F(Logger, DrainWithoutTheWriterIsGivenUpWhereTheQueueIsLocked) {
  Start(HeldNow);
  isHeld = true;
  waitingForTime = 0;
  AddTo(folder.Text(), "", "slow");
  logger->notify();
  ASSERT_TRUE(Within(10s, [] { return waitingForTime > 0; }));
  Add("one");
  logger->DrainWithoutWriter();
  EXPECT_EQ(2, logger->WaitingEntries());
  isHeld = false;
  WriteAll();
}

TEST_F(Logger, DrainWithoutTheWriterIsADrain) {
  AddNumbered(3);
  logger->DrainWithoutWriter();
  EXPECT_EQ((std::vector<std::string>{"1", "2"}), Names());
}

// A folder that a death test's own process finds again by its environment, and
// leaves to the process that made it.
class FolderOfBothProcesses {
 public:
  FolderOfBothProcesses() {
    const char* const handedOver = std::getenv(kName);
    if (handedOver != nullptr) {
      text = handedOver;
      return;
    }
    folder.emplace();
    text = folder->Text();
    Set(text);
  }
  ~FolderOfBothProcesses() {
    if (folder) Set("");
  }
  const std::string& Text() const { return text; }

 private:
  static constexpr const char* kName = "HARVANE_DEATH_TEST_FOLDER";
  static void Set(const std::string& value) {
#ifdef _WIN32
    _putenv_s(kName, value.c_str());
#else
    if (value.empty()) {
      unsetenv(kName);
    } else {
      setenv(kName, value.c_str(), 1);
    }
#endif
  }

  std::optional<support::TemporaryFolder> folder;
  std::string text;
};

TEST(LoggerDeathTest, ExitWritesHalfOfTheSingletonsQueue) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const FolderOfBothProcesses folder;
  EXPECT_EXIT(
      {
        OrvelSingletonLoudnessLogger& singleton = OrvelSingletonLoudnessLogger::SingletonInstance();
        std::this_thread::sleep_for(100ms);
        for (const char* name : {"1", "2", "3"}) {
          singleton.AddEntry(Silence(), "rows", folder.Text(), name, 0);
        }
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_EQ((std::vector<std::string>{"1", "2"}),
            NamesIn(support::ReadBytes(folder.Text() + "/rows.csv")));
}

TEST(LoggerDeathTest, WriterThatHangsIsGivenUpAfterASecondAndTheJuceLoggerTold) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const FolderOfBothProcesses folder;
  EXPECT_EXIT(
      {
        auto logger = std::make_unique<OrvelSingletonLoudnessLogger>(HeldNow, kNever);
        isHeld = true;
        for (const char* name : {"1", "2", "3"}) {
          logger->AddEntry(Silence(), "", folder.Text(), name, 0);
        }
        logger->notify();
        if (!Within(10s, [] { return waitingForTime > 0; })) std::_Exit(3);
        support::KeepsLines lines;
        const auto start = Steady::now();
        logger = nullptr;
        const auto took = Steady::now() - start;
        const std::vector<std::string> wanted(1, "!! killing thread by force !!");
        if (lines.lines != wanted) std::_Exit(5);
        std::this_thread::sleep_for(300ms);  // time for what was cut off to show
        std::_Exit(took > 900ms && took < 3s && waitingForTime == 1 ? 0 : 4);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace harvane
