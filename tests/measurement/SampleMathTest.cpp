#include "measurement/SampleMath.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "measurement/KWeighting.h"
#include "measurement/PolyphaseBank.h"
#include "measurement/SampleHistory.h"
#include "tests/measurement/FailingAllocations.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

using measurement_tests::OneIn;
using measurement_tests::RandomBits;
using measurement_tests::RandomInt;
using measurement_tests::RandomLength;
using measurement_tests::RandomRun;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kTwoTo24 = 16777216.0F;  // from here on a float has no odd numbers
const SampleMath kMath;

// ---- the mathematical library in single precision

TEST(SampleMath, FloorGoesTowardsMinusInfinity) {
  EXPECT_BITS_EQ(2.0F, Floor(2.75F));
  EXPECT_BITS_EQ(-3.0F, Floor(-2.25F));
  EXPECT_BITS_EQ(-0.0F, Floor(-0.0F));
}

TEST(SampleMath, LogarithmOfZeroIsMinusInfinity) {
  EXPECT_BITS_EQ(-kInfinity, Log10(0.0F));
  EXPECT_BITS_EQ(-kInfinity, Log10(-0.0F));
}

TEST(SampleMath, LogarithmOfANegativeValueIsNotANumber) { EXPECT_TRUE(std::isnan(Log10(-1.0F))); }

TEST(SampleMath, LogarithmIsRoundedToSingle) {
  EXPECT_BITS_EQ(3.0F, Log10(1000.0F));
  // The logarithm of the single nearest to 0.1 is -0.99999999353; the nearest single is -1.
  EXPECT_BITS_EQ(-1.0F, Log10(0.1F));
}

TEST(SampleMath, PowerIsRoundedToSingle) {
  EXPECT_BITS_EQ(0.1F, Pow(10.0F, -1.0F));
  EXPECT_BITS_EQ(1.0F, Pow(10.0F, 0.0F));
  EXPECT_BITS_EQ(kInfinity, Pow(10.0F, 39.0F));
  EXPECT_BITS_EQ(0.0F, Pow(10.0F, -kInfinity));
}

TEST(SampleMath, AbsoluteValueTakesTheSignOff) {
  EXPECT_BITS_EQ(1.5F, Abs(-1.5F));
  EXPECT_BITS_EQ(0.0F, Abs(-0.0F));
  EXPECT_BITS_EQ(kInfinity, Abs(-kInfinity));
}

TEST(SampleMath, TruncationCutsTowardsZero) {
  EXPECT_EQ(1, TruncateToInt(1.999));
  EXPECT_EQ(-1, TruncateToInt(-1.999));
  EXPECT_EQ(INT_MAX, TruncateToInt(2147483647.5));
  EXPECT_EQ(INT_MIN, TruncateToInt(-2147483648.5));
}

TEST(SampleMath, TruncationOutsideTheRangeGivesTheSmallestInt) {
  EXPECT_EQ(INT_MIN, TruncateToInt(2147483648.0));
  EXPECT_EQ(INT_MIN, TruncateToInt(-2147483649.0));
  EXPECT_EQ(INT_MIN, TruncateToInt(std::numeric_limits<double>::infinity()));
  EXPECT_EQ(INT_MIN, TruncateToInt(std::numeric_limits<double>::quiet_NaN()));
}

TEST(SampleMath, WrappersAgreeWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const float v = RandomBits(&noise);
    const float exponent = static_cast<float>(noise.NextBipolar() * 40.0);
    SCOPED_TRACE(support::Show(v) + " and " + support::Show(exponent));
    ASSERT_BITS_EQ(twin::Floor(v), Floor(v));
    ASSERT_BITS_EQ(twin::Log10(v), Log10(v));
    ASSERT_BITS_EQ(twin::Abs(v), Abs(v));
    ASSERT_BITS_EQ(twin::Pow(10.0F, exponent), Pow(10.0F, exponent));
    ASSERT_BITS_EQ(twin::Pow(v, exponent), Pow(v, exponent));
  });
}

// ---- mean square

TEST(SampleMath, MeanSquareOfOneSampleIsItsSquare) {
  const float x = -0.5F;
  EXPECT_BITS_EQ(0.25F, kMath.MeanSquare(&x, 1));
}

TEST(SampleMath, MeanSquareRoundsTheSumAfterEverySample) {
  // 2^24 + 1 lies between two singles and goes to the even one, 2^24, both times; a third of that
  // is 5592405.33, in steps of 0.5. A wider sum would give 5592406.
  const float x[] = {4096.0F, 1.0F, 1.0F};
  EXPECT_BITS_EQ(5592405.5F, kMath.MeanSquare(x, 3));
}

TEST(SampleMath, MeanSquareSumsInTheOrderOfTheSamples) {
  const float x[] = {1.0F, 1.0F, 4096.0F};
  EXPECT_BITS_EQ(5592406.0F, kMath.MeanSquare(x, 3));
}

TEST(SampleMath, MeanSquareDoesNotRoundTheProducts) {
  // (1 + 2^-12)^2 is 1 + 2^-11 + 2^-24; with the 2^-24 of the first sample the sum is exact.
  const float small = 1.0F / 4096.0F;
  const float x[] = {small, 1.0F + small};
  const float sum = 1.0F + 1.0F / 2048.0F + 1.0F / 8388608.0F;
  EXPECT_BITS_EQ(sum / 2.0F, kMath.MeanSquare(x, 2));
}

TEST(SampleMath, MeanSquareAgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const std::size_t length = RandomLength(&noise, 300) + 1;
    SCOPED_TRACE("length " + std::to_string(length));
    const std::vector<float> x = RandomRun(&noise, length, true);
    ASSERT_BITS_EQ(twin::MeanSquare(x.data(), length),
                   kMath.MeanSquare(x.data(), static_cast<int>(length)));
  });
}

// ---- absolute values and maximum

TEST(SampleMath, AbsInPlaceNegatesWhatIsBelowZero) {
  std::vector<float> x = {-1.0F, 2.0F, -kInfinity, -1e-45F};
  kMath.AbsInPlace(x.data(), 4);
  EXPECT_TRUE(support::SameLists({1.0F, 2.0F, kInfinity, 1e-45F}, x));
}

TEST(SampleMath, AbsInPlaceKeepsNegativeZeroAndNaN) {
  std::vector<float> x = {-0.0F, -kNaN, 0.0F};
  kMath.AbsInPlace(x.data(), 3);
  EXPECT_TRUE(support::SameLists({-0.0F, kNaN, 0.0F}, x));
  EXPECT_TRUE(std::signbit(x[1]));
}

TEST(SampleMath, AbsInPlaceOfNothingChangesNothing) {
  std::vector<float> x = {-1.0F, -2.0F};
  kMath.AbsInPlace(x.data(), 0);
  EXPECT_TRUE(support::SameLists({-1.0F, -2.0F}, x));
}

TEST(SampleMath, MaximumOfNothingIsTheFirstSample) {
  const float x[] = {-0.25F, 7.0F};
  EXPECT_BITS_EQ(-0.25F, kMath.MaxOf(x, 0));
}

TEST(SampleMath, MaximumIsSigned) {
  const float x[] = {-3.0F, -1.0F, -2.0F};
  EXPECT_BITS_EQ(-1.0F, kMath.MaxOf(x, 3));
}

TEST(SampleMath, FirstOfEqualMaximaStays) {
  const float x[] = {-0.0F, 0.0F};
  EXPECT_BITS_EQ(-0.0F, kMath.MaxOf(x, 2));
}

TEST(SampleMath, NaNAtTheFrontStaysTheMaximum) {
  const float front[] = {kNaN, 1.0F};
  EXPECT_TRUE(std::isnan(kMath.MaxOf(front, 2)));
  const float later[] = {1.0F, kNaN, 2.0F};
  EXPECT_BITS_EQ(2.0F, kMath.MaxOf(later, 3));
}

TEST(SampleMath, AbsoluteValuesAndMaximumAgreeWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const std::size_t length = RandomLength(&noise, 100) + 1;
    const std::size_t count = static_cast<std::size_t>(RandomInt(&noise, 0, int(length)));
    SCOPED_TRACE("length " + std::to_string(length) + ", count " + std::to_string(count));
    std::vector<float> x = RandomRun(&noise, length, true);
    if (OneIn(&noise, 4)) {
      for (float& one : x) one = RandomBits(&noise);
    }
    std::vector<float> wanted = x;
    ASSERT_BITS_EQ(twin::MaxOf(wanted, count), kMath.MaxOf(x.data(), int(count)));
    twin::AbsInPlace(&wanted, count);
    kMath.AbsInPlace(x.data(), int(count));
    ASSERT_TRUE(support::SameLists(wanted, x));
    ASSERT_BITS_EQ(twin::MaxOf(wanted, count), kMath.MaxOf(x.data(), int(count)));
  });
}

// ---- tenths

TEST(SampleMath, HalvesOfATenthGoTowardsPlusInfinity) {
  EXPECT_BITS_EQ(1.3F, kMath.RoundToTenth(1.25F));
  EXPECT_BITS_EQ(-1.2F, kMath.RoundToTenth(-1.25F));
}

TEST(SampleMath, TenthsAreCutAfterTheSumIsRoundedToSingle) {
  // The single nearest to -1.35 is -1.35000002384, so the sum is -13.0000002; single precision
  // makes it -13. The exact sum would give -1.4.
  EXPECT_BITS_EQ(-1.3F, kMath.RoundToTenth(-1.35F));
  // 23.05 is 23.0499992371, the sum 230.99999237, half way between two singles, the even one of
  // which is 231. The exact sum would give 23.0.
  EXPECT_BITS_EQ(23.1F, kMath.RoundToTenth(23.05F));
  // The same place below zero: -229.99999237 goes to -230.
  EXPECT_BITS_EQ(-23.0F, kMath.RoundToTenth(-23.049999F));
}

TEST(SampleMath, TenthsOfInfinityAndNaNStay) {
  EXPECT_BITS_EQ(-kInfinity, kMath.RoundToTenth(-kInfinity));
  EXPECT_BITS_EQ(kInfinity, kMath.RoundToTenth(kInfinity));
  EXPECT_TRUE(std::isnan(kMath.RoundToTenth(kNaN)));
}

TEST(SampleMath, RoundingToTenthsAgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    float v = RandomBits(&noise);
    if (!OneIn(&noise, 4)) {
      // Within a few steps of a place where the tenth changes.
      v = static_cast<float>(RandomInt(&noise, -2000, 2000)) / 20.0F;
      for (int i = RandomInt(&noise, 0, 3); i > 0; --i) {
        v = std::nextafter(v, OneIn(&noise, 2) ? kInfinity : -kInfinity);
      }
    }
    SCOPED_TRACE(support::Show(v));
    ASSERT_BITS_EQ(twin::RoundToTenth(v), kMath.RoundToTenth(v));
  });
}

// ---- time code

std::string Text(const TimeCode& code) {
  return std::to_string(code.hours) + ":" + std::to_string(code.minutes) + ":" +
         std::to_string(code.seconds) + ":" + std::to_string(code.framesOrMilliseconds);
}

std::string TimeCodeAt(int position, int frameRate, int sampleRate) {
  TimeCode code{-1, -1, -1, -1};
  kMath.SamplesToTimeCode(position, frameRate, sampleRate, &code);
  return Text(code);
}

TEST(SampleMath, TimeCodeCountsVideoFrames) {
  EXPECT_EQ("1:1:1:7", TimeCodeAt(48000 * 3661 + 1920 * 7, 25, 48000));
}

TEST(SampleMath, TimeCodeWithoutAFrameRateCountsMilliseconds) {
  EXPECT_EQ("0:0:0:1", TimeCodeAt(72, 0, 48000));
  EXPECT_EQ("0:0:0:1", TimeCodeAt(71, 0, 48000));
  EXPECT_EQ("0:0:0:0", TimeCodeAt(47, 0, 48000));
  EXPECT_EQ("0:0:1:999", TimeCodeAt(95999, 0, 48000));
}

TEST(SampleMath, HoursDoNotWrap) { EXPECT_EQ("100:0:0:0", TimeCodeAt(360000000, 25, 1000)); }

TEST(SampleMath, FrameFieldRunsAheadOfTheSeconds) {
  // 44100 / 24 is cut to 1837, and 24 * 1837 = 44088: twelve samples of each second are lost.
  EXPECT_EQ("0:0:0:23", TimeCodeAt(44087, 24, 44100));
  EXPECT_EQ("0:0:0:0", TimeCodeAt(44088, 24, 44100));
  // After an hour: 158760000 / 1837 = 86423 = 24 * 3600 + 23.
  EXPECT_EQ("1:0:0:23", TimeCodeAt(158760000, 24, 44100));
}

TEST(SampleMath, FrameRateAboveTheSampleRateGivesFrameZero) {
  EXPECT_EQ("0:0:3:0", TimeCodeAt(30, 25, 10));
}

TEST(SampleMath, SampleRateOfZeroGivesTimeZero) {
  EXPECT_EQ("0:0:0:0", TimeCodeAt(123456, 25, 0));
  EXPECT_EQ("0:0:0:0", TimeCodeAt(123456, 0, 0));
}

TEST(SampleMath, PositionsBelowZeroGiveFieldsBelowZero) {
  // 2147483648 = 44739 * 48000 + 11648; 44739 = 12 * 3600 + 25 * 60 + 39.
  EXPECT_EQ("-12:-25:-39:-242", TimeCodeAt(INT_MIN, 0, 48000));
  EXPECT_EQ("-12:-25:-39:-6", TimeCodeAt(INT_MIN, 25, 48000));
  EXPECT_EQ("12:25:39:242", TimeCodeAt(INT_MAX, 0, 48000));
  EXPECT_EQ("0:0:0:0", TimeCodeAt(-1, 25, 48000));
}

TEST(SampleMath, NoDivisorOfTheSmallestPositionTraps) {
  EXPECT_EQ("-12:-25:-39:11648", TimeCodeAt(INT_MIN, -48000, 48000));
  EXPECT_EQ("596523:14:8:0", TimeCodeAt(INT_MIN, 0, -1));
  EXPECT_EQ("0:0:0:0", TimeCodeAt(0, -1, INT_MIN));
}

TEST(SampleMath, TimeCodeAgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    static const int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
    static const int kFrameRates[] = {0, 24, 25, 29, 30, 50, 59, 60};
    int sampleRate = kRates[noise.NextBelow(6)];
    int frameRate = kFrameRates[noise.NextBelow(8)];
    if (OneIn(&noise, 3)) sampleRate = RandomInt(&noise, 1, 200000);
    if (OneIn(&noise, 3)) frameRate = RandomInt(&noise, 0, sampleRate < 240 ? sampleRate : 240);
    if (frameRate > sampleRate) frameRate = 0;
    const int position =
        OneIn(&noise, 10) ? -RandomInt(&noise, 0, INT_MAX - 1) : RandomInt(&noise, 0, INT_MAX - 1);
    SCOPED_TRACE("position " + std::to_string(position) + ", frame rate " +
                 std::to_string(frameRate) + ", sample rate " + std::to_string(sampleRate));
    const twin::TimeCode wanted = twin::SamplesToTimeCode(position, frameRate, sampleRate);
    ASSERT_EQ(Text({wanted.framesOrMilliseconds, wanted.seconds, wanted.minutes, wanted.hours}),
              TimeCodeAt(position, frameRate, sampleRate));
  });
}

// ---- filter

// A stage with histories of its own.
struct Filter {
  SampleHistory inputs{kBiquadInputs};
  SampleHistory outputs{kBiquadOutputs};

  std::vector<float> Run(const std::vector<float>& x, const twin::Biquad& biquad) {
    std::vector<float> y(x.size());
    kMath.FilterBlock(x.data(), static_cast<int>(x.size()), biquad.a.data(), 3, biquad.b.data(), 3,
                      y.data(), {&inputs, &outputs, kBiquadInputs, kBiquadOutputs});
    return y;
  }
};

TEST(SampleMath, FilterWorksTheDirectForm) {
  // y = x + 2 x1 + 4 x2 + y1/2 - y2/4 of an impulse, by hand.
  const twin::Biquad biquad = {{1.0F, -0.5F, 0.25F}, {1.0F, 2.0F, 4.0F}};
  Filter filter;
  EXPECT_TRUE(support::SameLists({1.0F, 2.5F, 5.0F, 1.875F, -0.3125F},
                                 filter.Run({1.0F, 0.0F, 0.0F, 0.0F, 0.0F}, biquad)));
}

TEST(SampleMath, FilterNeverReadsTheFirstDenominator) {
  const twin::Biquad biquad = {{kNaN, 0.0F, 0.0F}, {1.0F, 0.0F, 0.0F}};
  Filter filter;
  EXPECT_TRUE(support::SameLists({1.0F, 2.0F}, filter.Run({1.0F, 2.0F}, biquad)));
}

TEST(SampleMath, FilterRoundsAfterEveryTermInOrder) {
  // 2^24 + 1 is rounded to 2^24 before the third term takes it away again.
  const twin::Biquad newestFirst = {{1.0F, 0.0F, 0.0F}, {1.0F, 1.0F, 1.0F}};
  Filter filter;
  EXPECT_BITS_EQ(0.0F, filter.Run({-kTwoTo24, 1.0F, kTwoTo24}, newestFirst)[2]);
  // With the large terms side by side the small one survives.
  Filter other;
  EXPECT_BITS_EQ(1.0F, other.Run({1.0F, -kTwoTo24, kTwoTo24}, newestFirst)[2]);
}

TEST(SampleMath, FilterSubtractsTheOutputsAfterTheInputs) {
  // Third output: 2^24 + 1, rounded, then minus 2^24 of the output before: 0 and not 1.
  const twin::Biquad biquad = {{1.0F, 1.0F, 0.0F}, {1.0F, 0.0F, 1.0F}};
  Filter filter;
  const std::vector<float> y = filter.Run({1.0F, kTwoTo24 + 2.0F, kTwoTo24}, biquad);
  EXPECT_TRUE(support::SameLists({1.0F, kTwoTo24, 0.0F}, y));
}

TEST(SampleMath, FilterHistoriesOutliveTheBlock) {
  const twin::Biquad biquad = {{1.0F, -0.5F, 0.25F}, {1.0F, 2.0F, 4.0F}};
  Filter filter;
  filter.Run({1.0F}, biquad);
  EXPECT_TRUE(support::SameLists({}, filter.Run({}, biquad)));
  EXPECT_TRUE(support::SameLists({2.5F, 5.0F}, filter.Run({0.0F, 0.0F}, biquad)));
  EXPECT_TRUE(support::SameLists({1.875F}, filter.Run({0.0F}, biquad)));
}

TEST(SampleMath, FilterOverwritesTheOutput) {
  Filter filter;
  const float x[] = {0.0F, 0.0F};
  const float a[] = {1.0F, 0.0F, 0.0F};
  float y[] = {9.0F, 9.0F, 9.0F};
  kMath.FilterBlock(x, 2, a, 3, a, 3, y, {&filter.inputs, &filter.outputs, 3, 2});
  EXPECT_TRUE(support::SameLists({0.0F, 0.0F, 9.0F}, {y[0], y[1], y[2]}));
}

TEST(SampleMath, ShorterFiltersTakeTheNewestOnly) {
  Filter filter;
  const float x[] = {1.0F, 10.0F, 100.0F};
  const float a[] = {1.0F};
  const float b[] = {1.0F, 2.0F};
  float y[3];
  kMath.FilterBlock(x, 3, a, 1, b, 2, y, {&filter.inputs, &filter.outputs, 3, 2});
  EXPECT_TRUE(support::SameLists({1.0F, 12.0F, 120.0F}, {y[0], y[1], y[2]}));
}

TEST(SampleMath, CopiesOfAStateShareTheHistories) {
  const twin::Biquad biquad = {{1.0F, 0.0F, 0.0F}, {0.0F, 1.0F, 0.0F}};
  Filter filter;
  const BiquadState original = {&filter.inputs, &filter.outputs, 3, 2};
  const BiquadState copy = original;
  float y = 0.0F;
  const float first = 3.0F;
  const float second = 4.0F;
  kMath.FilterBlock(&first, 1, biquad.a.data(), 3, biquad.b.data(), 3, &y, original);
  kMath.FilterBlock(&second, 1, biquad.a.data(), 3, biquad.b.data(), 3, &y, copy);
  EXPECT_BITS_EQ(3.0F, y);
}

TEST(SampleMath, FilterPassesAllocationFailureOn) {
  Filter filter;
  const float a[] = {1.0F, 0.0F, 0.0F};
  // Two scratch arrays for the whole block, however long it is.
  for (const std::size_t n : {std::size_t{1}, std::size_t{239}}) {
    const std::vector<float> x(n, 1.0F);
    std::vector<float> y(n);
    EXPECT_EQ(2U, measurement_tests::FailuresUntilSuccess([&](std::size_t allowed) {
                return measurement_tests::SucceedsWithAllocations(allowed, [&] {
                  kMath.FilterBlock(x.data(), static_cast<int>(n), a, 3, a, 3, y.data(),
                                    {&filter.inputs, &filter.outputs, 3, 2});
                });
              }))
        << n;
  }
}

twin::Biquad RandomBiquad(support::NoiseSource* noise) {
  static const int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
  const twin::KWeighting row = twin::KWeightingOf(kRates[noise->NextBelow(6)]);
  if (OneIn(noise, 2)) return OneIn(noise, 2) ? row.first : row.second;
  twin::Biquad biquad{};
  for (float& one : biquad.a) one = static_cast<float>(noise->NextBipolar());
  for (float& one : biquad.b) one = static_cast<float>(noise->NextBipolar() * 4.0);
  return biquad;
}

TEST(SampleMath, FilterAgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const twin::Biquad biquad = RandomBiquad(&noise);
    const int blocks = RandomInt(&noise, 1, 5);
    Filter filter;
    std::vector<float> pastInputs;
    std::vector<float> pastOutputs;
    for (int block = 0; block < blocks; ++block) {
      const std::size_t length = RandomLength(&noise, 60);
      SCOPED_TRACE("block " + std::to_string(block) + ", length " + std::to_string(length));
      const std::vector<float> x = RandomRun(&noise, length, OneIn(&noise, 3));
      ASSERT_TRUE(support::SameLists(twin::FilterBlock(x, biquad, &pastInputs, &pastOutputs),
                                     filter.Run(x, biquad)));
    }
  });
}

// ---- oversampler

// A bank over lists of taps, one list per phase.
class Bank {
 public:
  explicit Bank(std::vector<std::vector<float>> taps) : taps(std::move(taps)) {
    for (const std::vector<float>& one : this->taps) {
      branches.push_back({one.data(), static_cast<int>(one.size())});
    }
    bank = {branches.data(), Phases()};
  }
  Bank(const Bank&) = delete;
  Bank& operator=(const Bank&) = delete;

  int Phases() const { return static_cast<int>(taps.size()); }

  std::vector<float> Run(const std::vector<float>& x, SampleHistory* history) const {
    std::vector<float> y(taps.empty() ? x.size() : x.size() * taps.size());
    kMath.OversampleBlock(x.data(), static_cast<int>(x.size()), taps.empty() ? nullptr : &bank,
                          Phases(), y.data(), history);
    return y;
  }

 private:
  std::vector<std::vector<float>> taps;
  std::vector<PolyphaseBranch> branches;
  PolyphaseBank bank{};
};

TEST(SampleMath, OversamplerSetsAllPhasesOfASampleSideBySide) {
  const Bank bank({{1.0F, 2.0F}, {10.0F, 20.0F}, {100.0F, 200.0F}});
  SampleHistory history(2);
  EXPECT_TRUE(support::SameLists({1.0F, 10.0F, 100.0F, 5.0F, 50.0F, 500.0F},
                                 bank.Run({1.0F, 3.0F}, &history)));
}

TEST(SampleMath, OversamplerHistoryOutlivesTheBlock) {
  const Bank bank({{1.0F, 2.0F}});
  SampleHistory history(2);
  bank.Run({1.0F, 3.0F}, &history);
  EXPECT_TRUE(support::SameLists({6.0F, 0.0F}, bank.Run({0.0F, 0.0F}, &history)));
}

TEST(SampleMath, OversamplerRoundsAfterEveryTermInOrder) {
  const Bank bank({{1.0F, 1.0F, 1.0F}});
  SampleHistory history(3);
  EXPECT_BITS_EQ(0.0F, bank.Run({-kTwoTo24, 1.0F, kTwoTo24}, &history)[2]);
}

TEST(SampleMath, NoPhasesCopyTheSamplesAndLeaveTheHistory) {
  const Bank none({});
  SampleHistory history(2);
  history.Push(1.0F);
  history.Push(2.0F);
  EXPECT_TRUE(support::SameLists({-5.0F, 6.0F, -0.0F}, none.Run({-5.0F, 6.0F, -0.0F}, &history)));
  float kept[2];
  history.ReadNewestFirst(kept, 2);
  EXPECT_TRUE(support::SameLists({2.0F, 1.0F}, {kept[0], kept[1]}));
}

TEST(SampleMath, NoPhasesWriteOneValuePerSample) {
  SampleHistory history(2);
  const float x[] = {1.0F, 2.0F};
  float y[] = {9.0F, 9.0F, 9.0F};
  kMath.OversampleBlock(x, 2, nullptr, 0, y, &history);
  EXPECT_TRUE(support::SameLists({1.0F, 2.0F, 9.0F}, {y[0], y[1], y[2]}));
}

TEST(SampleMath, OversamplerPassesAllocationFailureOn) {
  SampleHistory history(2);
  const float coefficients[] = {1.0F, 2.0F};
  const PolyphaseBranch branches[] = {{coefficients, 2}, {coefficients, 2}};
  const PolyphaseBank bank = {branches, 2};
  // One scratch array for the whole block, however long it is.
  for (const std::size_t n : {std::size_t{1}, std::size_t{239}}) {
    const std::vector<float> x(n, 1.0F);
    std::vector<float> y(2 * n);
    EXPECT_EQ(1U, measurement_tests::FailuresUntilSuccess([&](std::size_t allowed) {
                return measurement_tests::SucceedsWithAllocations(allowed, [&] {
                  kMath.OversampleBlock(x.data(), static_cast<int>(n), &bank, 2, y.data(),
                                        &history);
                });
              }))
        << n;
  }
}

std::vector<std::vector<float>> RandomTaps(support::NoiseSource* noise) {
  static const int kRates[] = {44100, 96000, 192000};
  if (OneIn(noise, 2)) return twin::PolyphaseBankOf(kRates[noise->NextBelow(3)]);
  const std::size_t length = static_cast<std::size_t>(RandomInt(noise, 1, 16));
  std::vector<std::vector<float>> taps(static_cast<std::size_t>(RandomInt(noise, 1, 5)));
  for (std::vector<float>& one : taps) {
    for (std::size_t j = 0; j < length; ++j)
      one.push_back(static_cast<float>(noise->NextBipolar()));
  }
  return taps;
}

TEST(SampleMath, OversamplerAgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const std::vector<std::vector<float>> taps = RandomTaps(&noise);
    const int blocks = RandomInt(&noise, 1, 4);
    const Bank bank(taps);
    SampleHistory history(taps.empty() ? 12 : static_cast<int>(taps[0].size()));
    std::vector<float> past;
    for (int block = 0; block < blocks; ++block) {
      const std::size_t length = RandomLength(&noise, 40);
      SCOPED_TRACE("phases " + std::to_string(taps.size()) + ", block " + std::to_string(block) +
                   ", length " + std::to_string(length));
      const std::vector<float> x = RandomRun(&noise, length, OneIn(&noise, 3));
      ASSERT_TRUE(support::SameLists(twin::OversampleBlock(x, taps, &past), bank.Run(x, &history)));
    }
  });
}

}  // namespace
}  // namespace harvane
