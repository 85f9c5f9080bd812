#include "measurement/Arithmetic.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "measurement/KWeighting.h"
#include "measurement/SampleMath.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

TEST(MultiplyAdd, LostBitsDecideBetweenTwoNeighbours) {
  // 3 * (1 + 2^-23) = 3 + 3 * 2^-23 lies between 3 + 2^-22 and 3 + 2^-21, in the middle.
  const float a = 1.0F + 0x1p-23F;
  EXPECT_BITS_EQ(3.0F + 0x1p-21F, MultiplyAdd(3.0F, a, 0.0F));
  EXPECT_BITS_EQ(3.0F + 0x1p-21F, MultiplyAdd(3.0F, a, 0x1p-100F));
  EXPECT_BITS_EQ(3.0F + 0x1p-22F, MultiplyAdd(3.0F, a, -0x1p-100F));
}

TEST(MultiplyAdd, TermOfTheHighPassIsRoundedOnce) {
  // The product lies in the middle between 0x1.7621p-7 and the next single. What is added to it is
  // too small for a double, which would then go to the even neighbour below.
  const float factor = -KWeightingFor(48000).secondStageA[1];
  ASSERT_BITS_EQ(0x1.fd73cp+0F, factor);
  const float output = 0x1.78p-8F;
  const float sum = 0x1.170c2p-79F;
  EXPECT_BITS_EQ(0x1.762102p-7F, MultiplyAdd(factor, output, sum));
  const double roundedTwice =
      static_cast<double>(factor) * static_cast<double>(output) + static_cast<double>(sum);
  EXPECT_BITS_EQ(0x1.7621p-7F, static_cast<float>(roundedTwice));
}

TEST(MultiplyAdd, RoundsOnceAmongTheSmallestSingles) {
  // 1.5 * 2^-149 lies between one and two steps.
  EXPECT_BITS_EQ(0x1p-148F, MultiplyAdd(0x1.8p-75F, 0x1p-74F, 0.0F));
  // Half a step, and a little more than half a step.
  EXPECT_BITS_EQ(0.0F, MultiplyAdd(0x1.8p-75F, 0x1p-74F, -0x1p-149F));
  EXPECT_BITS_EQ(0x1p-149F, MultiplyAdd(0x1.80001p-75F, 0x1p-74F, -0x1p-149F));
}

TEST(MultiplyAdd, KeepsZerosInfinitiesAndNaN) {
  const float infinity = std::numeric_limits<float>::infinity();
  EXPECT_BITS_EQ(0.0F, MultiplyAdd(-1.0F, 0.0F, 0.0F));
  EXPECT_BITS_EQ(-0.0F, MultiplyAdd(-1.0F, 0.0F, -0.0F));
  EXPECT_BITS_EQ(infinity, MultiplyAdd(1e30F, 1e30F, 1.0F));
  EXPECT_BITS_EQ(-infinity, MultiplyAdd(infinity, -1.0F, 1.0F));
  EXPECT_TRUE(std::isnan(MultiplyAdd(infinity, 0.0F, 1.0F)));
}

TEST(MultiplyAdd, AgreesWithTheTwin) {
  support::ForEachSeed(100000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const float a = measurement_tests::RandomBits(&noise);
    const float b = measurement_tests::RandomBits(&noise);
    const float c = measurement_tests::RandomBits(&noise);
    ASSERT_BITS_EQ(twin::AddedProduct(a, b, c), MultiplyAdd(a, b, c));
    // Few digits, and near one another, so that middles are met often.
    const auto few = [&noise] {
      return static_cast<float>(static_cast<int>(noise.NextBelow(64)) - 32);
    };
    const float d = few() * (1.0F + 0x1p-23F * few());
    const float e = few();
    const float f = few() * (noise.NextBelow(2) == 0 ? 0x1p-90F : 0x1p-24F);
    ASSERT_BITS_EQ(twin::AddedProduct(d, e, f), MultiplyAdd(d, e, f));
  });
}

// A square of 24 digits, added to a sum that is not smaller: all digits below a
// single's are the square's. Rounded to the 29 digits that a double has more, they
// never become exactly a half that they are not.
TEST(MultiplyAdd, NoSquareNeedsTheLostBits) {
  for (std::uint64_t m = 1U << 23; m < 1U << 24; ++m) {
    const std::uint64_t square = m * m;
    for (int digits = 30; digits <= 50; ++digits) {
      const std::uint64_t tail = square & ((std::uint64_t{1} << digits) - 1);
      const int cut = digits - 29;
      const std::uint64_t rest = tail & ((std::uint64_t{1} << cut) - 1);
      const std::uint64_t half = std::uint64_t{1} << (cut - 1);
      std::uint64_t rounded = tail >> cut;
      if (rest > half || (rest == half && (rounded & 1) != 0)) ++rounded;
      if (rounded == std::uint64_t{1} << 28) {
        ASSERT_EQ(0U, rest) << m << ", " << digits;
      }
    }
  }
}

TEST(TenToThe, IsThePowerToTheBit) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const float any = measurement_tests::RandomBits(&noise);
    ASSERT_BITS_EQ(twin::Pow(10.0F, any), TenToThe(any));
    const auto usual = static_cast<float>(noise.NextBipolar() * 8.0);
    ASSERT_BITS_EQ(twin::Pow(10.0F, usual), TenToThe(usual));
  });
}

}  // namespace
}  // namespace harvane
