#include "normalisation/GainDecision.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/AnyFloat.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr NormalisationTargets kIntegrated = {0, -23.0F, -20.0F, -1.0F};
constexpr NormalisationTargets kShortTerm = {1, -23.0F, -20.0F, -1.0F};

TrackMeasurement Measured(float integratedLoudness, float maxShortTerm, float maxTruePeak) {
  TrackMeasurement measured;
  measured.integratedLoudness = integratedLoudness;
  measured.maxShortTerm = maxShortTerm;
  measured.maxTruePeak = maxTruePeak;
  return measured;
}

TEST(GainDecision, SilenceIsRaisedBy47DbAndNotLimited) {
  const GainDecision decision = DecideGain(TrackMeasurement(), kIntegrated);
  EXPECT_BITS_EQ(47.0F, decision.gainDb);
  EXPECT_BITS_EQ(22.0F, decision.headroomDb);
  EXPECT_FALSE(decision.limiterNeeded);
}

TEST(GainDecision, GainOf47DbIsTakenFromTheRoundedExponent) {
  const GainDecision decision = DecideGain(TrackMeasurement(), kIntegrated);
  // 47 / 20 in single precision is 2.3499999046325684.
  EXPECT_BITS_EQ(static_cast<float>(std::pow(10.0, 2.3499999046325684)), decision.linearGain);
  EXPECT_NEAR(223.87, static_cast<double>(decision.linearGain), 0.01);  // 10^2.35, by table
}

TEST(GainDecision, SilenceKeepsItsLevelInTheShortTermMode) {
  for (const float target : {-69.0F, -20.0F, 0.0F, 30.0F}) {
    const GainDecision decision = DecideGain(TrackMeasurement(), {1, -23.0F, target, -1.0F});
    EXPECT_BITS_EQ(0.0F, decision.gainDb) << target;
    EXPECT_BITS_EQ(1.0F, decision.linearGain) << target;
    EXPECT_FALSE(decision.limiterNeeded) << target;
  }
}

TEST(GainDecision, TrackIsLoweredInTheShortTermMode) {
  const GainDecision decision = DecideGain(Measured(-30.0F, -14.0F, -3.0F), kShortTerm);
  EXPECT_BITS_EQ(-6.0F, decision.gainDb);
  EXPECT_BITS_EQ(8.0F, decision.headroomDb);
  EXPECT_BITS_EQ(static_cast<float>(std::pow(10.0, -0.30000001192092896)), decision.linearGain);
}

TEST(GainDecision, TrackIsLoweredInTheIntegratedMode) {
  const GainDecision decision = DecideGain(Measured(-3.0F, -1.0F, -0.5F), kIntegrated);
  EXPECT_BITS_EQ(-20.0F, decision.gainDb);
  EXPECT_BITS_EQ(19.5F, decision.headroomDb);
  EXPECT_BITS_EQ(0.1F, decision.linearGain);
}

TEST(GainDecision, EveryModeOtherThanZeroIsTheShortTermMode) {
  for (const int mode : {1, 2, -1, 1000000, std::numeric_limits<int>::min()}) {
    const GainDecision decision =
        DecideGain(Measured(-30.0F, -14.0F, -3.0F), {mode, -23.0F, -20.0F, -1.0F});
    EXPECT_BITS_EQ(-6.0F, decision.gainDb) << mode;
  }
}

TEST(GainDecision, LoudPeakAtTheTargetLoudnessIsLimitedInBothModes) {
  const TrackMeasurement measured = Measured(-23.0F, -20.0F, -0.5F);
  for (const NormalisationTargets& targets : {kIntegrated, kShortTerm}) {
    const GainDecision decision = DecideGain(measured, targets);
    EXPECT_BITS_EQ(0.0F, decision.gainDb);
    EXPECT_BITS_EQ(1.0F, decision.linearGain);
    EXPECT_BITS_EQ(-0.5F, decision.headroomDb);
    EXPECT_TRUE(decision.limiterNeeded);
  }
}

TEST(GainDecision, HeadroomOfExactlyZeroNeedsNoLimiter) {
  const GainDecision decision = DecideGain(Measured(-23.0F, -20.0F, -1.0F), kIntegrated);
  EXPECT_BITS_EQ(0.0F, decision.headroomDb);
  EXPECT_FALSE(decision.limiterNeeded);
}

TEST(GainDecision, SmallestMissingHeadroomNeedsALimiter) {
  const float peak = std::nextafterf(-1.0F, 0.0F);
  EXPECT_TRUE(DecideGain(Measured(-23.0F, -20.0F, peak), kIntegrated).limiterNeeded);
}

TEST(GainDecision, HeadroomTakesTheClampedGain) {
  // Unclamped, 10 dB more would leave -4 of headroom.
  const GainDecision decision = DecideGain(Measured(-33.0F, -30.0F, -7.0F), kShortTerm);
  EXPECT_BITS_EQ(6.0F, decision.headroomDb);
  EXPECT_FALSE(decision.limiterNeeded);
}

TEST(GainDecision, GainIsNotReducedToFitThePeak) {
  const GainDecision decision = DecideGain(Measured(-43.0F, -40.0F, -3.0F), kIntegrated);
  EXPECT_BITS_EQ(20.0F, decision.gainDb);
  EXPECT_BITS_EQ(10.0F, decision.linearGain);
  EXPECT_BITS_EQ(-18.0F, decision.headroomDb);
  EXPECT_TRUE(decision.limiterNeeded);
}

TEST(GainDecision, PeakAndGainAreSummedBeforeTheSubtraction) {
  // 2^24 and -2^24 leave nothing of each other; the other order would lose the half.
  const GainDecision decision =
      DecideGain(Measured(0.0F, 0.0F, 16777216.0F), {0, -16777216.0F, 0.0F, 0.5F});
  EXPECT_BITS_EQ(0.5F, decision.headroomDb);
}

TEST(GainDecision, SumOfPeakAndGainIsRoundedToSinglePrecision) {
  // 2^24 + 1 is stored as 2^24; kept in double the headroom would be -1.
  const GainDecision decision =
      DecideGain(Measured(0.0F, 0.0F, 16777216.0F), {0, 1.0F, 0.0F, 16777216.0F});
  EXPECT_BITS_EQ(0.0F, decision.headroomDb);
  EXPECT_FALSE(decision.limiterNeeded);
}

TEST(GainDecision, ShortTermTargetHasNoEffectInTheIntegratedMode) {
  const TrackMeasurement measured = Measured(-30.0F, -14.0F, -3.0F);
  for (const float target : {-60.0F, 0.0F, kNan}) {
    EXPECT_BITS_EQ(7.0F, DecideGain(measured, {0, -23.0F, target, -1.0F}).gainDb);
  }
}

TEST(GainDecision, IntegratedTargetHasNoEffectInTheShortTermMode) {
  const TrackMeasurement measured = Measured(-30.0F, -14.0F, -3.0F);
  for (const float target : {-60.0F, 0.0F, kNan}) {
    EXPECT_BITS_EQ(-6.0F, DecideGain(measured, {1, target, -20.0F, -1.0F}).gainDb);
  }
}

TEST(GainDecision, LoudnessThatIsNoNumberStaysAndSetsNoLimiter) {
  for (const NormalisationTargets& targets : {kIntegrated, kShortTerm}) {
    const GainDecision decision = DecideGain(Measured(kNan, kNan, 20.0F), targets);
    EXPECT_BITS_EQ(kNan, decision.gainDb);
    EXPECT_BITS_EQ(kNan, decision.linearGain);
    EXPECT_FALSE(decision.limiterNeeded);
  }
}

TEST(GainDecision, PeakThatIsNoNumberSetsNoLimiter) {
  const GainDecision decision = DecideGain(Measured(-43.0F, -40.0F, kNan), kIntegrated);
  EXPECT_BITS_EQ(20.0F, decision.gainDb);
  EXPECT_BITS_EQ(kNan, decision.headroomDb);
  EXPECT_FALSE(decision.limiterNeeded);
}

TEST(GainDecision, NegativeZeroOfTheShortTermModeStays) {
  // Only what is above 0.0 is clamped.
  const GainDecision decision = DecideGain(Measured(0.0F, 0.0F, -3.0F), {1, 0.0F, -0.0F, -1.0F});
  EXPECT_BITS_EQ(-0.0F, decision.gainDb);
}

TEST(GainDecision, InfiniteLoudnessGivesAnInfiniteGain) {
  const GainDecision decision = DecideGain(Measured(-kInfinity, 0.0F, -3.0F), kIntegrated);
  EXPECT_BITS_EQ(kInfinity, decision.gainDb);
  EXPECT_BITS_EQ(kInfinity, decision.linearGain);
  EXPECT_TRUE(decision.limiterNeeded);
}

TEST(GainDecision, ThresholdLiesTwoTenthsUnderTheTarget) {
  EXPECT_BITS_EQ(-1.2F, LimiterThreshold(-1.0F));
  EXPECT_BITS_EQ(-3.2F, LimiterThreshold(-3.0F));
}

TEST(GainDecision, ThresholdMarginIsTwoTenthsInSinglePrecision) {
  // The single-precision 0.2 cancels; a double 0.2 would leave 2.98e-9.
  EXPECT_BITS_EQ(0.0F, LimiterThreshold(0.2F));
}

TEST(GainDecision, AgreesWithTheTwin) {
  support::ForEachSeed(20000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const auto value = [&noise] { return support::AnyFloat(&noise, 80.0F); };
    const float integratedLoudness = value();
    const float maxShortTerm = value();
    const float maxTruePeak = value();
    const auto mode = static_cast<int>(noise.NextBelow(3));
    const float loudness = value();
    const float shortTermLoudness = value();
    const float maxTp = value();
    const GainDecision decision =
        DecideGain(Measured(integratedLoudness, maxShortTerm, maxTruePeak),
                   {mode, loudness, shortTermLoudness, maxTp});
    const twin::Decision wanted = twin::DecideGain({mode, loudness, shortTermLoudness, maxTp},
                                                   integratedLoudness, maxShortTerm, maxTruePeak);
    const bool agrees = support::SameBits(wanted.gainDb, decision.gainDb) &&
                        support::SameBits(wanted.headroom, decision.headroomDb) &&
                        support::SameBits(wanted.trackGain, decision.linearGain) &&
                        support::SameBits(wanted.limiterThreshold, LimiterThreshold(maxTp)) &&
                        wanted.limiterNeeded == decision.limiterNeeded;
    ASSERT_TRUE(agrees) << "mode " << mode << ", measured " << support::Show(integratedLoudness)
                        << ", " << support::Show(maxShortTerm) << ", " << support::Show(maxTruePeak)
                        << ", targets " << support::Show(loudness) << ", "
                        << support::Show(shortTermLoudness) << ", " << support::Show(maxTp);
  });
}

}  // namespace
}  // namespace harvane
