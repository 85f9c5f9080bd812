#include "host/JobChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/FileError.h"

namespace harvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> NotesOnRate(int rate) {
  std::vector<std::string> notes;
  CheckRate("a.wav", rate, &notes);
  return notes;
}

TEST(JobChecks, RatesOfTheModuleAreTakenAsTheyAre) {
  for (const int rate : {44100, 48000, 88200, 96000}) EXPECT_THAT(NotesOnRate(rate), IsEmpty());
}

TEST(JobChecks, OtherRatesAreRoughAndSaidToBe) {
  for (const int rate : {8000, 32000, 384000}) {
    EXPECT_THAT(NotesOnRate(rate), ElementsAre(HasSubstr("the values are rough"))) << rate;
  }
  for (const int rate : {1, 7999, 384001}) EXPECT_THROW(NotesOnRate(rate), FileError) << rate;
}

TEST(JobChecks, AtQuadRatesThePeakIsSaidToBeUncertain) {
  for (const int rate : {176400, 192000}) {
    EXPECT_TRUE(IsQuadRate(rate));
    EXPECT_THAT(NotesOnRate(rate), ElementsAre(HasSubstr("it may stand higher"))) << rate;
  }
  EXPECT_FALSE(IsQuadRate(96000));
}

TEST(JobChecks, MoreFramesThanTheModuleCountsAreRefused) {
  CheckLength("a.wav", 2147483647);
  EXPECT_THROW(CheckLength("a.wav", 2147483648), FileError);
}

TEST(JobChecks, DelayOfTheLimiterIsInFramesAndMilliseconds) {
  EXPECT_EQ(LimiterDelayText(48000), "95 frames (1.979 ms)");
  EXPECT_EQ(LimiterDelayText(44100), "95 frames (2.154 ms)");
}

}  // namespace
}  // namespace harvane
