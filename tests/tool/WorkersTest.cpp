#include "tool/Workers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <thread>

#include "tool/Interruption.h"

namespace harvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Kind = JobEnd::Kind;

#ifdef _WIN32
constexpr const char* kWayOfACrash = "its process ended with 0xC0000005 (access violation)";
constexpr const char* kWayOfAKill = "its process ended with 0xE0000001 (killed)";
constexpr const char* kNoSuchProgram = "Windows error ";
#else
constexpr const char* kWayOfACrash = "its process was ended by signal 6 (Aborted)";
constexpr const char* kWayOfAKill = "its process was ended by signal 9 (Killed)";
constexpr const char* kNoSuchProgram = "No such file or directory";
#endif

struct Outcome {
  bool isWhole = false;
  std::vector<std::size_t> order;      // of the ends
  std::map<std::size_t, JobEnd> ends;  // by job
  std::map<std::size_t, std::string> news;
  std::vector<std::string> errorLines;
};

class Workers : public testing::Test {
 protected:
  Outcome Run(const std::vector<std::string>& jobs) {
    Outcome outcome;
    WorkerListener listener;
    listener.onEnd = [&](const JobEnd& end) {
      outcome.order.push_back(end.job);
      EXPECT_TRUE(outcome.ends.emplace(end.job, end).second) << "told twice of " << end.job;
    };
    listener.onNews = [&](std::size_t job, const std::string& text) { outcome.news[job] = text; };
    listener.onErrorLine = [&](const std::string& line) { outcome.errorLines.push_back(line); };
    listener.onStart = onStart;
    outcome.isWhole = RunInWorkers(settings, jobs, listener, &interruption);
    return outcome;
  }

  Interruption interruption;
  WorkerSettings settings{{HARVANE_PLAIN_WORKER}, 1, {}};
  std::function<void(std::size_t)> onStart;
};

TEST_F(Workers, EveryJobIsAnsweredByOneProcessInTurn) {
  const Outcome outcome = Run({"say a", "say b", "say c"});
  EXPECT_TRUE(outcome.isWhole);
  EXPECT_THAT(outcome.order, ElementsAre(0, 1, 2));
  EXPECT_EQ(outcome.ends.at(1).kind, Kind::kAnswered);
  EXPECT_EQ(outcome.ends.at(1).text, "did say b");
}

TEST_F(Workers, NothingToDoStartsNothing) {
  settings.command = {"/nowhere/at/all"};
  const Outcome outcome = Run({});
  EXPECT_TRUE(outcome.isWhole);
  EXPECT_TRUE(outcome.ends.empty());
}

TEST_F(Workers, SeveralProcessesWorkAtTheSameTime) {
  settings.processes = 4;
  const auto start = std::chrono::steady_clock::now();
  const Outcome outcome = Run({"sleep 1.5", "sleep 1.5", "sleep 1.5", "sleep 1.5", "say x"});
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(outcome.ends.size(), 5U);
  EXPECT_LT(spent.count(), 5.9);  // one after the other takes 6
  EXPECT_GE(outcome.ends.at(0).seconds, 1.5);
}

TEST_F(Workers, ACrashCostsNoOtherJobItsAnswer) {
  const Outcome outcome = Run({"say a", "crash", "say b", "exit 3", "say c"});
  EXPECT_TRUE(outcome.isWhole);
  EXPECT_EQ(outcome.ends.at(1).kind, Kind::kCrashed);
  EXPECT_THAT(outcome.ends.at(1).text, StartsWith(kWayOfACrash));
  EXPECT_EQ(outcome.ends.at(3).kind, Kind::kCrashed);
  EXPECT_EQ(outcome.ends.at(3).text, "its process ended with status 3");
  for (const std::size_t good : {0, 2, 4}) EXPECT_EQ(outcome.ends.at(good).kind, Kind::kAnswered);
}

TEST_F(Workers, LastWordsBelongToTheCrash) {
  const Outcome outcome = Run({"complain first", "complain before", "exit 9"});
  EXPECT_THAT(outcome.errorLines, ElementsAre("first", "before"));
  // What was said at an earlier job has nothing to do with it.
  EXPECT_EQ(outcome.ends.at(2).text, "its process ended with status 9");
}

TEST_F(Workers, AJobBeyondItsTimeIsEndedAndTheRestIsDone) {
  settings.timeoutSeconds = 0.3;
  const Outcome outcome = Run({"say a", "sleep 20", "say b"});
  EXPECT_EQ(outcome.ends.at(1).kind, Kind::kTimedOut);
  EXPECT_GE(outcome.ends.at(1).seconds, 0.3);
  EXPECT_LT(outcome.ends.at(1).seconds, 10.0);
  EXPECT_EQ(outcome.ends.at(2).kind, Kind::kAnswered);
}

TEST_F(Workers, AProcessThatWillNotEndIsKilled) {
  settings.timeoutSeconds = 0.3;
  const Outcome outcome = Run({"stay", "say b"});
  EXPECT_EQ(outcome.ends.at(0).kind, Kind::kTimedOut);
  EXPECT_THAT(outcome.ends.at(0).text, StartsWith(kWayOfAKill));
  EXPECT_EQ(outcome.ends.at(1).kind, Kind::kAnswered);
}

TEST_F(Workers, NewsComesBeforeTheAnswer) {
  const Outcome outcome = Run({"news half", "say b"});
  EXPECT_EQ(outcome.news.size(), 1U);
  EXPECT_EQ(outcome.news.at(0), "half");
}

TEST_F(Workers, WhatAJobPrintsIsNoAnswer) {
  const Outcome outcome = Run({"print aNo answer", "input"});
  EXPECT_EQ(outcome.ends.at(0).text, "did print aNo answer");
  EXPECT_THAT(outcome.errorLines, ElementsAre("aNo answer"));
  EXPECT_EQ(outcome.ends.at(1).text, "did input");
}

TEST_F(Workers, AnAnswerMayBeLong) {
  EXPECT_EQ(Run({"limit"}).ends.at(0).text, std::string(1'000'000, 'x'));
}

TEST_F(Workers, WithoutAnyWorkerEveryJobEndsAsCrashed) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"/nowhere/at/all"}, {HARVANE_PLAIN_WORKER, "7"}}) {
    settings.command = command;
    settings.processes = 2;
    const Outcome outcome = Run({"say a", "say b", "say c"});
    EXPECT_TRUE(outcome.isWhole);
    ASSERT_EQ(outcome.ends.size(), 3U);
    for (const auto& [job, end] : outcome.ends) EXPECT_EQ(end.kind, Kind::kCrashed) << job;
    EXPECT_THAT(
        outcome.ends.at(0).text,
        HasSubstr(command.size() == 1 ? kNoSuchProgram : "its process ended with status 7"));
  }
}

TEST_F(Workers, AnInterruptionEndsWhatRunsAndBeginsNothingMore) {
  settings.processes = 2;
  onStart = [](std::size_t job) {
    if (job == 2) std::raise(SIGTERM);
  };
  const Outcome outcome = Run({"say a", "sleep 30", "sleep 30", "say b"});
  EXPECT_FALSE(outcome.isWhole);
  EXPECT_EQ(outcome.ends.at(0).kind, Kind::kAnswered);
  EXPECT_EQ(outcome.ends.at(1).kind, Kind::kInterrupted);
  EXPECT_EQ(outcome.ends.at(2).kind, Kind::kInterrupted);
  EXPECT_EQ(outcome.ends.count(3), 0U);
  EXPECT_LT(outcome.ends.at(2).seconds, 20.0);
}

TEST_F(Workers, AWorkerThatIsEndedTogetherWithTheProgramDidNotCrash) {
  onStart = [](std::size_t /*job*/) { std::raise(SIGTERM); };
  const Outcome outcome = Run({"exit 3"});
  EXPECT_EQ(outcome.ends.at(0).kind, Kind::kInterrupted);
}

TEST(InterruptionDeathTest, TheSecondOneEndsTheProcessAtOnce) {
  EXPECT_EXIT(
      {
        Interruption interruption;
        std::raise(SIGTERM);
        if (!interruption.HasCome()) std::_Exit(1);
        std::raise(SIGTERM);
        std::_Exit(2);
      },
      testing::ExitedWithCode(130), "");
}

TEST(Interruption, WaitingEndsAtOnceWhereOneHasComeThatWasNotTold) {
  Interruption interruption;
  std::raise(SIGTERM);
  const auto start = std::chrono::steady_clock::now();
  interruption.Await({}, 20'000);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_TRUE(interruption.HasCome());
}

}  // namespace
}  // namespace harvane
