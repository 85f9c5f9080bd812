#include "platform/FatalStop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#ifndef _WIN32
#include <csignal>
#endif

namespace harvane {
namespace {

void SayExitHandler() { std::fprintf(stderr, "exit handler ran\n"); }

struct SaysItsEnd {
  ~SaysItsEnd() { std::fprintf(stderr, "destructor ran\n"); }
};

TEST(FatalStopDeathTest, GivesItsReason) {
  EXPECT_DEATH(FatalStop("some reason"), "Harvane: fatal stop: some reason");
}

TEST(FatalStopDeathTest, RunsNoExitHandlersAndNoDestructors) {
  EXPECT_DEATH(
      {
        std::atexit(SayExitHandler);
        const SaysItsEnd local;
        FatalStop("x");
      },
      testing::AllOf(testing::HasSubstr("fatal stop: x"),
                     testing::Not(testing::HasSubstr(" ran"))));
}

#ifdef _WIN32
TEST(FatalStopDeathTest, ProcessEndsWithTheCodeOfAnInvalidParameter) {
  EXPECT_EXIT(FatalStop("x"), testing::ExitedWithCode(static_cast<int>(0xC0000417)), "");
}
#else
TEST(FatalStopDeathTest, ProcessEndsByAbort) {
  EXPECT_EXIT(FatalStop("x"), testing::KilledBySignal(SIGABRT), "");
}
#endif

}  // namespace
}  // namespace harvane
