#include "tool/OutputMeter.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/tool/JobSupport.h"

namespace harvane {
namespace {

using Samples = std::vector<std::int16_t>;
using Wanted = TrackMeter::Wanted;

constexpr int kRate = 48000;
constexpr std::size_t kChunk = 239;  // floor of 48000 times 0.005 in single precision

Samples Noise(std::uint64_t seed, double seconds, int amplitude) {
  return support::NoiseInt16(seed, static_cast<std::size_t>(seconds * kRate), amplitude);
}

void Feed(OutputMeter* meter, const Samples& samples, std::size_t width, std::size_t unit) {
  const std::size_t frames = samples.size() / width;
  for (std::size_t first = 0; first < frames; first += unit) {
    meter->Hear(samples.data() + first * width, std::min(unit, frames - first));
  }
  meter->Finish();
}

void ExpectSame(const LogMeasurement& wanted, const TrackMeasurement& values) {
  EXPECT_BITS_EQ(wanted.integratedLoudness, values.integratedLoudness);
  EXPECT_BITS_EQ(wanted.loudnessRange, values.loudnessRange);
  EXPECT_BITS_EQ(wanted.maxTruePeak, values.maxTruePeak);
  EXPECT_EQ(wanted.maxTruePeakPosition, values.maxTruePeakPosition);
  EXPECT_BITS_EQ(wanted.maxShortTerm, values.maxShortTerm);
  EXPECT_EQ(wanted.maxShortTermPosition, values.maxShortTermPosition);
  EXPECT_BITS_EQ(wanted.maxMomentary, values.maxMomentary);
  EXPECT_EQ(wanted.maxMomentaryPosition, values.maxMomentaryPosition);
}

TEST(OutputMeter, ValuesAreThoseOfAnAnalysisHoweverItIsCut) {
  for (const int channels : {1, 2, 6}) {
    const Samples samples = support::Programme(5, kRate, channels, 7 * kRate);
    support::ParameterTexts texts;
    texts.numberOfPasses = "1";
    texts.formats[0] = std::to_string(channels);
    const LogMeasurement wanted =
        support::RunDirectly(texts, kRate, channels, samples).measurements.at(0);
    std::vector<int> all;
    for (int c = 0; c < channels; ++c) all.push_back(c);
    for (const std::size_t unit : {1000U, 65536U}) {
      OutputMeter meter({{all, Wanted::kValues, {}}}, channels, kRate);
      Feed(&meter, samples, all.size(), unit);
      EXPECT_TRUE(meter.IsMeasured(0));
      ExpectSame(wanted, meter.Meter(0).Values());
    }
  }
}

TEST(OutputMeter, ChannelsOfATrackLieAnywhereInTheFile) {
  const Samples left = Noise(1, 2.0, 3000);
  const Samples right = Noise(2, 2.0, 5000);
  const Samples other = Noise(3, 2.0, 20000);
  support::ParameterTexts texts;
  texts.numberOfPasses = "1";
  const LogMeasurement wanted =
      support::RunDirectly(texts, kRate, 2, support::Interleave({left, right})).measurements.at(0);
  OutputMeter meter({{{2, 0}, Wanted::kValues, {}}, {{1}, Wanted::kSeries, {}}}, 3, kRate);
  Feed(&meter, support::Interleave({right, other, left}), 3, 5000);
  ExpectSame(wanted, meter.Meter(0).Values());
  EXPECT_EQ(meter.Meter(1).TakeSeries().momentary.size(), 16U);  // begin every 0.1 s up to 1.5 s
}

// A minute of which only the beginning decides.
class OutputMeterMemory : public testing::Test {
 protected:
  bool IsMeasured(const Samples& end, const Samples& head) const {
    OutputMeter meter({{{0}, Wanted::kValues, end}}, 1, kRate);
    Feed(&meter, head, 1, 65536);
    return meter.IsMeasured(0);
  }
  static Samples After(double silentSeconds, const Samples& more) {
    Samples samples(static_cast<std::size_t>(silentSeconds * kRate), 0);
    samples.insert(samples.end(), more.begin(), more.end());
    return samples;
  }
  static Samples LoudLowEnd() {
    Samples end(100 * kChunk, 0);
    std::fill(end.end() - 2000, end.end(), std::int16_t{32000});
    return end;
  }
};

TEST_F(OutputMeterMemory, OfSilenceEndsTheMeasuring) {
  EXPECT_FALSE(IsMeasured(Samples(100 * kChunk, 0), Noise(1, 10.0, 8000)));
  EXPECT_FALSE(IsMeasured(Samples(100 * kChunk, 1), Noise(1, 10.0, 8000)));
}

TEST_F(OutputMeterMemory, ThatRingsOnInSilenceIsNotTheFiles) {
  EXPECT_TRUE(IsMeasured(LoudLowEnd(), After(1.0, Noise(1, 9.0, 8000))));
}

TEST_F(OutputMeterMemory, ThatRingsOnInSoundIsNotTheFiles) {
  EXPECT_TRUE(IsMeasured(LoudLowEnd(), Noise(1, 10.0, 300)));
}

TEST_F(OutputMeterMemory, OfOneLastSampleIsAPeakThatTheFileDoesNotHave) {
  Samples end(100 * kChunk, 0);
  end.back() = 32767;
  EXPECT_TRUE(IsMeasured(end, Noise(1, 10.0, 3000)));
}

TEST_F(OutputMeterMemory, WhatEndsBeforeItIsJudgedIsMeasured) {
  EXPECT_TRUE(IsMeasured(Samples(100 * kChunk, 0), Noise(1, 4.0, 8000)));
}

TEST_F(OutputMeterMemory, ValuesAreWithoutItWhereTheMeasuringGoesOn) {
  const Samples head = After(1.0, Noise(1, 9.0, 8000));
  OutputMeter remembering({{{0}, Wanted::kValues, LoudLowEnd()}}, 1, kRate);
  OutputMeter plain({{{0}, Wanted::kValues, {}}}, 1, kRate);
  Feed(&remembering, head, 1, 65536);
  Feed(&plain, head, 1, 65536);
  ASSERT_TRUE(remembering.IsMeasured(0));
  EXPECT_BITS_EQ(plain.Meter(0).Values().integratedLoudness,
                 remembering.Meter(0).Values().integratedLoudness);
  EXPECT_BITS_EQ(plain.Meter(0).Values().maxTruePeak, remembering.Meter(0).Values().maxTruePeak);
}

}  // namespace
}  // namespace harvane
