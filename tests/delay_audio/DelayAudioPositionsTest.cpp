// The count of frames beyond what 32 bits with a sign hold: 12.4 hours at 48000 Hz.

#include <gtest/gtest.h>

#include <climits>

#include "tests/delay_audio/Jobs.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"

namespace harvane {
namespace {

constexpr int kRate = 48000;
constexpr int kChunk = 239;

// The three kinds of pass.
struct PassKind {
  const char* name;
  int passes;
  std::uint32_t number;
};

class DelayAudioPositions : public testing::TestWithParam<PassKind> {
 protected:
  DelayAudioPositions() : job(TextsOfPasses(GetParam().passes), kRate, 1) {
    auto texts = TextsOfPasses(GetParam().passes);
    texts.formats[0] = "1";
    job->SetParameter(support::ParameterDocument(texts).c_str());
    job->StartSequence();
    Probe::TrackGains(*job).Append(1.0F);
    Probe::LimiterNeeded(*job).Append(false);
    job->StartPass(GetParam().number);
  }

  const TrackMeasurement& Result() { return job->Results()[0]; }
  int& Counter() { return Probe::SampleCounter(*job); }
  void DeliverNoise(std::size_t frames, int amplitude) {
    job.Deliver(support::NoiseInt16(1, frames, amplitude));
  }

  TestJob job;
};

TEST_P(DelayAudioPositions, TheLargestIsReachedAndTheSmallestFollows) {
  Counter() = INT_MAX;
  DeliverNoise(1, 1000);
  EXPECT_EQ(Counter(), INT_MIN);
}

TEST_P(DelayAudioPositions, AChunkThatEndsAtTheLargestHasIt) {
  Counter() = INT_MAX - (kChunk - 1);
  DeliverNoise(kChunk, 1000);
  EXPECT_EQ(Result().maxTruePeakPosition, INT_MAX);
  EXPECT_EQ(Counter(), INT_MIN);
}

TEST_P(DelayAudioPositions, AChunkAcrossTheEndHasThePositionOfItsLastFrame) {
  Counter() = INT_MAX - 99;  // a hundred frames up to the largest, 139 behind it
  DeliverNoise(kChunk, 1000);
  EXPECT_EQ(Result().maxTruePeakPosition, INT_MIN + 138);
  EXPECT_EQ(Counter(), INT_MIN + 139);
}

TEST_P(DelayAudioPositions, ALouderChunkBehindTheEndTakesOver) {
  Counter() = INT_MAX - (kChunk - 1);
  DeliverNoise(kChunk, 1000);
  DeliverNoise(kChunk, 2000);
  EXPECT_EQ(Result().maxTruePeakPosition, INT_MIN + kChunk - 1);
  DeliverNoise(kChunk, 500);
  EXPECT_EQ(Result().maxTruePeakPosition, INT_MIN + kChunk - 1);
}

TEST_P(DelayAudioPositions, BlocksAcrossTheEndAreMeasuredAsBeforeIt) {
  constexpr int kChunksOfABlock = 81;  // the last of 19200 frames lies in the 81st
  constexpr int kFrames = kChunksOfABlock * kChunk;
  DeliverNoise(kFrames, 1000);
  const float loudness = Result().maxMomentary;
  EXPECT_GT(loudness, -70.0F);
  EXPECT_EQ(Result().maxMomentaryPosition, kFrames - 1);

  job->StartSequence();
  job->StartPass(GetParam().number);
  Counter() = INT_MAX - 9999;
  DeliverNoise(kFrames, 1000);
  EXPECT_BITS_EQ(loudness, Result().maxMomentary);
  EXPECT_EQ(Result().maxMomentaryPosition, INT_MIN + kFrames - 10001);
}

TEST_P(DelayAudioPositions, TwiceAsFarTheCountIsAtZeroAgain) {
  Counter() = -1;
  DeliverNoise(1, 1000);
  EXPECT_EQ(Counter(), 0);
}

INSTANTIATE_TEST_SUITE_P(Passes, DelayAudioPositions,
                         testing::Values(PassKind{"FirstOfTwo", 2, 0},
                                         PassKind{"SecondOfTwo", 2, 1}, PassKind{"Single", 1, 0}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace harvane
