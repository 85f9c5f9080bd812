#include "measurement/KeptPowerSum.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "tests/measurement/FailingAllocations.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"

namespace harvane {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// All powers above the gate, added again.
float SumAboveGate(const CheckedList<AcceptedLoudness>& accepted, float gate, std::size_t* count) {
  float sum = 0.0F;
  *count = 0;
  for (const AcceptedLoudness& loudness : accepted) {
    if (!(loudness.value > gate)) continue;
    sum = static_cast<float>(static_cast<double>(loudness.power) + sum);
    ++*count;
  }
  return sum;
}

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
    std::size_t count = 0;
    const float wanted = SumAboveGate(accepted, now.gate, &count);
    ASSERT_BITS_EQ(wanted, sum.Sum()) << "after step " << i;
    ASSERT_EQ(count, sum.Count()) << "after step " << i;
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

// Powers of two and half ones: every other sum lies between two neighbours.
TEST(KeptPowerSum, RoundsSumsBetweenTwoNeighboursAsOftenAsTheyCome) {
  support::NoiseSource noise(11);
  CheckedList<AcceptedLoudness> accepted;
  KeptPowerSum sum;
  for (int i = 0; i < 6000; ++i) {
    const auto value = static_cast<float>(-30.0 + 15.0 * noise.NextBipolar());
    // 2^24 is reached by the first one, so that a 1 is half a step.
    const float power = i == 0 ? 0x1p24F : static_cast<float>(1 + noise.NextBelow(3));
    accepted.Append({i == 0 ? 0.0F : value, power});
    const float gate = -30.0F + 10.0F * std::sin(static_cast<float>(i) / 100.0F);
    sum.Update(accepted, gate);
    std::size_t count = 0;
    const float wanted = SumAboveGate(accepted, gate, &count);
    ASSERT_BITS_EQ(wanted, sum.Sum()) << "after step " << i;
    ASSERT_EQ(count, sum.Count());
  }
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
        std::size_t count = 0;
        const float wanted = SumAboveGate(accepted, gate, &count);
        ASSERT_BITS_EQ(wanted, sum.Sum()) << failing << ", " << allowed << ", " << i;
        ASSERT_EQ(count, sum.Count());
      }
    }
  }
}

}  // namespace
}  // namespace harvane
