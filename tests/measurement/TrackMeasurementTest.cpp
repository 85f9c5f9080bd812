#include "measurement/TrackMeasurement.h"

#include <gtest/gtest.h>

#include "tests/support/Bits.h"

namespace harvane {
namespace {

TEST(TrackMeasurement, NewOneHoldsTheResetValues) {
  const TrackMeasurement fresh;
  EXPECT_BITS_EQ(-70.0F, fresh.maxMomentary);
  EXPECT_BITS_EQ(-70.0F, fresh.maxShortTerm);
  EXPECT_BITS_EQ(-70.0F, fresh.integratedLoudness);
  EXPECT_BITS_EQ(-70.0F, fresh.loudnessRange);
  EXPECT_BITS_EQ(-70.0F, fresh.maxTruePeak);
  EXPECT_EQ(0, fresh.maxMomentaryPosition);
  EXPECT_EQ(0, fresh.maxShortTermPosition);
  EXPECT_EQ(0, fresh.maxTruePeakPosition);
}

}  // namespace
}  // namespace harvane
