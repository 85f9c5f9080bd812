#include "host/SampleReduction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tests/support/Signals.h"

namespace harvane {
namespace {

constexpr std::int32_t kStep = 65536;

TEST(SampleReduction, IntegersRoundToTheNearestStep) {
  EXPECT_EQ(ReduceInteger(kStep / 2 - 1), 0);
  EXPECT_EQ(ReduceInteger(kStep / 2 + 1), 1);
  EXPECT_EQ(ReduceInteger(-kStep / 2 + 1), 0);
  EXPECT_EQ(ReduceInteger(-kStep / 2 - 1), -1);
}

TEST(SampleReduction, IntegerTiesGoToTheEvenStep) {
  EXPECT_EQ(ReduceInteger(kStep / 2), 0);
  EXPECT_EQ(ReduceInteger(kStep + kStep / 2), 2);
  EXPECT_EQ(ReduceInteger(2 * kStep + kStep / 2), 2);
  EXPECT_EQ(ReduceInteger(-kStep / 2), 0);
  EXPECT_EQ(ReduceInteger(-kStep - kStep / 2), -2);
}

TEST(SampleReduction, IntegersStayWithinTheRange) {
  EXPECT_EQ(ReduceInteger(std::numeric_limits<std::int32_t>::max()), 32767);
  EXPECT_EQ(ReduceInteger(std::numeric_limits<std::int32_t>::min()), -32768);
}

TEST(SampleReduction, EverySixteenBitValueComesBack) {
  for (int v = -32768; v <= 32767; ++v) {
    ASSERT_EQ(ReduceInteger(v * kStep), v);
    ASSERT_EQ(ReduceFloat(static_cast<double>(static_cast<float>(v) / 32768.0F)), v);
  }
}

TEST(SampleReduction, FloatTiesGoToTheEvenStep) {
  EXPECT_EQ(ReduceFloat(0.5 / 32768.0), 0);
  EXPECT_EQ(ReduceFloat(1.5 / 32768.0), 2);
  EXPECT_EQ(ReduceFloat(-1.5 / 32768.0), -2);
  EXPECT_EQ(ReduceFloat(2.5 / 32768.0), 2);
}

TEST(SampleReduction, FloatsBeyondFullScaleAreClipped) {
  EXPECT_EQ(ReduceFloat(1.0), 32767);
  EXPECT_EQ(ReduceFloat(-1.0), -32768);
  EXPECT_EQ(ReduceFloat(1e300), 32767);
  EXPECT_EQ(ReduceFloat(-std::numeric_limits<double>::infinity()), -32768);
}

TEST(SampleReduction, WhatIsNotANumberBecomesZero) { EXPECT_EQ(ReduceFloat(std::nan("")), 0); }

TEST(SampleReduction, CountsWhatWasLost) {
  const std::vector<double> samples = {
      1.0, 1.001, -2.0, std::nan(""), 0.25, std::numeric_limits<double>::infinity()};
  std::vector<std::int16_t> reduced(samples.size());
  ReductionCounts counts;
  ReduceFloats(samples.data(), samples.size(), reduced.data(), &counts);
  EXPECT_EQ(counts.beyondFullScale, 3U);
  EXPECT_EQ(counts.notNumbers, 1U);
  EXPECT_EQ(reduced, (std::vector<std::int16_t>{32767, 32767, -32768, 0, 8192, 32767}));
}

}  // namespace
}  // namespace harvane
