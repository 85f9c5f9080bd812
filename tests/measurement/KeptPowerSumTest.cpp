#include "measurement/KeptPowerSum.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "tests/measurement/FailingAllocations.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"

namespace harvane {
namespace {

using measurement_tests::OneIn;
using measurement_tests::RandomInt;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// All again: what the sum says that it is.
void ExpectSum(const CheckedList<AcceptedLoudness>& accepted, float gate, const KeptPowerSum& got) {
  float sum = 0.0F;
  std::size_t count = 0;
  for (const AcceptedLoudness& one : accepted) {
    if (!(one.value > gate)) continue;
    sum = static_cast<float>(static_cast<double>(one.power) + static_cast<double>(sum));
    ++count;
  }
  ASSERT_BITS_EQ(sum, got.Sum()) << accepted.Size() << " loudnesses, gate " << support::Show(gate);
  ASSERT_EQ(count, got.Count()) << accepted.Size() << " loudnesses, gate " << support::Show(gate);
}

TEST(KeptPowerSum, NewOneKeepsNothing) {
  const KeptPowerSum sum;
  EXPECT_BITS_EQ(0.0F, sum.Sum());
  EXPECT_EQ(0U, sum.Count());
}

TEST(KeptPowerSum, LoudnessAtTheGateIsNotKept) {
  CheckedList<AcceptedLoudness> accepted;
  KeptPowerSum sum;
  accepted.Append({-20.0F, 2.0F});
  sum.Update(accepted, -20.0F);
  EXPECT_EQ(0U, sum.Count());
  accepted.Append({-19.0F, 3.0F});
  sum.Update(accepted, std::nextafter(-20.0F, -kInfinity));
  EXPECT_BITS_EQ(5.0F, sum.Sum());
  accepted.Append({-18.0F, 4.0F});
  sum.Update(accepted, -19.0F);
  EXPECT_BITS_EQ(4.0F, sum.Sum());
  EXPECT_EQ(1U, sum.Count());
}

// What is kept in the end of a thousand loudnesses: first one of power `first`, which the gate
// drops or takes in at last, then one of power `second`; far behind them, where sums may be moved
// as they are, those of `powers`.
float SumAfterMove(float first, bool isDropped, float second, const std::vector<float>& powers) {
  constexpr std::size_t kFar = 512;
  constexpr float kBelowFirst = -70.0F;
  constexpr float kAboveFirst = -25.0F;
  CheckedList<AcceptedLoudness> accepted;
  KeptPowerSum sum;
  accepted.Append({-30.0F, first});
  sum.Update(accepted, isDropped ? kBelowFirst : kAboveFirst);
  for (std::size_t i = 1; i < 1000; ++i) {
    float power = i == 1 ? second : 0.0F;
    if (i >= kFar && i < kFar + powers.size()) power = powers[i - kFar];
    accepted.Append({-20.0F, power});
    const bool isLow = (i == 999) != isDropped;
    sum.Update(accepted, isLow ? kBelowFirst : kAboveFirst);
  }
  return sum.Sum();
}

// From 2^24 on singles are 2 apart, and below 1.
constexpr float kBorder = 0x1p24F;

TEST(KeptPowerSum, HalvesOfAMovedSumGoToItsOwnEvenNeighbour) {
  // 2^24 + 2 and 1 is 2^24 + 4; 2^24 and 1 stays.
  EXPECT_BITS_EQ(kBorder, SumAfterMove(2.0F, true, kBorder, {1.0F}));
}

TEST(KeptPowerSum, MovedSumsThatCrossAPowerOfTwoAreAddedAgain) {
  // From 2^24 - 8 to 2^24 - 4; from 2^24 - 2 to 2^24, and there two more stay.
  EXPECT_BITS_EQ(kBorder, SumAfterMove(6.0F, false, kBorder - 8.0F, {1.0F, 1.0F, 1.0F, 1.0F}));
  // From 2^24 + 2 to 2^24 + 8; from 2^24 - 2 two steps of 1 to 2^24, then to 2^24 + 6.
  EXPECT_BITS_EQ(kBorder + 6.0F, SumAfterMove(4.0F, true, kBorder - 2.0F, {0.75F, 0.75F, 6.0F}));
}

TEST(KeptPowerSum, SumsThatCrossedAPowerOfTwoAreAddedAgainWhereTheyMove) {
  // From 2^24 - 2 two steps of 1 to 2^24, where the others are lost; from 2^24 - 18 all ten count.
  EXPECT_BITS_EQ(kBorder - 8.0F,
                 SumAfterMove(16.0F, true, kBorder - 18.0F, std::vector<float>(10, 0.75F)));
}

enum class Powers { kOfProgramme, kOfFewDigits, kAny };

// Few digits, so that additions often lie in the middle between two singles; any, so that a gate
// takes much of the sum; and the first so large now and then that the others hardly count.
float RandomPower(support::NoiseSource* noise, float value, Powers kind, bool isFirst) {
  if (isFirst && OneIn(noise, 2)) return std::ldexp(1.0F, RandomInt(noise, 10, 26));
  if (kind == Powers::kOfFewDigits) return static_cast<float>(RandomInt(noise, 0, 16)) / 4.0F;
  if (kind == Powers::kAny) return std::fabs(static_cast<float>(noise->NextBipolar()));
  return PowerOf(value);
}

TEST(KeptPowerSum, AgreesWithAddingAllAgain) {
  support::ForEachSeed(200, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    CheckedList<AcceptedLoudness> accepted;
    KeptPowerSum sum;
    float gate = -70.0F;
    const auto powers = static_cast<Powers>(noise.NextBelow(3));
    const int steps = RandomInt(&noise, 1, 4000);
    // Values come again, so that the gate passes several at a time.
    const double grid = OneIn(&noise, 2) ? 8.0 : 1e6;
    const int chances = RandomInt(&noise, 2, 200);
    for (int i = 0; i < steps; ++i) {
      const auto value =
          static_cast<float>(std::floor((noise.NextBipolar() * 35.0 - 34.0) * grid) / grid);
      accepted.Append({value, RandomPower(&noise, value, powers, i == 0)});
      const bool isMoved = OneIn(&noise, chances);
      if (isMoved) {
        const float other = accepted[noise.NextBelow(static_cast<std::uint32_t>(i) + 1)].value;
        const float gates[] = {other, std::nextafter(other, -kInfinity), -70.0F, gate - 0.1F,
                               gate + 0.1F};
        gate = gates[noise.NextBelow(5)];
      }
      sum.Update(accepted, gate);
      if (isMoved ? OneIn(&noise, 4) : OneIn(&noise, 400)) ExpectSum(accepted, gate, sum);
      if (testing::Test::HasFatalFailure()) return;
    }
    ExpectSum(accepted, gate, sum);
    sum.Clear();
    accepted.Clear();
    accepted.Append({-20.0F, 0.25F});
    sum.Update(accepted, -70.0F);
    ExpectSum(accepted, -70.0F, sum);
  });
}

// ---- whole programmes

struct Step {
  float loudness;  // LUFS
  float gate;      // LUFS
};

// Feeds `steps` steps and compares with the whole sum after each of the first thousand and now
// and then later: the shortest spans, those of the next two levels and the beginning of the last
// are passed by 10,000 steps.
void CompareWithWholeSums(int steps, const std::function<Step(int)>& step) {
  constexpr int kAlwaysCompared = 1000;
  constexpr int kThenEvery = 97;
  CheckedList<AcceptedLoudness> accepted;
  KeptPowerSum sum;
  for (int i = 0; i < steps; ++i) {
    const Step now = step(i);
    accepted.Append({now.loudness, PowerOf(now.loudness)});
    sum.Update(accepted, now.gate);
    if (i >= kAlwaysCompared && i % kThenEvery != 0) continue;
    ExpectSum(accepted, now.gate, sum);
    if (testing::Test::HasFatalFailure()) return;
  }
}

constexpr int kSteps = 20000;

TEST(KeptPowerSum, OfAProgrammeThatRisesLosesItsBeginning) {
  CompareWithWholeSums(kSteps, [](int i) {
    const float loudness = -65.0F + 60.0F * static_cast<float>(i) / kSteps;
    return Step{loudness, loudness - 14.0F};
  });
}

TEST(KeptPowerSum, OfAProgrammeThatFallsTakesBackWhatItLost) {
  CompareWithWholeSums(kSteps, [](int i) {
    const float loudness = -5.0F - 60.0F * static_cast<float>(i) / kSteps;
    return Step{loudness, loudness + (i % 7 == 0 ? 3.0F : -3.0F)};
  });
}

TEST(KeptPowerSum, FollowsAGateThatWandersThroughTheLoudnesses) {
  support::NoiseSource noise(7);
  float gate = -30.0F;
  CompareWithWholeSums(kSteps, [&](int i) {
    gate += static_cast<float>(noise.NextBipolar()) * (i % 500 == 0 ? 10.0F : 0.01F);
    if (gate < -45.0F || gate > -15.0F) gate = -30.0F;
    return Step{static_cast<float>(-30.0 + 15.0 * noise.NextBipolar()), gate};
  });
}

TEST(KeptPowerSum, StaysInfiniteWhileAnInfiniteLoudnessIsKept) {
  CompareWithWholeSums(3000, [](int i) {
    return Step{i == 700 ? kInfinity : -20.0F - static_cast<float>(i % 10),
                -25.0F + static_cast<float>(i % 3)};
  });
}

TEST(KeptPowerSum, MakesUpForWhatLackingMemoryKeptItFrom) {
  constexpr int kLoudnesses = 600;  // past two levels
  for (int failing = 0; failing < kLoudnesses; failing += 32) {
    for (std::size_t allowed = 0; allowed < 4; ++allowed) {
      CheckedList<AcceptedLoudness> accepted;
      KeptPowerSum sum;
      for (int i = 0; i < kLoudnesses; ++i) {
        const float loudness = -20.0F - static_cast<float>(i % 17);
        accepted.Append({loudness, PowerOf(loudness)});
        const float gate = -30.0F + static_cast<float>(i % 5);
        if (i == failing) {
          measurement_tests::SucceedsWithAllocations(allowed, [&] { sum.Update(accepted, gate); });
          continue;
        }
        sum.Update(accepted, gate);
        ExpectSum(accepted, gate, sum);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

}  // namespace
}  // namespace harvane
