#include "measurement/OrderedLoudnesses.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"

namespace harvane {
namespace {

using measurement_tests::OneIn;
using measurement_tests::RandomInt;

TEST(OrderedLoudnesses, NewOnesAreNone) {
  const OrderedLoudnesses none;
  EXPECT_EQ(0U, none.Size());
  EXPECT_EQ(0U, none.CountUpTo(0.0F));
  EXPECT_EQ(0U, none.CountBelow(0.0F));
}

TEST(OrderedLoudnesses, EqualValuesAreKeptAsOftenAsTheyCame) {
  OrderedLoudnesses values;
  for (const float value : {-20.0F, -30.0F, -20.0F, -10.0F, -20.0F}) values.Insert(value);
  EXPECT_EQ(5U, values.Size());
  EXPECT_BITS_EQ(-30.0F, values[0]);
  for (std::size_t i = 1; i < 4; ++i) EXPECT_BITS_EQ(-20.0F, values[i]);
  EXPECT_BITS_EQ(-10.0F, values[4]);
  EXPECT_EQ(1U, values.CountBelow(-20.0F));
  EXPECT_EQ(4U, values.CountUpTo(-20.0F));
}

TEST(OrderedLoudnesses, NoNumberHasAllAtOrBelowIt) {
  OrderedLoudnesses values;
  values.Insert(-20.0F);
  values.Insert(std::numeric_limits<float>::infinity());
  EXPECT_EQ(2U, values.CountUpTo(std::numeric_limits<float>::quiet_NaN()));
}

TEST(OrderedLoudnessesDeathTest, IndexAtTheSizeStops) {
  OrderedLoudnesses values;
  EXPECT_DEATH(values[0], "list index out of range");
  values.Insert(-20.0F);
  EXPECT_DEATH(values[1], "list index out of range");
}

// Long enough for runs that are cut in two, and in two again; on a coarse grid one value fills
// several.
TEST(OrderedLoudnesses, AgreeWithASortedList) {
  support::ForEachSeed(30, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    OrderedLoudnesses values;
    std::vector<float> wanted;
    const double grid = OneIn(&noise, 2) ? 0.1 : 1000.0;
    const int shape = RandomInt(&noise, 0, 2);  // any order, rising, falling
    const int count = RandomInt(&noise, 1, 6000);
    for (int i = 0; i < count; ++i) {
      const double place = shape == 0 ? noise.NextBipolar() : 2.0 * i / count - 1.0;
      const double loudness = (shape == 2 ? -place : place) * 35.0 - 35.0;
      wanted.push_back(static_cast<float>(std::floor(loudness * grid) / grid));
      values.Insert(wanted.back());
    }
    std::sort(wanted.begin(), wanted.end());
    ASSERT_EQ(wanted.size(), values.Size());
    for (int i = 0; i < 200; ++i) {
      const std::size_t index = noise.NextBelow(static_cast<std::uint32_t>(count));
      ASSERT_BITS_EQ(wanted[index], values[index]) << index << " of " << count;
      const float value = OneIn(&noise, 2) ? wanted[index] : std::nextafter(wanted[index], 0.0F);
      const auto below = std::lower_bound(wanted.begin(), wanted.end(), value) - wanted.begin();
      const auto upTo = std::upper_bound(wanted.begin(), wanted.end(), value) - wanted.begin();
      ASSERT_EQ(static_cast<std::size_t>(below), values.CountBelow(value)) << value;
      ASSERT_EQ(static_cast<std::size_t>(upTo), values.CountUpTo(value)) << value;
    }
    values.Clear();
    ASSERT_EQ(0U, values.Size());
  });
}

}  // namespace
}  // namespace harvane
