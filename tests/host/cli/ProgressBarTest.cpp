#include "host/ProgressBar.h"

#include <gtest/gtest.h>

#include <memory>

namespace harvane {
namespace {

TEST(ProgressBar, ShowsPartAndSpeed) {
  EXPECT_EQ(ProgressText("pass 1 of 2", {24000, 48000, 0.5, 0.25}, 80),
            "pass 1 of 2 [###############               ]  50 %  2 x real time");
}

TEST(ProgressBar, HasNoSpeedBeforeTimeHasGoneBy) {
  EXPECT_EQ(ProgressText("p", {0, 48000, 0.0, 0.0}, 40),
            "p [                              ]   0 %");
}

TEST(ProgressBar, ShowsSecondsWhereTheLengthIsUnknown) {
  EXPECT_EQ(ProgressText("p", {48000, -1, 61.0, 0.5}, 80), "p  61 s  122 x real time");
}

TEST(ProgressBar, StaysWithinTheColumns) {
  for (int columns = 0; columns < 100; ++columns) {
    const std::string text = ProgressText("pass 2 of 2", {10, 30, 100.0, 1.0}, columns);
    ASSERT_LE(text.size(), static_cast<std::size_t>(columns));
  }
}

TEST(ProgressBar, MoreFramesThanDeclaredFillTheBar) {
  EXPECT_EQ(ProgressText("p", {50, 40, 1.0, 0.0}, 16), "p [######] 100 %");
}

TEST(ProgressBar, WritesNothingToAFile) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
  ASSERT_NE(file, nullptr);
  {
    ProgressBar bar(file.get(), "p", 10, 48000);
    bar.Update(5);
  }
  EXPECT_EQ(std::ftell(file.get()), 0);
}

}  // namespace
}  // namespace harvane
