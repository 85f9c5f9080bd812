#include "host/BackgroundThread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>

namespace harvane {
namespace {

bool IsBlocked(int signal) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, signal) == 1;
}

TEST(BackgroundThread, SignalsStayWithTheThreadThatMadeIt) {
  bool isInterruptBlocked = false;
  bool isEndBlocked = false;
  BackgroundThread thread;
  ASSERT_TRUE(thread.Start([&] {
    isInterruptBlocked = IsBlocked(SIGINT);
    isEndBlocked = IsBlocked(SIGTERM);
  }));
  EXPECT_TRUE(thread.IsRunning());
  thread.Join();
  EXPECT_FALSE(thread.IsRunning());
  EXPECT_TRUE(isInterruptBlocked);
  EXPECT_TRUE(isEndBlocked);
  EXPECT_FALSE(IsBlocked(SIGINT));
  EXPECT_FALSE(IsBlocked(SIGTERM));
}

}  // namespace
}  // namespace harvane
