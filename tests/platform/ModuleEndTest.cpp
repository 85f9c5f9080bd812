#include "platform/ModuleEnd.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/KeepsLines.h"

namespace harvane {
namespace {

constexpr int kLongMs = 10000;

// Waits until it is told to go, then does its last work.
class Worker : public juce::Thread {
 public:
  explicit Worker(int lastWorkMs = 0) : Thread("worker"), lastWorkMs(lastWorkMs) {}
  void Start() {
    startThread();
    end.AwaitEntry(kLongMs);
    hasStarted.wait(kLongMs);
  }
  void run() override {
    end.Enter();
    hasStarted.signal();
    while (!threadShouldExit()) wait(kLongMs);
    if (lastWorkMs > 0) sleep(lastWorkMs);
    isDone = true;
    end.Leave();
  }

  ThreadEnd end;
  std::atomic<bool> isDone{false};

 private:
  int lastWorkMs;
  juce::WaitableEvent hasStarted;
};

TEST(ModuleEnd, ProcessIsNotEndingWhileItRuns) { EXPECT_FALSE(ProcessIsEnding()); }

TEST(ThreadEnd, StopWakesTheThreadAndLetsItFinish) {
  Worker worker;
  worker.Start();
  const auto start = juce::Time::getMillisecondCounter();
  EXPECT_TRUE(worker.end.Stop(&worker, kLongMs));
  EXPECT_LT(juce::Time::getMillisecondCounter() - start, static_cast<juce::uint32>(kLongMs / 2));
  EXPECT_TRUE(worker.isDone);
  EXPECT_FALSE(worker.isThreadRunning());
}

TEST(ThreadEnd, StopInTimeSaysNothingToTheJuceLogger) {
  support::KeepsLines lines;
  Worker worker;
  worker.Start();
  EXPECT_TRUE(worker.end.Stop(&worker, kLongMs));
  EXPECT_TRUE(lines.lines.empty());
  EXPECT_EQ(juce::Logger::getCurrentLogger(), &lines);
}

TEST(ThreadEndDeathTest, ThreadCutOffByForceIsToldToTheJuceLogger) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        Worker worker(3 * kLongMs);
        worker.Start();
        support::KeepsLines lines;
        const bool hasLeft = worker.end.Stop(&worker, 50);
        const std::vector<std::string> wanted(1, "!! killing thread by force !!");
        std::_Exit(!hasLeft && !worker.isDone && lines.lines == wanted ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(ThreadEnd, StopWaitsForTheLastWork) {
  Worker worker(200);
  worker.Start();
  EXPECT_TRUE(worker.end.Stop(&worker, kLongMs));
  EXPECT_TRUE(worker.isDone);
}

TEST(ThreadEnd, AThreadThatHasLeftAlreadyIsStillStopped) {
  Worker worker;
  worker.Start();
  worker.signalThreadShouldExit();
  worker.notify();
  while (!worker.isDone) juce::Thread::sleep(1);
  EXPECT_TRUE(worker.end.Stop(&worker, kLongMs));
  EXPECT_FALSE(worker.isThreadRunning());
}

TEST(ThreadEnd, AThreadThatWasNeverStartedHasNotLeft) {
  Worker worker;
  EXPECT_FALSE(worker.end.Stop(&worker, 50));
  EXPECT_FALSE(worker.isDone);
}

TEST(ThreadEnd, EachEndsItsOwnThread) {
  Worker first;
  Worker second;
  first.Start();
  second.Start();
  EXPECT_TRUE(first.end.Stop(&first, kLongMs));
  EXPECT_TRUE(second.isThreadRunning());
  EXPECT_FALSE(second.isDone);
  EXPECT_TRUE(second.end.Stop(&second, kLongMs));
}

}  // namespace
}  // namespace harvane
