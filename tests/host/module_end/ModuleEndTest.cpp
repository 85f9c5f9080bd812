// The end of a module, each in a process of its own: module_end_trap runs jobs and ends; here it
// is timed, and its log is read.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "platform/JuceCore.h"
#include "tests/host/module_end/TrapContract.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using support::kTrapStatus;
using support::TemporaryFolder;

constexpr int kEndLimitMs = 2000;
constexpr int kHangLimitMs = 15000;
constexpr int kRowsOfJob = 32;  // sixteen tracks, two passes

struct Ended {
  int status = -1;
  bool didHang = false;
  long long milliseconds = 0;  // from the announcement of the end
  std::string output;
};

Ended RunTrap(const TemporaryFolder& folder, const std::string& end, int jobs = 1) {
  const juce::File here =
      juce::File::getSpecialLocation(juce::File::currentExecutableFile).getParentDirectory();
#ifdef _WIN32
  const juce::File trap = here.getChildFile("module_end_trap.exe");
#else
  const juce::File trap = here.getChildFile("module_end_trap");
#endif
  const juce::StringArray command = {
      trap.getFullPathName(), here.getChildFile("Harvane.rpi").getFullPathName(),
      juce::String::fromUTF8(folder.Text().c_str()), juce::String(end), juce::String(jobs)};
  Ended ended;
  juce::ChildProcess process;
  if (!process.start(command)) {
    ADD_FAILURE() << trap.getFullPathName() << " cannot be started";
    return ended;
  }
  char character = 0;
  while (ended.output.find("ending") == std::string::npos &&
         process.readProcessOutput(&character, 1) == 1) {
    ended.output += character;
  }
  const auto start = std::chrono::steady_clock::now();
  ended.didHang = !process.waitForProcessToFinish(kHangLimitMs);
  ended.milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::steady_clock::now() - start)
                           .count();
  if (ended.didHang) {
    process.kill();
  } else {
    ended.status = static_cast<int>(process.getExitCode());
    ended.output += process.readAllProcessOutput().toStdString();
  }
  return ended;
}

std::vector<std::string> Rows(const TemporaryFolder& folder) {
  std::istringstream log(
      support::ReadBytes(folder.FileIn(support::kTrapFile + std::string(".csv"))));
  std::vector<std::string> rows;
  for (std::string line; std::getline(log, line);) {
    if (line.rfind(support::kTrapEntry, 0) == 0) rows.push_back(line);
  }
  return rows;
}

// The head of each of the first `count` rows of jobs with `tracks` stereo tracks.
std::vector<std::string> ExpectedHeads(int count, int tracks, int passes) {
  std::vector<std::string> heads;
  for (int i = 0; i < count; ++i) {
    const int track = i % tracks;
    const bool isFirstPass = i / tracks % passes == 0;
    heads.push_back(std::string(support::kTrapEntry) + (isFirstPass ? ",Analysis," : ",Process,") +
                    std::to_string(2 * track) + "," + std::to_string(2 * track + 1) + ",Stereo,");
  }
  return heads;
}

void ExpectOrderly(const Ended& ended) {
  EXPECT_FALSE(ended.didHang);
  EXPECT_EQ(ended.status, kTrapStatus) << ended.output;
  EXPECT_LT(ended.milliseconds, kEndLimitMs);
}

void ExpectRows(const TemporaryFolder& folder, int count, int tracks, int passes) {
  const std::vector<std::string> rows = Rows(folder);
  const std::vector<std::string> heads = ExpectedHeads(count, tracks, passes);
  ASSERT_EQ(rows.size(), heads.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].substr(0, heads[i].size()), heads[i]) << "row " << i;
  }
}

int HalfRoundedUp(int rows) { return (rows + 1) / 2; }

// An end right after the pass ends, before the writer has ever woken by itself.
void CheckEarlyEnd(const std::string& end) {
  for (const int tracks : {1, 2, 5, 8}) {
    SCOPED_TRACE(end + " with " + std::to_string(tracks) + " rows");
    const TemporaryFolder folder;
    ExpectOrderly(RunTrap(folder, end + "/" + std::to_string(tracks)));
    ExpectRows(folder, HalfRoundedUp(tracks), tracks, 1);
  }
  SCOPED_TRACE(end + " with 32 rows");
  const TemporaryFolder folder;
  ExpectOrderly(RunTrap(folder, end));
  ExpectRows(folder, HalfRoundedUp(kRowsOfJob), kRowsOfJob / 2, 2);
}

// An end when the first row of a long drain has come to the file. Where the drain is over before
// the end begins, there is another; either is written as a whole.
void CheckEndWhileDraining(const std::string& end) {
#ifdef _WIN32
  constexpr int kJobs = 5;  // a row takes a millisecond and more under Wine
#else
  constexpr int kJobs = 20;
#endif
  constexpr int kRows = kJobs * kRowsOfJob;
  const TemporaryFolder folder;
  support::WriteBytes(folder.FileIn(support::kTrapFile + std::string(".csv")), "there before\r\n");
  ExpectOrderly(RunTrap(folder, end, kJobs));
  const bool hadAnother = Rows(folder).size() > kRows / 2;
  ExpectRows(folder, hadAnother ? kRows / 2 + kRows / 4 : kRows / 2, kRowsOfJob / 2, 2);
}

TEST(ModuleEnd, UnloadingBeforeTheWritersFirstWakeUpWritesHalfOfTheRows) {
  CheckEarlyEnd("unload");
}

TEST(ModuleEnd, ReturningFromMainWithTheModuleLoadedWritesHalfOfTheRows) {
  CheckEarlyEnd("return");
}

TEST(ModuleEnd, ExitWithTheModuleLoadedWritesHalfOfTheRows) { CheckEarlyEnd("exit"); }

TEST(ModuleEnd, TheSystemsOwnExitWithTheModuleLoadedWritesHalfOfTheRows) {
  CheckEarlyEnd("system-exit");
}

TEST(ModuleEnd, UnloadingAfterADrainWritesHalfOfTheRest) {
  const TemporaryFolder folder;
  ExpectOrderly(RunTrap(folder, "unload-later/8"));
  ExpectRows(folder, 4 + 2, 8, 1);
}

TEST(ModuleEnd, UnloadingWithinADrainWaitsForAllOfIt) { CheckEndWhileDraining("unload-draining"); }

#ifdef _WIN32
// The system ends the writer within the drain, and whatever it held stays locked: the rest of the
// drain is lost. What came to the file has no gap, and nothing twice.
TEST(ModuleEnd, ExitWithinADrainEndsInTimeAndLeavesWholeRowsInOrder) {
  constexpr int kJobs = 20;
  const TemporaryFolder folder;
  support::WriteBytes(folder.FileIn(support::kTrapFile + std::string(".csv")), "there before\r\n");
  ExpectOrderly(RunTrap(folder, "exit-draining", kJobs));
  const int count = static_cast<int>(Rows(folder).size());
  EXPECT_GE(count, 1);
  EXPECT_LE(count, kJobs * kRowsOfJob * 3 / 4);
  ExpectRows(folder, count, kRowsOfJob / 2, 2);
}
#else
TEST(ModuleEnd, ExitWithinADrainWaitsForAllOfIt) { CheckEndWhileDraining("exit-draining"); }
#endif

TEST(ModuleEnd, ExitBesideAThreadInsideTheModuleWritesHalfOfTheRows) {
  const TemporaryFolder folder;
  ExpectOrderly(RunTrap(folder, "exit-beside-a-job/5"));
  ExpectRows(folder, 3, 5, 1);
}

// Every row trims the file first, which makes the drain long; what is trimmed away is the head.
TEST(ModuleEnd, ADrainTooLongForTheEndIsGivenUpAfterAWholeRow) {
  constexpr int kJobs = 100;
  for (const char* end : {"unload", "system-exit"}) {
    SCOPED_TRACE(end);
    const TemporaryFolder folder;
    support::WriteBytes(folder.FileIn(support::kTrapFile + std::string(".csv")),
                        std::string(140000, '-') + "\r\n" + std::string(140000, '-') + "\r\n");
    ExpectOrderly(RunTrap(folder, end, kJobs));
    const std::vector<std::string> rows = Rows(folder);
    ASSERT_FALSE(rows.empty());
    const std::vector<std::string> heads = ExpectedHeads(kRowsOfJob, kRowsOfJob / 2, 2);
    std::size_t next = 0;
    while (next < heads.size() && rows[0].rfind(heads[next], 0) != 0) ++next;
    for (const std::string& row : rows) {
      ASSERT_EQ(row.rfind(heads.at(next % heads.size()), 0), 0U) << row;
      ++next;
    }
  }
}

// As often as HARVANE_TEST_RELOADS says, twenty times otherwise.
TEST(ModuleEnd, AModuleLoadedAgainAndAgainStartsAfreshEachTime) {
  const char* const wanted = std::getenv("HARVANE_TEST_RELOADS");
  const int times = wanted != nullptr ? std::atoi(wanted) : 20;
  const TemporaryFolder folder;
  ExpectOrderly(RunTrap(folder, "reload/5", times));
  const std::vector<std::string> rows = Rows(folder);
  ASSERT_EQ(rows.size(), static_cast<std::size_t>(3 * times));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].rfind(ExpectedHeads(3, 5, 1)[i % 3], 0), 0U) << rows[i];
  }
}

TEST(ModuleEnd, InstancesInTenThreadsShareOneWriter) {
  const TemporaryFolder folder;
  ExpectOrderly(RunTrap(folder, "threads/5"));
  EXPECT_EQ(Rows(folder).size(), 25U);
}

#if defined(_WIN32) && defined(__i386__)
// The system aligns the stack to four bytes only.
TEST(ModuleEnd, TheEntryPointTakesAStackOfAnyAlignment) {
  for (const char* end : {"detach-at-0/5", "detach-at-4/5", "detach-at-8/5", "detach-at-12/5"}) {
    SCOPED_TRACE(end);
    const TemporaryFolder folder;
    ExpectOrderly(RunTrap(folder, end));
    ExpectRows(folder, 3, 5, 1);
  }
}
#endif

}  // namespace
