// What signals and descriptors have to do with workers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "tool/Interruption.h"
#include "tool/Workers.h"

namespace harvane {
namespace {

TEST(WorkersOnLinux, NoDescriptorIsLeftOpen) {
  Interruption interruption;
  WorkerListener listener;
  std::size_t ends = 0;
  listener.onEnd = [&](const JobEnd& /*end*/) { ++ends; };
  listener.onErrorLine = [](const std::string& /*line*/) {};
  const int before = dup(0);
  close(before);
  RunInWorkers({{HARVANE_PLAIN_WORKER}, 1, {}}, {"say a", "crash", "exit 2", "say b"}, listener,
               &interruption);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);
  EXPECT_EQ(ends, 4U);
}

TEST(InterruptionOnLinuxDeathTest, EachOfTheSignalsCounts) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EXIT(
        {
          Interruption interruption;
          raise(signal);
          if (!interruption.HasCome()) _exit(1);
          raise(signal);
          _exit(2);
        },
        testing::ExitedWithCode(130), "");
  }
}

TEST(InterruptionOnLinux, ASignalThatWasIgnoredStaysIgnored) {
  std::signal(SIGHUP, SIG_IGN);
  {
    Interruption interruption;
    raise(SIGHUP);
    raise(SIGHUP);
    EXPECT_FALSE(interruption.HasCome());
  }
  EXPECT_EQ(std::signal(SIGHUP, SIG_DFL), SIG_IGN);
}

}  // namespace
}  // namespace harvane
