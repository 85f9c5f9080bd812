#include "normalisation/TruePeakLimiter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "measurement/TruePeakMeter.h"
#include "tests/support/AnyFloat.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};

std::string RateName(const testing::TestParamInfo<int>& info) {
  return "Rate" + std::to_string(info.param);
}

TruePeakLimiter Stereo48k() {
  TruePeakLimiter limiter;
  limiter.Init(2, 48000);
  return limiter;
}

// A bank of one phase: these taps for the newest samples, 0.0 for the others.
class OnePhase {
 public:
  explicit OnePhase(const std::vector<float>& first) {
    std::copy(first.begin(), first.end(), taps.begin());
  }
  OnePhase(const OnePhase&) = delete;
  OnePhase& operator=(const OnePhase&) = delete;
  const PolyphaseBank* Bank() const { return &bank; }

 private:
  std::array<float, kLookAheadSamples> taps{};
  PolyphaseBranch branch{taps.data(), kLookAheadSamples};
  PolyphaseBank bank{&branch, 1};
};

// All seven values of one entry.
std::vector<float> LevelsOf(const TruePeakLimiter& limiter, int index) {
  return {limiter.InputLevel(index), limiter.CurveOutput(index), limiter.Reduction(index),
          limiter.PeakHold(index),   limiter.Smoothed(index),    limiter.Control(index),
          limiter.LinearGain(index)};
}

// The steps of a frame, in their order.
void Walk(TruePeakLimiter* limiter, float peak) {
  limiter->ToDecibels(peak, 0);
  limiter->ApplyStaticCurve(limiter->InputLevel(0), 0);
  limiter->TakeReduction(0);
  limiter->SmoothReduction(limiter->Reduction(0), 0);
  limiter->ApplyMakeup(0);
  limiter->ToLinear(0);
}

float CurveOf(TruePeakLimiter* limiter, float level) {
  limiter->ApplyStaticCurve(level, 0);
  return limiter->CurveOutput(0);
}

// ---- lines

TEST(SampleLine, StartsWithZeros) {
  const SampleLine<3> line;
  for (int age = 0; age < 3; ++age) EXPECT_BITS_EQ(0.0F, line.OfAge(age));
}

TEST(SampleLine, AgeZeroIsTheNewest) {
  SampleLine<3> line;
  for (const float sample : {1.0F, 2.0F, 3.0F, 4.0F}) line.Push(sample);
  EXPECT_BITS_EQ(4.0F, line.OfAge(0));
  EXPECT_BITS_EQ(3.0F, line.OfAge(1));
  EXPECT_BITS_EQ(2.0F, line.OfAge(2));
}

TEST(SampleLine, OldestIsDroppedAtEachPush) {
  SampleLine<kLookAheadSamples> line;
  for (int pushed = 1; pushed <= 100; ++pushed) {
    line.Push(static_cast<float>(pushed));
    for (int age = 0; age < kLookAheadSamples; ++age) {
      const int wanted = pushed - age > 0 ? pushed - age : 0;
      ASSERT_BITS_EQ(static_cast<float>(wanted), line.OfAge(age));
    }
  }
}

// ---- Init and defaults

struct RateCoefficient {
  int rate;
  double decimal;
  std::uint32_t bits;
};

class TruePeakLimiterRelease : public testing::TestWithParam<RateCoefficient> {};

TEST_P(TruePeakLimiterRelease, CoefficientAfterInitHasItsPublishedBits) {
  TruePeakLimiter limiter;
  limiter.Init(1, GetParam().rate);
  EXPECT_BITS_EQ(std::bit_cast<float>(GetParam().bits), limiter.ReleaseCoefficient());
  EXPECT_EQ(GetParam().decimal, static_cast<double>(limiter.ReleaseCoefficient()));
}

INSTANTIATE_TEST_SUITE_P(Rates, TruePeakLimiterRelease,
                         testing::Values(RateCoefficient{44100, 0.999967634677887, 0x3f7ffde1},
                                         RateCoefficient{48000, 0.9999702572822571, 0x3f7ffe0d},
                                         RateCoefficient{88200, 0.9999837875366211, 0x3f7ffef0},
                                         RateCoefficient{96000, 0.9999850988388062, 0x3f7fff06},
                                         RateCoefficient{176400, 0.9999918937683105, 0x3f7fff78},
                                         RateCoefficient{192000, 0.9999925494194031, 0x3f7fff83}),
                         [](const auto& info) { return "Rate" + std::to_string(info.param.rate); });

TEST(TruePeakLimiter, AttackIsInstantAfterInit) {
  EXPECT_BITS_EQ(0.0F, Stereo48k().AttackCoefficient());
}

TEST(TruePeakLimiter, ThresholdAfterInitIsOneDbUnderFullScale) {
  EXPECT_BITS_EQ(-1.0F, Stereo48k().Threshold());
}

TEST(TruePeakLimiter, RatioAfterInitIsOneHundred) {
  TruePeakLimiter limiter = Stereo48k();
  // 10 dB over the threshold leave a tenth of a dB.
  EXPECT_BITS_EQ(-0.9F, CurveOf(&limiter, 9.0F));
}

TEST(TruePeakLimiter, KneeAfterInitIsTwelveDbWide) {
  TruePeakLimiter limiter = Stereo48k();
  EXPECT_BITS_EQ(std::nextafterf(-7.0F, -8.0F), CurveOf(&limiter, std::nextafterf(-7.0F, -8.0F)));
  EXPECT_LT(CurveOf(&limiter, -6.5F), -6.5F);
  // At the threshold: -1 + (0.01 - 1) * 6 * 6 / 24.
  EXPECT_BITS_EQ(-2.485F, CurveOf(&limiter, -1.0F));
}

TEST(TruePeakLimiter, MakeupAfterInitIsZero) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SmoothReduction(3.0F, 0);
  limiter.ApplyMakeup(0);
  EXPECT_BITS_EQ(-3.0F, limiter.Control(0));
}

TEST(TruePeakLimiter, SevenListsStartAtZero) {
  const TruePeakLimiter limiter = Stereo48k();
  for (int index = 0; index < 2; ++index) {
    for (const float level : LevelsOf(limiter, index)) EXPECT_BITS_EQ(0.0F, level);
  }
}

TEST(TruePeakLimiter, SecondInitKeepsTheStateOfTheFirst) {
  TruePeakLimiter limiter = Stereo48k();
  Walk(&limiter, 4.0F);
  limiter.PushLookAhead(0.5F, 1);
  limiter.PushDelay(0.25F, 1);
  const std::vector<float> before = LevelsOf(limiter, 0);
  ASSERT_GT(limiter.PeakHold(0), 10.0F);

  limiter.Init(2, 48000);

  EXPECT_TRUE(support::SameLists(before, LevelsOf(limiter, 0)));
  const OnePhase newest({1.0F});
  EXPECT_BITS_EQ(0.5F, limiter.PeakEstimate(1, 1, newest.Bank()));
  for (int i = 0; i < kDelaySamples - 1; ++i) limiter.PushDelay(0.0F, 1);
  EXPECT_BITS_EQ(0.25F, limiter.DelayedSample(1));
}

TEST(TruePeakLimiter, SecondInitRightAfterTheFirstLeavesZerosInUse) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.Init(2, 48000);
  for (const float level : LevelsOf(limiter, 0)) EXPECT_BITS_EQ(0.0F, level);
  for (int i = 0; i < kDelaySamples; ++i) {
    EXPECT_BITS_EQ(0.0F, limiter.DelayedSample(0));
    limiter.PushDelay(0.0F, 0);
  }
}

TEST(TruePeakLimiter, SecondInitAppendsAsManyEntriesAgain) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.Init(2, 48000);
  for (const float level : LevelsOf(limiter, 3)) EXPECT_BITS_EQ(0.0F, level);
  EXPECT_BITS_EQ(0.0F, limiter.DelayedSample(3));
}

TEST(TruePeakLimiter, SecondInitRestoresTheDefaults) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SetThreshold(-20.0F);
  limiter.SetRatio(2.0F);
  limiter.SetKnee(1.0F);
  limiter.SetMakeup(5.0F);
  limiter.SetAttack(0.1F);
  limiter.SetRelease(0.1F);

  limiter.Init(2, 96000);

  EXPECT_BITS_EQ(-1.0F, limiter.Threshold());
  EXPECT_BITS_EQ(0.0F, limiter.AttackCoefficient());
  EXPECT_BITS_EQ(std::bit_cast<float>(0x3f7fff06U), limiter.ReleaseCoefficient());
  EXPECT_BITS_EQ(-0.9F, CurveOf(&limiter, 9.0F));
  EXPECT_BITS_EQ(-2.485F, CurveOf(&limiter, -1.0F));
  limiter.ApplyMakeup(0);
  EXPECT_BITS_EQ(0.0F, limiter.Control(0));
}

TEST(TruePeakLimiterDeathTest, EntryBeyondTheChannelsStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TruePeakLimiter limiter = Stereo48k();
  EXPECT_DEATH(limiter.PushDelay(0.0F, 2), "out of range");
  EXPECT_DEATH(limiter.PushLookAhead(0.0F, 2), "out of range");
  EXPECT_DEATH(limiter.DelayedSample(2), "out of range");
  const OnePhase newest({1.0F});
  EXPECT_DEATH(limiter.PeakEstimate(2, 1, newest.Bank()), "out of range");
  EXPECT_DEATH(limiter.PeakEstimate(-1, 1, newest.Bank()), "out of range");
  std::vector<float> run(kDelaySamples);
  EXPECT_DEATH(limiter.PushRun(run.data(), 1, 2), "out of range");
  EXPECT_DEATH(limiter.ToDecibels(1.0F, 2), "out of range");
  EXPECT_DEATH(limiter.ApplyStaticCurve(1.0F, -1), "out of range");
  EXPECT_DEATH(limiter.TakeReduction(2), "out of range");
  EXPECT_DEATH(limiter.SmoothReduction(1.0F, 2), "out of range");
  EXPECT_DEATH(limiter.ApplyMakeup(2), "out of range");
  EXPECT_DEATH(limiter.ToLinear(2), "out of range");
}

// ---- coefficients

TEST(TruePeakLimiter, TimeOfZeroGivesCoefficientZero) {
  TruePeakLimiter limiter = Stereo48k();
  for (const float time : {0.0F, -0.0F}) {
    limiter.SetRelease(0.7F);
    limiter.SetRelease(time);
    EXPECT_BITS_EQ(0.0F, limiter.ReleaseCoefficient());
    limiter.SetAttack(0.7F);
    limiter.SetAttack(time);
    EXPECT_BITS_EQ(0.0F, limiter.AttackCoefficient());
  }
}

TEST(TruePeakLimiter, CoefficientIsAPowerOfTheSinglePrecisionE) {
  TruePeakLimiter limiter;
  limiter.Init(1, 1);
  limiter.SetAttack(0.02F);  // an exponent of -50
  EXPECT_BITS_EQ(static_cast<float>(std::pow(2.7182817459106445, -50.0)),
                 limiter.AttackCoefficient());
  EXPECT_FALSE(support::SameBits(static_cast<float>(std::exp(-50.0)), limiter.AttackCoefficient()));
}

TEST(TruePeakLimiter, CoefficientsAgreeWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const int rate = kRates[noise.NextBelow(6)];
    const float seconds = support::AnyFloat(&noise, 2.0F);
    TruePeakLimiter limiter;
    limiter.Init(1, rate);
    limiter.SetAttack(seconds);
    limiter.SetRelease(seconds);
    const float wanted = twin::CoefficientOfTime(rate, seconds);
    ASSERT_BITS_EQ(wanted, limiter.AttackCoefficient())
        << "rate " << rate << ", time " << support::Show(seconds);
    ASSERT_BITS_EQ(wanted, limiter.ReleaseCoefficient())
        << "rate " << rate << ", time " << support::Show(seconds);
  });
}

// ---- peak estimate and delay

TEST(TruePeakLimiter, LookAheadHoldsTwelveSamplesNewestFirst) {
  TruePeakLimiter limiter = Stereo48k();
  for (int i = 1; i <= 20; ++i) limiter.PushLookAhead(static_cast<float>(i), 0);
  for (int k = 0; k < kLookAheadSamples; ++k) {
    std::vector<float> taps(kLookAheadSamples, 0.0F);
    taps[static_cast<std::size_t>(k)] = 1.0F;
    const OnePhase phase(taps);
    EXPECT_BITS_EQ(static_cast<float>(20 - k), limiter.PeakEstimate(0, 1, phase.Bank())) << k;
  }
}

TEST(TruePeakLimiter, PeakEstimateIsAMagnitude) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.PushLookAhead(-0.75F, 0);
  EXPECT_BITS_EQ(0.75F, limiter.PeakEstimate(0, 1, OnePhase({1.0F}).Bank()));
}

TEST(TruePeakLimiter, PeakEstimateTakesTheLargestPhase) {
  const std::vector<float> taps[3] = {std::vector<float>(12, 0.5F), std::vector<float>(12, -3.0F),
                                      std::vector<float>(12, 2.0F)};
  const PolyphaseBranch branches[3] = {
      {taps[0].data(), 12}, {taps[1].data(), 12}, {taps[2].data(), 12}};
  const PolyphaseBank bank = {branches, 3};
  TruePeakLimiter limiter = Stereo48k();
  limiter.PushLookAhead(1.0F, 0);
  EXPECT_BITS_EQ(3.0F, limiter.PeakEstimate(0, 3, &bank));
  EXPECT_BITS_EQ(0.5F, limiter.PeakEstimate(0, 1, &bank));
}

TEST(TruePeakLimiter, PeakEstimateRoundsAfterEachAddition) {
  TruePeakLimiter limiter = Stereo48k();
  for (const float sample : {1.0F, 1.0F, 16777216.0F}) limiter.PushLookAhead(sample, 0);
  EXPECT_BITS_EQ(16777216.0F,
                 limiter.PeakEstimate(0, 1, OnePhase(std::vector<float>(12, 1.0F)).Bank()));
}

TEST(TruePeakLimiter, ChannelsHaveLinesOfTheirOwn) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.PushLookAhead(0.5F, 0);
  for (int i = 0; i < kDelaySamples; ++i) limiter.PushDelay(0.5F, 0);
  EXPECT_BITS_EQ(0.0F, limiter.PeakEstimate(1, 1, OnePhase({1.0F}).Bank()));
  EXPECT_BITS_EQ(0.0F, limiter.DelayedSample(1));
  EXPECT_BITS_EQ(0.5F, limiter.DelayedSample(0));
}

TEST(TruePeakLimiter, SampleComesOutNinetyFivePushesLater) {
  TruePeakLimiter limiter = Stereo48k();
  for (int i = 1; i <= 300; ++i) {
    limiter.PushDelay(static_cast<float>(i), 0);
    const int wanted = i > 95 ? i - 95 : 0;
    ASSERT_BITS_EQ(static_cast<float>(wanted), limiter.DelayedSample(0));
  }
}

struct RateDelay {
  int rate;
  double milliseconds;
};

class TruePeakLimiterDelay : public testing::TestWithParam<RateDelay> {};

TEST_P(TruePeakLimiterDelay, LastsItsPublishedTime) {
  TruePeakLimiter limiter;
  limiter.Init(1, GetParam().rate);
  int samples = 0;
  for (limiter.PushDelay(1.0F, 0); limiter.DelayedSample(0) == 0.0F; limiter.PushDelay(0.0F, 0)) {
    ASSERT_GT(1000, ++samples);
  }
  // Published to the microsecond.
  EXPECT_NEAR(GetParam().milliseconds, 1000.0 * samples / GetParam().rate, 0.0005);
}

INSTANTIATE_TEST_SUITE_P(Rates, TruePeakLimiterDelay,
                         testing::Values(RateDelay{44100, 2.154}, RateDelay{48000, 1.979},
                                         RateDelay{88200, 1.077}, RateDelay{96000, 0.990},
                                         RateDelay{176400, 0.539}, RateDelay{192000, 0.495}),
                         [](const auto& info) { return "Rate" + std::to_string(info.param.rate); });

// Runs of any length beside single pushes into lines of the same samples.
TEST(TruePeakLimiter, RunsOfSamplesAreSinglePushes) {
  support::ForEachSeed(300, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    TruePeakLimiter inRuns = Stereo48k();
    TruePeakLimiter bySample = Stereo48k();
    std::vector<float> pushed[2];
    for (int run = 0; run < 5; ++run) {
      const int channel = static_cast<int>(noise.NextBelow(2));
      const std::size_t n = noise.NextBelow(noise.NextBelow(2) == 0 ? 14 : 240);
      SCOPED_TRACE("run " + std::to_string(run) + " of " + std::to_string(n) + ", channel " +
                   std::to_string(channel));
      constexpr std::size_t kBefore = kDelaySamples - 1;
      std::vector<float>& all = pushed[channel];
      std::vector<float> samples(kBefore + n, kNan);
      std::vector<float> delayed;
      for (std::size_t i = 0; i < n; ++i) {
        samples[kBefore + i] = support::AnyFloat(&noise, 2.0F);
        all.push_back(samples[kBefore + i]);
        bySample.PushLookAhead(all.back(), channel);
        bySample.PushDelay(all.back(), channel);
        delayed.push_back(bySample.DelayedSample(channel));
      }
      inRuns.PushRun(samples.data(), static_cast<int>(n), channel);

      // The delayed samples, then those that are still in the line.
      ASSERT_TRUE(support::SameLists(delayed, {samples.data(), samples.data() + n}));
      std::vector<float> line(kBefore, 0.0F);
      line.insert(line.end(), all.begin(), all.end());
      ASSERT_TRUE(support::SameLists(
          {line.end() - static_cast<std::ptrdiff_t>(samples.size()), line.end()}, samples));
      for (int k = 0; k < kLookAheadSamples; ++k) {
        std::vector<float> taps(kLookAheadSamples, 0.0F);
        taps[static_cast<std::size_t>(k)] = 1.0F;
        const OnePhase phase(taps);
        ASSERT_BITS_EQ(bySample.PeakEstimate(channel, 1, phase.Bank()),
                       inRuns.PeakEstimate(channel, 1, phase.Bank()))
            << "age " << k;
      }
      ASSERT_BITS_EQ(bySample.DelayedSample(channel), inRuns.DelayedSample(channel));
    }
  });
}

struct RatePhases {
  int rate;
  int phases;
};

class TruePeakLimiterPhases : public testing::TestWithParam<RatePhases> {};

TEST_P(TruePeakLimiterPhases, PhasesComeFromTheTracksMeter) {
  TruePeakMeter meter;
  meter.Init(GetParam().rate, 1);
  EXPECT_EQ(GetParam().phases, meter.GetPhases());
}

INSTANTIATE_TEST_SUITE_P(Rates, TruePeakLimiterPhases,
                         testing::Values(RatePhases{44100, 4}, RatePhases{48000, 4},
                                         RatePhases{88200, 2}, RatePhases{96000, 2},
                                         RatePhases{176400, 0}, RatePhases{192000, 0}),
                         [](const auto& info) { return "Rate" + std::to_string(info.param.rate); });

class TruePeakLimiterPeak : public testing::TestWithParam<int> {};

// Runs of 100 samples through one line, the latter half of any kind.
TEST_P(TruePeakLimiterPeak, EstimateAgreesWithTheTwin) {
  const int rate = GetParam();
  TruePeakMeter meter;
  meter.Init(rate, 1);
  const std::vector<std::vector<float>> bank = twin::PolyphaseBankOf(rate);
  support::ForEachSeed(100, [&](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    TruePeakLimiter limiter;
    limiter.Init(1, rate);
    std::vector<float> pushed;
    for (int i = 0; i < 100; ++i) {
      const float sample =
          i < 50 ? static_cast<float>(noise.NextBipolar()) * 1.5F : support::AnyFloat(&noise, 4.0F);
      pushed.push_back(sample);
      limiter.PushLookAhead(sample, 0);
      ASSERT_BITS_EQ(twin::PeakEstimate(pushed, bank),
                     limiter.PeakEstimate(0, meter.GetPhases(), meter.GetBank()))
          << "rate " << rate << ", sample " << i << ": " << support::Show(sample);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Rates, TruePeakLimiterPeak, testing::Values(44100, 48000, 88200, 96000),
                         RateName);

class TruePeakLimiterPeakDeathTest : public testing::TestWithParam<int> {};

TEST_P(TruePeakLimiterPeakDeathTest, QuadRateWithoutPhasesStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TruePeakMeter meter;
  meter.Init(GetParam(), 1);
  TruePeakLimiter limiter;
  limiter.Init(1, GetParam());
  limiter.PushLookAhead(0.5F, 0);
  EXPECT_DEATH(limiter.PeakEstimate(0, meter.GetPhases(), meter.GetBank()), "out of range");
}

INSTANTIATE_TEST_SUITE_P(Rates, TruePeakLimiterPeakDeathTest, testing::Values(176400, 192000),
                         RateName);

// ---- steps

TEST(TruePeakLimiter, FullScaleIsZeroDb) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.ToDecibels(1.0F, 0);
  EXPECT_BITS_EQ(0.0F, limiter.InputLevel(0));
}

TEST(TruePeakLimiter, DecibelsTakeTheRoundedLogarithm) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.ToDecibels(0.5F, 1);
  // log10 of 0.5 in single precision is -0.30103000998497009.
  EXPECT_BITS_EQ(static_cast<float>(20.0 * -0.30103000998497009), limiter.InputLevel(1));
  EXPECT_BITS_EQ(0.0F, limiter.InputLevel(0));
}

TEST(TruePeakLimiter, PeakOfZeroIsMinusInfinityAndHasNoReduction) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.ToDecibels(0.0F, 0);
  EXPECT_BITS_EQ(-kInfinity, limiter.InputLevel(0));
  EXPECT_BITS_EQ(-kInfinity, CurveOf(&limiter, -kInfinity));
  limiter.TakeReduction(0);
  EXPECT_BITS_EQ(kNan, limiter.Reduction(0));
}

TEST(TruePeakLimiter, LevelUnderTheKneePasses) {
  TruePeakLimiter limiter = Stereo48k();
  for (const float level : {-7.5F, -60.0F, -1000.0F})
    EXPECT_BITS_EQ(level, CurveOf(&limiter, level));
}

TEST(TruePeakLimiter, LevelAtTheLowerEdgeOfTheKneeStays) {
  TruePeakLimiter limiter = Stereo48k();
  EXPECT_BITS_EQ(-7.0F, CurveOf(&limiter, -7.0F));
}

TEST(TruePeakLimiter, LowerEdgeTakesTheKneeFormula) {
  TruePeakLimiter limiter = Stereo48k();
  // A ratio of 0 makes the knee's factor infinite, and infinity times nothing no number.
  limiter.SetRatio(0.0F);
  EXPECT_BITS_EQ(kNan, CurveOf(&limiter, -7.0F));
}

TEST(TruePeakLimiter, UpperEdgeTakesTheKneeFormula) {
  TruePeakLimiter limiter = Stereo48k();
  // 1 less the threshold is 1 in double precision, half the knee. The range over the knee
  // would give the threshold.
  limiter.SetThreshold(0x1p-60F);
  limiter.SetRatio(kInfinity);
  limiter.SetKnee(2.0F);
  EXPECT_BITS_EQ(0.0F, CurveOf(&limiter, 1.0F));
}

TEST(TruePeakLimiter, CurveIsContinuousAtTheUpperEdge) {
  TruePeakLimiter limiter = Stereo48k();
  // T + W / (2 R) = -1 + 12 / 200.
  EXPECT_BITS_EQ(-0.94F, CurveOf(&limiter, 5.0F));
  EXPECT_NEAR(-0.94, static_cast<double>(CurveOf(&limiter, std::nextafterf(5.0F, 6.0F))), 1e-7);
}

TEST(TruePeakLimiter, KneeOfTwelveRunsSixDbToBothSidesOfAnyThreshold) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SetThreshold(-9.0F);
  EXPECT_BITS_EQ(-15.0F, CurveOf(&limiter, -15.0F));
  EXPECT_LT(CurveOf(&limiter, -14.5F), -14.5F);
  EXPECT_BITS_EQ(-8.94F, CurveOf(&limiter, -3.0F));
}

TEST(TruePeakLimiter, LevelOverTheKneeRisesByTheRatio) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SetRatio(4.0F);
  EXPECT_BITS_EQ(2.0F, CurveOf(&limiter, 11.0F));
  EXPECT_BITS_EQ(24.0F, CurveOf(&limiter, 99.0F));
}

TEST(TruePeakLimiter, LevelThatIsNoNumberKeepsThePreviousOutput) {
  TruePeakLimiter limiter = Stereo48k();
  CurveOf(&limiter, -33.0F);
  EXPECT_BITS_EQ(-33.0F, CurveOf(&limiter, kNan));
}

TEST(TruePeakLimiter, KneeOfZeroDividesByZeroAtTheThreshold) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SetKnee(0.0F);
  EXPECT_BITS_EQ(kNan, CurveOf(&limiter, -1.0F));
  EXPECT_BITS_EQ(-2.0F, CurveOf(&limiter, -2.0F));
  EXPECT_BITS_EQ(-0.99F, CurveOf(&limiter, 0.0F));
}

TEST(TruePeakLimiter, ReductionIsTheLevelLessTheCurve) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.ToDecibels(10.0F, 0);
  limiter.ApplyStaticCurve(limiter.InputLevel(0), 0);
  limiter.TakeReduction(0);
  // 20 dB leave -1 + 21 / 100.
  EXPECT_BITS_EQ(20.0F - static_cast<float>(-1.0 + 21.0 / 100.0), limiter.Reduction(0));
}

TEST(TruePeakLimiter, ReductionIsZeroUnderTheKnee) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.ToDecibels(0.1F, 0);
  limiter.ApplyStaticCurve(limiter.InputLevel(0), 0);
  limiter.TakeReduction(0);
  EXPECT_BITS_EQ(0.0F, limiter.Reduction(0));
}

TEST(TruePeakLimiter, RisingReductionIsFollowedAtOnce) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SmoothReduction(3.0F, 0);
  EXPECT_BITS_EQ(3.0F, limiter.PeakHold(0));
  limiter.SmoothReduction(7.5F, 0);
  EXPECT_BITS_EQ(7.5F, limiter.PeakHold(0));
}

TEST(TruePeakLimiter, FallingReductionIsReleasedByTheCoefficient) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SmoothReduction(8.0F, 0);
  limiter.SmoothReduction(0.0F, 0);
  // 8 times a power of two's neighbour is exact.
  EXPECT_BITS_EQ(8.0F * std::bit_cast<float>(0x3f7ffe0dU), limiter.PeakHold(0));
}

TEST(TruePeakLimiter, ReductionThatIsNoNumberEntersTheHold) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SmoothReduction(8.0F, 0);
  limiter.SmoothReduction(kNan, 0);
  EXPECT_BITS_EQ(kNan, limiter.PeakHold(0));
  limiter.SmoothReduction(1.0F, 0);
  EXPECT_BITS_EQ(kNan, limiter.PeakHold(0));
}

TEST(TruePeakLimiter, AttackOfZeroPassesTheHoldThrough) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SmoothReduction(6.0F, 0);
  EXPECT_BITS_EQ(6.0F, limiter.Smoothed(0));
}

TEST(TruePeakLimiter, AttackSmoothsTheSecondStage) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SetAttack(0.01F);
  const double attack = limiter.AttackCoefficient();
  ASSERT_GT(attack, 0.9);
  limiter.SmoothReduction(6.0F, 0);
  const auto first = static_cast<float>((1.0 - attack) * 6.0);
  EXPECT_BITS_EQ(6.0F, limiter.PeakHold(0));
  EXPECT_BITS_EQ(first, limiter.Smoothed(0));
  limiter.SmoothReduction(6.0F, 0);
  EXPECT_BITS_EQ(static_cast<float>(attack * static_cast<double>(first) + (1.0 - attack) * 6.0),
                 limiter.Smoothed(0));
}

TEST(TruePeakLimiter, ControlIsTheMakeupLessTheReduction) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SetMakeup(2.0F);
  limiter.SmoothReduction(6.0F, 0);
  limiter.ApplyMakeup(0);
  EXPECT_BITS_EQ(-4.0F, limiter.Control(0));
}

TEST(TruePeakLimiter, ControlOfMinusTwentyDbIsATenth) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SmoothReduction(20.0F, 0);
  limiter.ApplyMakeup(0);
  limiter.ToLinear(0);
  EXPECT_BITS_EQ(0.1F, limiter.LinearGain(0));
}

TEST(TruePeakLimiter, QuotientOfTheControlIsRoundedBeforeThePower) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SmoothReduction(47.0F, 0);
  limiter.ApplyMakeup(0);
  limiter.ToLinear(0);
  EXPECT_BITS_EQ(static_cast<float>(std::pow(10.0, -2.3499999046325684)), limiter.LinearGain(0));
}

TEST(TruePeakLimiter, StepsTouchTheirEntryOnly) {
  TruePeakLimiter limiter = Stereo48k();
  Walk(&limiter, 4.0F);
  for (const float level : LevelsOf(limiter, 1)) EXPECT_BITS_EQ(0.0F, level);
}

TEST(TruePeakLimiter, CurveAgreesWithTheTwin) {
  support::ForEachSeed(20000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    twin::LimiterSettings settings;
    TruePeakLimiter limiter = Stereo48k();
    if (seed % 2 == 1) {
      settings.threshold = support::AnyFloat(&noise, 30.0F);
      settings.ratio = support::AnyFloat(&noise, 120.0F);
      settings.knee = support::AnyFloat(&noise, 20.0F);
      limiter.SetThreshold(settings.threshold);
      limiter.SetRatio(settings.ratio);
      limiter.SetKnee(settings.knee);
    }
    const float level = support::AnyFloat(&noise, 30.0F);
    ASSERT_BITS_EQ(twin::StaticCurve(level, settings, 0.0F), CurveOf(&limiter, level))
        << "level " << support::Show(level) << ", threshold " << support::Show(settings.threshold)
        << ", ratio " << support::Show(settings.ratio) << ", knee " << support::Show(settings.knee);
  });
}

class TruePeakLimiterChain : public testing::TestWithParam<int> {};

// Runs of 100 peaks through one limiter: with the settings of a job, with other
// ordinary ones, and with any.
TEST_P(TruePeakLimiterChain, AgreesWithTheTwin) {
  const int rate = GetParam();
  support::ForEachSeed(100, [rate](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    TruePeakLimiter limiter;
    limiter.Init(2, rate);
    twin::LimiterLevels levels;
    twin::LimiterSettings settings = twin::DefaultLimiterSettings(rate);
    if (seed % 2 == 1) {
      const auto value = [&noise, isAny = seed % 4 == 3](float usual) {
        return isAny ? support::AnyFloat(&noise, usual)
                     : static_cast<float>(noise.NextBipolar()) * usual;
      };
      const float attack = std::fabs(value(0.01F));
      const float release = std::fabs(value(0.01F));
      settings.attackCoefficient = twin::CoefficientOfTime(rate, attack);
      settings.releaseCoefficient = twin::CoefficientOfTime(rate, release);
      settings.threshold = value(30.0F);
      settings.ratio = value(50.0F);
      settings.knee = value(20.0F);
      settings.makeup = value(12.0F);
      limiter.SetAttack(attack);
      limiter.SetRelease(release);
      limiter.SetThreshold(settings.threshold);
      limiter.SetRatio(settings.ratio);
      limiter.SetKnee(settings.knee);
      limiter.SetMakeup(settings.makeup);
    }
    for (int i = 0; i < 100; ++i) {
      // Special peaks only late: what is no number stays in the hold for ever.
      const float peak = i >= 90 ? support::AnyFloat(&noise, 2.0F)
                                 : static_cast<float>(std::pow(10.0, noise.NextBipolar() * 3.0));
      Walk(&limiter, peak);
      levels = twin::NextLevels(levels, peak, settings);
      const std::vector<float> wanted = {levels.inputLevel, levels.curveOutput, levels.reduction,
                                         levels.peakHold,   levels.smoothed,    levels.control,
                                         levels.linearGain};
      ASSERT_TRUE(support::SameLists(wanted, LevelsOf(limiter, 0)))
          << "rate " << rate << ", peak " << i << ": " << support::Show(peak) << ", threshold "
          << support::Show(settings.threshold) << ", ratio " << support::Show(settings.ratio)
          << ", knee " << support::Show(settings.knee) << ", makeup "
          << support::Show(settings.makeup) << ", coefficients "
          << support::Show(settings.attackCoefficient) << ", "
          << support::Show(settings.releaseCoefficient);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Rates, TruePeakLimiterChain, testing::ValuesIn(kRates), RateName);

// ---- the control path over many peaks

// What a frame does with one peak.
float GainByStep(TruePeakLimiter* limiter, float peak) {
  if (peak == 0.0F) return 1.0F;
  Walk(limiter, peak);
  return limiter->LinearGain(0);
}

// The levels that are there for good; those of the last peak need not be exact.
std::vector<float> KeptLevelsOf(const TruePeakLimiter& limiter) {
  return {limiter.Reduction(0), limiter.PeakHold(0), limiter.Smoothed(0), limiter.Control(0),
          limiter.LinearGain(0)};
}

testing::AssertionResult SameGains(const std::vector<float>& peaks, TruePeakLimiter* atOnce,
                                   TruePeakLimiter* byStep) {
  std::vector<float> wanted;
  for (const float peak : peaks) wanted.push_back(GainByStep(byStep, peak));
  std::vector<float> gains(peaks.size(), kNan);
  atOnce->GainsFor(peaks.data(), static_cast<int>(peaks.size()), gains.data());
  const testing::AssertionResult result = support::SameLists(wanted, gains);
  if (!result) return result;
  return support::SameLists(KeptLevelsOf(*byStep), KeptLevelsOf(*atOnce));
}

float LevelOf(float peak) {
  return static_cast<float>(20.0 * static_cast<double>(twin::Log10(peak)));
}

bool IsUnderKnee(float peak, float threshold, float knee) {
  return 2.0 * (static_cast<double>(LevelOf(peak)) - static_cast<double>(threshold)) <
         -static_cast<double>(knee);
}

TEST(TruePeakLimiter, SilentPeaksGiveOneAndFreezeTheState) {
  TruePeakLimiter limiter = Stereo48k();
  const float peaks[] = {4.0F, 0.0F, -0.0F};
  float gains[3];
  limiter.GainsFor(peaks, 3, gains);
  EXPECT_GT(1.0F, gains[0]);
  EXPECT_BITS_EQ(1.0F, gains[1]);
  EXPECT_BITS_EQ(1.0F, gains[2]);
  EXPECT_BITS_EQ(gains[0], limiter.LinearGain(0));
  const std::vector<float> before = LevelsOf(limiter, 0);
  limiter.GainsFor(peaks + 1, 2, gains);
  EXPECT_TRUE(support::SameLists(before, LevelsOf(limiter, 0)));
}

TEST(TruePeakLimiter, NoPeaksChangeNothing) {
  TruePeakLimiter limiter = Stereo48k();
  Walk(&limiter, 4.0F);
  const std::vector<float> before = LevelsOf(limiter, 0);
  limiter.GainsFor(nullptr, 0, nullptr);
  EXPECT_TRUE(support::SameLists(before, LevelsOf(limiter, 0)));
}

// Settings of a job, other ordinary ones, and any; peaks around the knee, and any.
TEST(TruePeakLimiter, GainsOfManyPeaksAreThoseOfTheSteps) {
  support::ForEachSeed(1000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    TruePeakLimiter atOnce = Stereo48k();
    TruePeakLimiter byStep = Stereo48k();
    const auto both = [&](auto set) {
      set(&atOnce);
      set(&byStep);
    };
    const bool isAny = seed % 4 == 3;
    const auto value = [&](float usual) {
      return isAny ? support::AnyFloat(&noise, usual)
                   : static_cast<float>(noise.NextBipolar()) * usual;
    };
    const float threshold = value(20.0F);
    both([&](TruePeakLimiter* limiter) { limiter->SetThreshold(threshold); });
    if (seed % 2 == 1) {
      const float times[] = {std::fabs(value(0.01F)), std::fabs(value(0.01F))};
      const float ratio = value(50.0F);
      const float knee = value(20.0F);
      const float makeup = noise.NextBelow(2) == 0 ? 0.0F : value(12.0F);
      both([&](TruePeakLimiter* limiter) {
        limiter->SetAttack(times[0]);
        limiter->SetRelease(times[1]);
        limiter->SetRatio(ratio);
        limiter->SetKnee(knee);
        limiter->SetMakeup(makeup);
      });
    }
    for (int run = 0; run < 4; ++run) {
      SCOPED_TRACE("threshold " + support::Show(threshold) + ", run " + std::to_string(run));
      std::vector<float> peaks(noise.NextBelow(40));
      const bool isQuiet = noise.NextBelow(3) == 0;
      for (float& peak : peaks) {
        const double decibels = static_cast<double>(threshold) + noise.NextBipolar() * 20.0;
        peak = static_cast<float>(std::pow(10.0, decibels / 20.0));
        if (isQuiet) peak *= 0.05F;
        if (noise.NextBelow(8) == 0) peak = 0.0F;
        // Special peaks only late: what is no number stays in the hold for ever.
        if (run == 3 && noise.NextBelow(8) == 0) {
          peak = std::fabs(support::AnyFloat(&noise, 2.0F));
        }
      }
      ASSERT_TRUE(SameGains(peaks, &atOnce, &byStep));
    }
  });
}

TEST(TruePeakLimiter, KneeStartIsTheFirstPeakNotUnderTheKnee) {
  support::ForEachSeed(1000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    TruePeakLimiter limiter = Stereo48k();
    const float threshold = static_cast<float>(noise.NextBipolar()) * 24.0F;
    const float knee = seed % 2 == 0 ? 12.0F : std::fabs(static_cast<float>(noise.NextBipolar()));
    limiter.SetThreshold(threshold);
    limiter.SetKnee(knee);
    const float start = limiter.KneeStart();
    if (start == 0.0F) {
      EXPECT_TRUE(IsUnderKnee(8.0F, threshold, knee)) << support::Show(threshold);
      return;
    }
    SCOPED_TRACE(support::Show(threshold) + ", knee " + support::Show(knee) + ", start " +
                 support::Show(start));
    const float below = std::nextafterf(start, 0.0F);
    EXPECT_FALSE(IsUnderKnee(start, threshold, knee));
    EXPECT_TRUE(IsUnderKnee(below, threshold, knee));
    limiter.ToDecibels(below, 0);
    limiter.ApplyStaticCurve(limiter.InputLevel(0), 0);
    limiter.TakeReduction(0);
    EXPECT_BITS_EQ(0.0F, limiter.Reduction(0));
  });
}

TEST(TruePeakLimiter, KneeStartIsThatOfTheLatestThresholdAndKnee) {
  TruePeakLimiter limiter = Stereo48k();
  // 10 to the power of -7 / 20, and so on, but for the rounding of the level.
  EXPECT_NEAR(0.4466836, static_cast<double>(limiter.KneeStart()), 1e-6);
  limiter.SetThreshold(-14.0F);
  EXPECT_NEAR(0.1, static_cast<double>(limiter.KneeStart()), 1e-6);
  limiter.SetKnee(52.0F);
  EXPECT_NEAR(0.01, static_cast<double>(limiter.KneeStart()), 1e-7);
  limiter.Init(2, 48000);
  EXPECT_NEAR(0.4466836, static_cast<double>(limiter.KneeStart()), 1e-6);
}

// Single by single around the last threshold that has a known start, or the first that has not.
void ExpectStartsAround(float border, bool isKnownAbove) {
  float threshold = border;
  for (int i = 0; i < 4; ++i) threshold = std::nextafterf(threshold, -kInfinity);
  for (int i = -4; i <= 4; ++i) {
    SCOPED_TRACE("threshold " + support::Show(threshold));
    TruePeakLimiter atOnce = Stereo48k();
    TruePeakLimiter byStep = Stereo48k();
    atOnce.SetThreshold(threshold);
    byStep.SetThreshold(threshold);
    const bool isKnown = isKnownAbove ? i > 0 : i <= 0;
    EXPECT_EQ(isKnown, atOnce.KneeStart() != 0.0F);
    std::vector<float> peaks = {8.5F, 16.0F, 2e-6F, 1e-7F, 1e-38F};
    for (const float first : {8.0F, 9.5e-7F}) {
      float peak = first;
      for (int k = 0; k < 20; ++k) peak = std::nextafterf(peak, 0.0F);
      for (int k = 0; k < 40; ++k) peaks.push_back(peak = std::nextafterf(peak, kInfinity));
    }
    std::sort(peaks.begin(), peaks.end());  // so that no hold hides the reductions behind it
    EXPECT_TRUE(SameGains(peaks, &atOnce, &byStep));
    threshold = std::nextafterf(threshold, kInfinity);
  }
}

TEST(TruePeakLimiter, ThresholdsFarOverFullScaleHaveNoKnownKneeStart) {
  // The knee of 12 dB begins at the level of 8.0, or above.
  ExpectStartsAround(LevelOf(8.0F) + 6.0F, false);
}

TEST(TruePeakLimiter, ThresholdsFarUnderFullScaleHaveNoKnownKneeStart) {
  // The knee begins at the level of 9.5e-7, some -120 dB, or below.
  ExpectStartsAround(LevelOf(9.5e-7F) + 6.0F, true);
}

TEST(TruePeakLimiter, ThresholdThatIsNotFiniteHasNoKneeStart) {
  for (const float threshold : {kNan, kInfinity, -kInfinity}) {
    SCOPED_TRACE(threshold);
    TruePeakLimiter atOnce = Stereo48k();
    TruePeakLimiter byStep = Stereo48k();
    atOnce.SetThreshold(threshold);
    byStep.SetThreshold(threshold);
    EXPECT_BITS_EQ(0.0F, atOnce.KneeStart());
    EXPECT_TRUE(SameGains({1e-30F, 0.001F, 0.0F, 0.5F, 1.0F, 4.0F, 0.5F}, &atOnce, &byStep));
  }
}

// ---- gains of 1 and beside it

float GainOfControl(float decibels) {
  TruePeakLimiter limiter = Stereo48k();
  limiter.SetMakeup(decibels);
  const float quiet = 0.001F;  // no reduction, so the makeup is the control
  float gain = kNan;
  limiter.GainsFor(&quiet, 1, &gain);
  EXPECT_BITS_EQ(decibels, limiter.Control(0));
  limiter.ToLinear(0);
  EXPECT_BITS_EQ(gain, limiter.LinearGain(0));
  return gain;
}

TEST(TruePeakLimiter, LowestControlWithoutAGainIsHalfAStepUnderOne) {
  // 10^(x / 20) is 1 + x ln 10 / 20, and the middle between 1 and the single below 1 - 2^-25:
  // x is -20 / (2^25 ln 10), that is -2.58859685e-07.
  constexpr float kLast = -2.58859671e-07F;
  EXPECT_BITS_EQ(1.0F, GainOfControl(kLast));
  EXPECT_BITS_EQ(1.0F - 0x1p-24F, GainOfControl(std::nextafterf(kLast, -1.0F)));
}

TEST(TruePeakLimiter, ControlsAroundNothingAgreeWithTheTwin) {
  for (const float border : {-2.58859671e-07F, 2.58859671e-07F, 5.177194e-07F, 0.0F}) {
    float decibels = border;
    for (int i = 0; i < 50; ++i) decibels = std::nextafterf(decibels, -1.0F);
    for (int i = 0; i < 100; ++i) {
      const float exponent = static_cast<float>(static_cast<double>(decibels) / 20.0);
      ASSERT_BITS_EQ(twin::Pow(10.0F, exponent), GainOfControl(decibels))
          << support::Show(decibels);
      decibels = std::nextafterf(decibels, 1.0F);
    }
  }
}

TEST(TruePeakLimiter, OneGainAmongOnesIsNotLost) {
  // Without a release the hold falls at once: one control that is heard among idle ones.
  for (int place = 0; place < 9; ++place) {
    TruePeakLimiter atOnce = Stereo48k();
    TruePeakLimiter byStep = Stereo48k();
    for (TruePeakLimiter* limiter : {&atOnce, &byStep}) limiter->SetRelease(0.0F);
    std::vector<float> peaks(9, 0.001F);
    peaks[static_cast<std::size_t>(place)] = 1.0F;
    EXPECT_TRUE(SameGains(peaks, &atOnce, &byStep)) << place;
    const std::vector<float> ones(9, 0.001F);
    EXPECT_TRUE(SameGains(ones, &atOnce, &byStep)) << place;
  }
}

}  // namespace
}  // namespace harvane
