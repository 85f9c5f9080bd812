// The end of a module, each in a process of its own: module_end_trap runs jobs and ends; here it
// is timed, and its log is read.
//
// --cases=200 repeats each end that is tried several times so often, and loads the module so often;
// --seconds=60 has ten instances at work for a minute before the module goes.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/JuceCore.h"
#include "tests/host/module_end/TrapContract.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestMain.h"

namespace {

using support::kTrapStatus;
using support::TemporaryFolder;

constexpr int kEndLimitMs = 2000;
constexpr int kHangLimitMs = 15000;
constexpr int kLastDrainMs = 800;  // the module gives a last drain no longer
constexpr int kRowsOfJob = 32;     // sixteen tracks, two passes

struct Ended {
  int status = -1;
  bool didHang = false;
  long long milliseconds = 0;  // from the announcement of the end
  std::string output;
};

// `pauseUs`: microseconds between the last job and the end.
Ended RunTrap(const TemporaryFolder& folder, const std::string& end, int jobs = 1,
              int pauseUs = 0) {
  const juce::File here =
      juce::File::getSpecialLocation(juce::File::currentExecutableFile).getParentDirectory();
#ifdef _WIN32
  const juce::File trap = here.getChildFile("module_end_trap.exe");
#else
  const juce::File trap = here.getChildFile("module_end_trap");
#endif
  const juce::StringArray command = {trap.getFullPathName(),
                                     here.getChildFile("Harvane.rpi").getFullPathName(),
                                     juce::String::fromUTF8(folder.Text().c_str()),
                                     juce::String(end),
                                     juce::String(jobs),
                                     juce::String(pauseUs)};
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

// Each row is the next of `heads`, which come again and again; the first is any of them.
void ExpectConsecutive(const std::vector<std::string>& rows,
                       const std::vector<std::string>& heads) {
  std::size_t next = 0;
  while (next < heads.size() && rows.at(0).rfind(heads[next], 0) != 0) ++next;
  for (const std::string& row : rows) {
    ASSERT_EQ(row.rfind(heads[next % heads.size()], 0), 0U) << row;
    ++next;
  }
}

// Behind "name " on a line of its own.
int NumberIn(const std::string& output, const std::string& name) {
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind(name + " ", 0) == 0) return std::stoi(line.substr(name.size() + 1));
  }
  ADD_FAILURE() << "no " << name << " in " << output;
  return 0;
}

// A disk or a processor that was not to be had for the whole time of a last drain costs rows. Half
// of it is judged: the drain looks at another clock.
bool HadTimeForLastDrain(const Ended& ended) {
  return NumberIn(ended.output, "took") < kLastDrainMs / 2;
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

// How long ends took. What the clock can tell: a look at the process every few milliseconds.
class EndTimes {
 public:
  void Take(const Ended& ended) { times.push_back(ended.milliseconds); }
  void Print(const std::string& end) {
    if (times.empty()) return;
    std::sort(times.begin(), times.end());
    std::printf("%s, %zu times, ms: median %lld, longest %lld\n", end.c_str(), times.size(),
                times[times.size() / 2], times.back());
  }

 private:
  std::vector<long long> times;
};

// Early ends again and again, the writer somewhere in its beginnings.
void CheckEarlyEnds(const std::string& end) {
  EndTimes times;
  support::ForEachSeed(5, [&](std::uint64_t seed) {
    const int tracks = 1 + static_cast<int>(seed % 8);
    const int pauseUs = static_cast<int>(seed * 137 % 3000);
    const TemporaryFolder folder;
    const Ended ended = RunTrap(folder, end + "/" + std::to_string(tracks), 1, pauseUs);
    times.Take(ended);
    ExpectOrderly(ended);
    ExpectRows(folder, HalfRoundedUp(tracks), tracks, 1);
  });
  times.Print(end);
}

// Four traps that end while they drain, side by side, or as many as the options say: each waits
// five seconds for its drain.
template <class Check>
void RunDrainingTraps(const std::string& end, int jobs, Check check) {
  constexpr std::uint64_t kSideBySide = 4;
  EndTimes times;
  const std::uint64_t count = support::SeedsFor(kSideBySide).count;
  for (std::uint64_t done = 0; done < count; done += kSideBySide) {
    const auto now = static_cast<std::size_t>(std::min(kSideBySide, count - done));
    std::vector<TemporaryFolder> folders(now);
    std::vector<Ended> ended(now);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < now; ++i) {
      support::WriteBytes(folders[i].FileIn(support::kTrapFile + std::string(".csv")),
                          "there before\r\n");
      threads.emplace_back([&, i] { ended[i] = RunTrap(folders[i], end, jobs); });
    }
    for (std::thread& thread : threads) thread.join();
    for (std::size_t i = 0; i < now; ++i) {
      SCOPED_TRACE("repeat " + std::to_string(done + i) + ": " + ended[i].output);
      times.Take(ended[i]);
      ExpectOrderly(ended[i]);
      check(folders[i], ended[i]);
    }
    if (testing::Test::HasFailure()) break;
  }
  times.Print(end);
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
  RunDrainingTraps(end, kJobs, [](const TemporaryFolder& folder, const Ended& ended) {
    const int count = static_cast<int>(Rows(folder).size());
    const int wanted = count > kRows / 2 ? kRows / 2 + kRows / 4 : kRows / 2;
    EXPECT_LE(count, wanted);
    ExpectRows(folder, HadTimeForLastDrain(ended) ? wanted : count, kRowsOfJob / 2, 2);
  });
}

TEST(ModuleEnd, UnloadingBeforeTheWritersFirstWakeUpWritesHalfOfTheRows) {
  CheckEarlyEnd("unload");
}

TEST(ModuleEnd, ReturningFromMainWithTheModuleLoadedWritesHalfOfTheRows) {
  CheckEarlyEnd("return");
}

TEST(ModuleEnd, ExitWithTheModuleLoadedWritesHalfOfTheRows) { CheckEarlyEnd("exit"); }

TEST(ModuleEnd, ExitWithAnInstanceInAStaticObjectOfTheHostWritesHalfOfTheRows) {
  const TemporaryFolder folder;
  ExpectOrderly(RunTrap(folder, "exit-holding-an-instance/5"));
  ExpectRows(folder, 3, 5, 1);
}

TEST(ModuleEnd, ExitWaitsForAThreadThatTheHostJoinsAndThatGoesOnCalling) {
  constexpr int kLateCallMs = 2000;
  const TemporaryFolder folder;
  const Ended ended = RunTrap(folder, "exit-joining-a-thread/5");
  EXPECT_FALSE(ended.didHang);
  EXPECT_EQ(ended.status, kTrapStatus) << ended.output;
  EXPECT_LT(ended.milliseconds, kLateCallMs + kEndLimitMs);
  ExpectRows(folder, 3, 5, 1);
}

TEST(ModuleEnd, TheSystemsOwnExitWithTheModuleLoadedWritesHalfOfTheRows) {
  CheckEarlyEnd("system-exit");
}

TEST(ModuleEnd, EveryUnloadingEndsInTime) { CheckEarlyEnds("unload"); }

TEST(ModuleEnd, EveryReturnFromMainEndsInTime) { CheckEarlyEnds("return"); }

TEST(ModuleEnd, EveryExitEndsInTime) { CheckEarlyEnds("exit"); }

TEST(ModuleEnd, EveryExitOfTheSystemEndsInTime) { CheckEarlyEnds("system-exit"); }

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
  RunDrainingTraps("exit-draining", kJobs, [](const TemporaryFolder& folder, const Ended&) {
    const int count = static_cast<int>(Rows(folder).size());
    EXPECT_GE(count, 1);
    EXPECT_LE(count, kJobs * kRowsOfJob * 3 / 4);
    ExpectRows(folder, count, kRowsOfJob / 2, 2);
  });
}
#else
TEST(ModuleEnd, ExitWithinADrainWaitsForAllOfIt) { CheckEndWhileDraining("exit-draining"); }
#endif

TEST(ModuleEnd, EveryExitBesideAThreadInsideTheModuleWritesHalfOfTheRows) {
  EndTimes times;
  support::ForEachSeed(10, [&](std::uint64_t seed) {
    const TemporaryFolder folder;
    const Ended ended =
        RunTrap(folder, "exit-beside-a-job/5", 1, static_cast<int>(seed * 7919 % 20000));
    times.Take(ended);
    ExpectOrderly(ended);
    ExpectRows(folder, 3, 5, 1);
  });
  times.Print("exit-beside-a-job");
}

// How many rows there are by then is chance, and their file may have been trimmed.
TEST(ModuleEnd, EveryExitBesideAThreadThatAddsRowsLeavesWholeRowsInOrder) {
  EndTimes times;
  support::ForEachSeed(10, [&](std::uint64_t seed) {
    const TemporaryFolder folder;
    const Ended ended =
        RunTrap(folder, "exit-beside-a-log/5", 1, static_cast<int>(seed * 7919 % 20000));
    times.Take(ended);
    ExpectOrderly(ended);
    const std::vector<std::string> rows = Rows(folder);
    EXPECT_GE(rows.size(), 3U);
    ExpectConsecutive(rows, ExpectedHeads(5, 5, 1));
  });
  times.Print("exit-beside-a-log");
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
    ExpectConsecutive(rows, ExpectedHeads(kRowsOfJob, kRowsOfJob / 2, 2));
  }
}

TEST(ModuleEnd, AModuleLoadedAgainAndAgainStartsAfreshEachTime) {
  const int times = static_cast<int>(support::SeedsFor(20).count);
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

// Rows of a storm in the order of the files, checked: each has its thirteen fields, and is the
// next one of its thread.
int CheckStormRows(const TemporaryFolder& folder) {
  std::array<int, support::kTrapThreads> next{};
  int count = 0;
  for (int i = 0; std::filesystem::exists(folder.FileIn(support::StormFile(i) + ".csv")); ++i) {
    std::istringstream log(support::ReadBytes(folder.FileIn(support::StormFile(i) + ".csv")));
    for (std::string line; std::getline(log, line);) {
      if (line.find(support::kTrapEntry) == std::string::npos) continue;
      std::istringstream fields(line);
      std::string entry;
      std::getline(fields, entry, '/');
      EXPECT_EQ(entry, support::kTrapEntry) << line;
      std::string thread;
      std::getline(fields, thread, '/');
      int& pass = next.at(static_cast<std::size_t>(std::stoi(thread)));
      std::string rest;
      std::getline(fields, rest);
      EXPECT_EQ(rest, std::to_string(pass) +
                          ",Analysis,0,1,Stereo,-70.0,-70.0,-70.0,00:00:00:000,-70.0,00:00:00:000,"
                          "-70.0,00:00:00:000");
      ++pass;
      ++count;
    }
  }
  return count;
}

// The writer wakes every five seconds meanwhile; then the module goes with N rows waiting, of
// which the older half is written. Where the writer woke once more before it was told, there are
// that many fewer.
TEST(ModuleEnd, UnloadingAfterAStormLosesTheNewestHalfOfWhatWaitsAndNothingElse) {
#ifdef _WIN32
  constexpr int kPassesPerSecond = 5;
#else
  constexpr int kPassesPerSecond = 20;
#endif
  const TemporaryFolder folder;
  const Ended ended = RunTrap(folder, "storm-" + std::to_string(kPassesPerSecond) + "/1",
                              static_cast<int>(kPassesPerSecond * support::SecondsFor(1)));
  ExpectOrderly(ended);
  const int sent = NumberIn(ended.output, "sent");
  const int before = NumberIn(ended.output, "written");
  const int written = CheckStormRows(folder);
  const int waiting = sent - before;
  std::printf("storm: %d rows sent, %d written before the end, %d in the end, within %lld ms\n",
              sent, before, written, ended.milliseconds);
  const bool hasWokenOnceMore = written > sent - waiting / 2;
  const int wanted = sent - waiting / (hasWokenOnceMore ? 4 : 2);
  EXPECT_LE(written, wanted);
  if (HadTimeForLastDrain(ended)) {
    EXPECT_EQ(written, wanted);
  }
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
