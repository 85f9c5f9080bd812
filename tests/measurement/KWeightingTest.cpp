#include "measurement/KWeighting.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "measurement/LoudnessMeter.h"
#include "measurement/OverlapBlockBuffer.h"
#include "measurement/SampleHistory.h"
#include "measurement/SampleMath.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

using measurement_tests::OneIn;
using measurement_tests::RandomInt;
using measurement_tests::RandomLength;
using measurement_tests::RandomRun;

std::vector<float> List(const float (&three)[3]) { return {three[0], three[1], three[2]}; }

void ExpectSameRow(const KWeightingCoefficients& wanted, const KWeightingCoefficients& got) {
  EXPECT_TRUE(support::SameLists(List(wanted.firstStageA), List(got.firstStageA)));
  EXPECT_TRUE(support::SameLists(List(wanted.firstStageB), List(got.firstStageB)));
  EXPECT_TRUE(support::SameLists(List(wanted.secondStageA), List(got.secondStageA)));
  EXPECT_TRUE(support::SameLists(List(wanted.secondStageB), List(got.secondStageB)));
}

// Both stages of one channel of a meter, run as a measuring pass runs them.
std::vector<float> Weight(const LoudnessMeter& meter, int channel, const std::vector<float>& x) {
  const SampleMath math;
  const int count = static_cast<int>(x.size());
  const StageCoefficients first = meter.GetFirstStageCoefficients();
  const StageCoefficients second = meter.GetSecondStageCoefficients();
  std::vector<float> shelved(x.size());
  std::vector<float> weighted(x.size());
  math.FilterBlock(x.data(), count, first.a, 3, first.b, 3, shelved.data(),
                   meter.GetFirstStageState(channel));
  math.FilterBlock(shelved.data(), count, second.a, 3, second.b, 3, weighted.data(),
                   meter.GetSecondStageState(channel));
  return weighted;
}

struct RateCase {
  int sampleRate;
  double b0, b1, b2, a1, a2, secondA1, secondA2;
};

KWeightingCoefficients CoefficientsOf(const RateCase& row) {
  const auto single = [](double v) { return static_cast<float>(v); };
  return {{1.0F, single(row.a1), single(row.a2)},
          {single(row.b0), single(row.b1), single(row.b2)},
          {1.0F, single(row.secondA1), single(row.secondA2)},
          {1.0F, -2.0F, 1.0F}};
}

class KWeightingRates : public testing::TestWithParam<RateCase> {};

TEST_P(KWeightingRates, RowHoldsTheStoredNumbers) {
  ExpectSameRow(CoefficientsOf(GetParam()), KWeightingFor(GetParam().sampleRate));
}

TEST_P(KWeightingRates, MeterHandsTheRowOut) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(GetParam().sampleRate, 1);
  const KWeightingCoefficients wanted = CoefficientsOf(GetParam());
  const StageCoefficients first = meter.GetFirstStageCoefficients();
  const StageCoefficients second = meter.GetSecondStageCoefficients();
  EXPECT_TRUE(support::SameLists(List(wanted.firstStageA), List(first.a)));
  EXPECT_TRUE(support::SameLists(List(wanted.firstStageB), List(first.b)));
  EXPECT_TRUE(support::SameLists(List(wanted.secondStageA), List(second.a)));
  EXPECT_TRUE(support::SameLists(List(wanted.secondStageB), List(second.b)));
}

TEST_P(KWeightingRates, SilenceStaysExactlyZero) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(GetParam().sampleRate, 1);
  const std::vector<float> silence(5000, 0.0F);
  EXPECT_TRUE(support::SameLists(silence, Weight(meter, 0, silence)));
}

TEST_P(KWeightingRates, ConstantInputDecays) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(GetParam().sampleRate, 1);
  const std::vector<float> second(static_cast<std::size_t>(GetParam().sampleRate), 1.0F);
  const std::vector<float> y = Weight(meter, 0, second);
  EXPECT_LT(1.0F, std::fabs(y.front()));
  // A high pass at 38 Hz takes a step down by far more than 100 dB in a second.
  EXPECT_GT(1e-5F, std::fabs(y.back()));
}

INSTANTIATE_TEST_SUITE_P(
    Rates, KWeightingRates,
    testing::Values(
        RateCase{44100, 1.5308412313461304, -2.650979995727539, 1.169079065322876,
                 -1.663655161857605, 0.7125954031944275, -1.989169716835022, 0.9891990423202515},
        RateCase{48000, 1.5351248979568481, -2.6916961669921875, 1.1983928680419922,
                 -1.6906592845916748, 0.7324807643890381, -1.9900474548339844, 0.9900722503662109},
        RateCase{88200, 1.5575153827667236, -2.9056270122528076, 1.361333966255188,
                 -1.8309199810028076, 0.8441422581672668, -1.9945775270462036, 0.994584858417511},
        RateCase{96000, 1.5597141981124878, -2.926741600036621, 1.3782612085342407,
                 -1.8446094989776611, 0.8558433055877686, -1.9950175285339355, 0.995023787021637},
        RateCase{176400, 1.5711153745651245, -3.0365445613861084, 1.4688715934753418,
                 -1.9153293371200562, 0.9187717437744141, -1.9972869157791138, 0.9972887635231018},
        RateCase{192000, 1.5722272396087646, -3.0472829341888428, 1.4779713153839111,
                 -1.922202229499817, 0.9251177310943604, -1.9975072145462036, 0.9975087642669678}),
    [](const testing::TestParamInfo<RateCase>& info) {
      return "Rate" + std::to_string(info.param.sampleRate);
    });

TEST(KWeighting, RowOf48000IsThePublishedTableInSinglePrecision) {
  // ITU-R BS.1770, tables 1 and 2.
  const RateCase published = {48000,
                              1.53512485958697,
                              -2.69169618940638,
                              1.19839281085285,
                              -1.69065929318241,
                              0.73248077421585,
                              -1.99004745483398,
                              0.99007225036621};
  ExpectSameRow(CoefficientsOf(published), KWeightingFor(48000));
}

TEST(KWeighting, UnknownRateGetsTheRowOf48000) {
  for (const int rate : {0, -1, 8000, 32000, 44099, 44101, 47999, 48001, 192001, 384000}) {
    SCOPED_TRACE(rate);
    ExpectSameRow(KWeightingFor(48000), KWeightingFor(rate));
  }
}

TEST(KWeighting, Rate32000KeepsWindowsOfItsOwn) {
  EXPECT_EQ(12800, WindowLength(32000, 0.4F));
  EXPECT_EQ(96000, WindowLength(32000, 3.0F));
}

TEST(KWeighting, StatesHaveThreeInputsAndTwoOutputs) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(48000, 2);
  for (const BiquadState& state : {meter.GetFirstStageState(0), meter.GetSecondStageState(0),
                                   meter.GetFirstStageState(1), meter.GetSecondStageState(1)}) {
    EXPECT_EQ(3, state.xLength);
    EXPECT_EQ(2, state.yLength);
    float values[3] = {9.0F, 9.0F, 9.0F};
    state.xHistory->ReadNewestFirst(values, 3);
    EXPECT_TRUE(support::SameLists({0.0F, 0.0F, 0.0F}, List(values)));
    state.yHistory->ReadNewestFirst(values, 2);
    EXPECT_TRUE(support::SameLists({0.0F, 0.0F, 0.0F}, List(values)));
    // Four pushes into a length of three: the first one is gone.
    for (const float v : {1.0F, 2.0F, 3.0F, 4.0F}) state.xHistory->Push(v);
    for (const float v : {1.0F, 2.0F, 3.0F}) state.yHistory->Push(v);
    float wrapped[3];
    state.xHistory->ReadNewestFirst(values, 3);
    EXPECT_TRUE(support::SameLists({4.0F, 3.0F, 2.0F}, List(values)));
    state.yHistory->ReadNewestFirst(wrapped, 3);
    EXPECT_TRUE(support::SameLists({3.0F, 2.0F, 3.0F}, List(wrapped)));
  }
}

TEST(KWeighting, ChannelsHaveStatesOfTheirOwn) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(48000, 2);
  Weight(meter, 0, {1.0F, -1.0F});
  EXPECT_TRUE(support::SameLists({0.0F, 0.0F}, Weight(meter, 1, {0.0F, 0.0F})));
}

TEST(KWeighting, SecondPassSeesTheRemainsOfTheFirst) {
  LoudnessMeter meter({}, 0, nullptr);
  meter.Init(48000, 1);
  meter.SetMode(LoudnessMeter::kGated);
  Weight(meter, 0, {1.0F, -1.0F, 1.0F});
  meter.SetMode(LoudnessMeter::kMaximaOnly);
  meter.ClearSeries();
  meter.SetMode(LoudnessMeter::kGated);
  const std::vector<float> remains = Weight(meter, 0, {0.0F, 0.0F, 0.0F});

  const twin::KWeighting row = twin::KWeightingOf(48000);
  std::vector<float> pasts[4];
  const std::vector<float> whole = twin::FilterBlock(
      twin::FilterBlock({1.0F, -1.0F, 1.0F, 0.0F, 0.0F, 0.0F}, row.first, &pasts[0], &pasts[1]),
      row.second, &pasts[2], &pasts[3]);
  EXPECT_TRUE(support::SameLists({whole.begin() + 3, whole.end()}, remains));
  EXPECT_LT(0.1F, std::fabs(remains[0]));
}

TEST(KWeighting, CascadeAgreesWithTheTwin) {
  support::ForEachSeed(10000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    static const int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000, 32000};
    const int rate = kRates[noise.NextBelow(7)];
    // The windows of these rates are long and not wanted here: the row goes into plain histories.
    const KWeightingCoefficients& row = KWeightingFor(rate);
    const twin::KWeighting twinRow = twin::KWeightingOf(rate);
    SampleHistory firstX(3), firstY(2), secondX(3), secondY(2);
    std::vector<float> pasts[4];
    const SampleMath math;
    for (int chunk = RandomInt(&noise, 1, 4); chunk > 0; --chunk) {
      const std::size_t length = RandomLength(&noise, 50);
      SCOPED_TRACE("rate " + std::to_string(rate) + ", length " + std::to_string(length));
      const std::vector<float> x = RandomRun(&noise, length, OneIn(&noise, 5));
      std::vector<float> shelved(length);
      std::vector<float> weighted(length);
      const int count = static_cast<int>(length);
      math.FilterBlock(x.data(), count, row.firstStageA, 3, row.firstStageB, 3, shelved.data(),
                       {&firstX, &firstY, 3, 2});
      math.FilterBlock(shelved.data(), count, row.secondStageA, 3, row.secondStageB, 3,
                       weighted.data(), {&secondX, &secondY, 3, 2});
      const std::vector<float> wanted =
          twin::FilterBlock(twin::FilterBlock(x, twinRow.first, &pasts[0], &pasts[1]),
                            twinRow.second, &pasts[2], &pasts[3]);
      ASSERT_TRUE(support::SameLists(wanted, weighted));
    }
  });
}

}  // namespace
}  // namespace harvane
