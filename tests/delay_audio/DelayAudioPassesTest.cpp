// Sequence and passes: reading, the three kinds of pass, fetching, the ends of pass and sequence.

#include <gtest/gtest.h>

#include <limits>

#include "tests/delay_audio/Jobs.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"

namespace harvane {
namespace {

std::vector<float> ListOf(const CheckedList<float>& list) { return {list.begin(), list.end()}; }

std::vector<std::int16_t> Fetch(DelayAudio* job, std::uint32_t channels) {
  PcmUnit* unit = nullptr;
  std::uint32_t flag = 9;
  job->FetchPcmUnit(&unit, &flag);
  EXPECT_EQ(flag, 0U);
  std::vector<std::int16_t> samples;
  for (std::uint32_t s = 0; s < unit->sampleCount; ++s) {
    for (std::uint32_t c = 0; c < channels; ++c) samples.push_back(unit->data[c][s]);
  }
  unit->release(unit);
  return samples;
}

// ---- samples

float Read(std::int16_t sample) {
  support::CountedUnit unit(&sample, 1, 1, support::Arrangement::kPlanar);
  return DelayAudio::ReadSample(*unit.Record(), 0, 0);
}

TEST(DelayAudioSamples, FullScaleIs32767ForBothSigns) {
  EXPECT_BITS_EQ(1.0F, Read(32767));
  EXPECT_BITS_EQ(-1.0F, Read(-32767));
  EXPECT_BITS_EQ(-1.000030517578125F, Read(-32768));
  EXPECT_BITS_EQ(0.0F, Read(0));
}

TEST(DelayAudioSamples, QuotientIsRoundedToSinglePrecision) {
  for (int sample = -32768; sample <= 32767; ++sample) {
    ASSERT_BITS_EQ(static_cast<float>(static_cast<double>(sample) / 32767.0),
                   Read(static_cast<std::int16_t>(sample)))
        << sample;
  }
}

TEST(DelayAudioSamples, SampleLiesStrideSamplesBehindTheOneBefore) {
  const std::int16_t memory[] = {100, 200, 300, 400, 500, 600, 700};
  PcmUnit unit{};
  unit.data[5] = const_cast<std::int16_t*>(memory) + 1;
  unit.stride[5] = 2;
  unit.sampleCount = 3;
  EXPECT_BITS_EQ(static_cast<float>(200 / 32767.0), DelayAudio::ReadSample(unit, 0, 5));
  EXPECT_BITS_EQ(static_cast<float>(600 / 32767.0), DelayAudio::ReadSample(unit, 2, 5));
  unit.stride[5] = 0;
  EXPECT_BITS_EQ(static_cast<float>(200 / 32767.0), DelayAudio::ReadSample(unit, 2, 5));
}

// Channels that lie side by side may be read together, however the others lie: some share their
// stride but not their place, some their place but not the stride, some have no track between them.
TEST(DelayAudioSamples, NeighboursAreReadTogetherAsEachByItself) {
  support::ForEachSeed(300, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    constexpr std::uint32_t kMost = 40;  // frames, samples of a stride, first sample of the others
    std::vector<std::int16_t> memory = support::NoiseInt16(seed, kMost * kMost * 3, 32767);
    PcmUnit unit{};
    std::vector<DelayAudio::MeasuredChannel> channels;
    for (int c = 0; c < kMaxChannels; ++c) {
      const bool isNeighbour = c > 0 && noise.NextBelow(6) != 0;
      unit.data[c] = isNeighbour ? unit.data[c - 1] + 1 : memory.data() + noise.NextBelow(kMost);
      const bool isOfOneStride = isNeighbour && noise.NextBelow(6) != 0;
      unit.stride[c] = isOfOneStride ? unit.stride[c - 1] : noise.NextBelow(kMost);
      if (noise.NextBelow(12) != 0) channels.push_back({c, 0, 0});
    }
    unit.sampleCount = noise.NextBelow(kMost);
    const std::uint32_t first = noise.NextBelow(unit.sampleCount + 1);
    const std::uint32_t count = unit.sampleCount - first;
    std::vector<std::vector<float>> got(channels.size(), std::vector<float>(count));
    std::vector<float*> outs;
    for (std::vector<float>& one : got) outs.push_back(one.data());
    DelayAudio::ReadFrames(unit, first, count, channels.data(), static_cast<int>(channels.size()),
                           outs.data());
    for (std::size_t i = 0; i < channels.size(); ++i) {
      const int c = channels[i].c;
      for (std::uint32_t s = 0; s < count; ++s) {
        const std::int16_t sample = unit.data[c][std::size_t{first + s} * unit.stride[c]];
        ASSERT_BITS_EQ(static_cast<float>(static_cast<double>(sample) / 32767.0), got[i][s])
            << "channel " << c << ", frame " << s << " of " << count;
      }
    }
  });
}

struct ClampCase {
  float value;
  std::int16_t sample;
};

TEST(DelayAudioSamples, OutputIsClampedAndTruncatedTowardsZero) {
  const float justBelow = 1.0F - 1.0F / 16777216;
  const ClampCase cases[] = {
      {1.0F, 32767},
      {-1.0F, -32767},
      {1.5F, 32767},
      {-1.5F, -32767},
      {-1.000030517578125F, -32767},
      {justBelow, 32766},
      {-justBelow, -32766},
      {0.0F, 0},
      {-0.0F, 0},
      {static_cast<float>(1 / 32767.0), 0},
      {static_cast<float>(-1 / 32767.0), 0},
      {0.5F, 16383},  // 16383.5
      {-0.5F, -16383},
      {3.4e38F, 32767},
      {1e-40F, 0},
      {std::numeric_limits<float>::infinity(), 32767},
      {-std::numeric_limits<float>::infinity(), -32767},
      {std::numeric_limits<float>::quiet_NaN(), 0},
  };
  TestJob job(TextsOfPasses(1), 48000, 1);
  job->StartSequence();
  for (const ClampCase& wanted : cases) {
    Probe::OutputAccumulators(*job)[0].Append(wanted.value);
    EXPECT_EQ(Fetch(&*job, 1), std::vector<std::int16_t>{wanted.sample})
        << support::Show(wanted.value);
  }
}

// ---- sequence

TEST(DelayAudioPasses, SequenceMakesEmptyListsOnePerChannel) {
  TestJob job(TextsOfPasses(2), 48000, 5);
  for (int round = 0; round < 2; ++round) {
    job->StartSequence();
    EXPECT_EQ(Probe::InputAccumulators(*job).Size(), 5U);
    EXPECT_EQ(Probe::OutputAccumulators(*job).Size(), 5U);
    for (std::size_t c = 0; c < 5; ++c) {
      EXPECT_TRUE(Probe::InputAccumulators(*job)[c].IsEmpty());
      EXPECT_TRUE(Probe::OutputAccumulators(*job)[c].IsEmpty());
    }
    job->StartPass(0);
    job.Deliver(std::vector<std::int16_t>(5 * 10, 1));
  }
  job->EndSequence();
  EXPECT_TRUE(Probe::InputAccumulators(*job).IsEmpty());
  EXPECT_TRUE(Probe::OutputAccumulators(*job).IsEmpty());
}

TEST(DelayAudioPasses, StartOfAPassSetsNumberAndCounterAndNothingElse) {
  TestJob job(TextsOfPasses(1));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver({1, 2, 3, 4});
  EXPECT_EQ(Probe::SampleCounter(*job), 2);
  job->StartPass(7);
  EXPECT_EQ(Probe::CurrentPass(*job), 7U);
  EXPECT_EQ(Probe::SampleCounter(*job), 0);
  EXPECT_EQ(Probe::InputAccumulators(*job)[0].Size(), 2U);
  EXPECT_EQ(Probe::OutputAccumulators(*job)[0].Size(), 2U);
}

// ---- delivering

TEST(DelayAudioPasses, FirstPassOfTwoGathersTracksAndGivesNothingBack) {
  auto texts = TextsOfPasses(2);
  texts.formats[0] = "1";
  TestJob job(texts);
  job->StartSequence();
  job->StartPass(0);
  EXPECT_EQ(job.Deliver({32767, 1, -32767, 1}), 0U);
  EXPECT_EQ(ListOf(Probe::InputAccumulators(*job)[0]), (std::vector<float>{1.0F, -1.0F}));
  EXPECT_TRUE(Probe::InputAccumulators(*job)[1].IsEmpty()) << "channel 1 has no track";
  EXPECT_TRUE(Probe::OutputAccumulators(*job)[0].IsEmpty());
  EXPECT_TRUE(Probe::OutputAccumulators(*job)[1].IsEmpty());
}

TEST(DelayAudioPasses, SinglePassCopiesEveryChannelAndGathersTracks) {
  auto texts = TextsOfPasses(1);
  texts.formats[0] = "1";
  TestJob job(texts);
  job->StartSequence();
  job->StartPass(0);
  EXPECT_EQ(job.Deliver({32767, -32767, 0, 32767}), 1U);
  EXPECT_EQ(ListOf(Probe::OutputAccumulators(*job)[0]), (std::vector<float>{1.0F, 0.0F}));
  EXPECT_EQ(ListOf(Probe::OutputAccumulators(*job)[1]), (std::vector<float>{-1.0F, 1.0F}));
  EXPECT_EQ(ListOf(Probe::InputAccumulators(*job)[0]), (std::vector<float>{1.0F, 0.0F}));
  EXPECT_TRUE(Probe::InputAccumulators(*job)[1].IsEmpty());
}

TEST(DelayAudioPasses, SinglePassAppliesNoGain) {
  TestJob job(TextsOfPasses(1));
  job->StartSequence();
  Probe::TrackGains(*job).Append(0.25F);
  Probe::LimiterNeeded(*job).Append(false);
  job->StartPass(0);
  job.Deliver({32767, -32767});
  EXPECT_EQ(Fetch(&*job, 2), (std::vector<std::int16_t>{32767, -32767}));
}

TEST(DelayAudioPasses, SecondPassOfTwoAppliesTheTracksGain) {
  TestJob job(TextsOfPasses(2));
  job->StartSequence();
  Probe::TrackGains(*job).Append(0.25F);
  Probe::LimiterNeeded(*job).Append(false);
  job->StartPass(1);
  EXPECT_EQ(job.Deliver({32767, -32767}), 1U);
  EXPECT_EQ(Fetch(&*job, 2), (std::vector<std::int16_t>{8191, -8191}));
}

TEST(DelayAudioPasses, GainAboveFullScaleIsHeldByTheClampAlone) {
  TestJob job(TextsOfPasses(2));
  job->StartSequence();
  Probe::TrackGains(*job).Append(4.0F);
  Probe::LimiterNeeded(*job).Append(false);
  job->StartPass(1);
  job.Deliver({32767, -32767});
  EXPECT_EQ(ListOf(Probe::OutputAccumulators(*job)[0]), std::vector<float>{4.0F});
  EXPECT_EQ(Fetch(&*job, 2), (std::vector<std::int16_t>{32767, -32767}));
}

TEST(DelayAudioPasses, ChannelWithoutATrackPassesTheSecondPassUnchanged) {
  auto texts = TextsOfPasses(2);
  texts.formats[0] = "1";
  TestJob job(texts);
  job->StartSequence();
  Probe::TrackGains(*job).Append(0.5F);
  Probe::LimiterNeeded(*job).Append(false);
  job->StartPass(1);
  job.Deliver({32767, 32767});
  EXPECT_EQ(Fetch(&*job, 2), (std::vector<std::int16_t>{16383, 32767}));
  EXPECT_TRUE(Probe::InputAccumulators(*job)[1].IsEmpty());
}

TEST(DelayAudioPasses, CounterRisesOncePerFrameAfterItsChannels) {
  for (const int passes : {1, 2}) {
    TestJob job(TextsOfPasses(passes), 48000, 4);
    job->StartSequence();
    job->StartPass(0);
    job.Deliver(std::vector<std::int16_t>(4 * 100, 1));
    EXPECT_EQ(Probe::SampleCounter(*job), 100);
    job.Deliver(std::vector<std::int16_t>(4 * 17, 1));
    EXPECT_EQ(Probe::SampleCounter(*job), 117);
  }
}

TEST(DelayAudioPasses, NullUnitChangesNothing) {
  for (const int passes : {1, 2}) {
    TestJob job(TextsOfPasses(passes));
    job->StartSequence();
    job->StartPass(0);
    job.Deliver({1, 2});
    std::uint32_t flag = 9;
    job->DeliverPcmUnit(nullptr, &flag);
    EXPECT_EQ(flag, passes == 2 ? 0U : 9U);
    EXPECT_EQ(Probe::SampleCounter(*job), 1);
    EXPECT_EQ(Probe::InputAccumulators(*job)[0].Size(), 1U);
  }
}

TEST(DelayAudioPasses, UnitWithoutFramesAddsNothing) {
  struct Kind {
    int passes;
    std::uint32_t pass;
    std::uint32_t flag;
  };
  for (const Kind kind : {Kind{1, 0, 1}, Kind{2, 0, 0}, Kind{2, 1, 1}}) {
    TestJob job(TextsOfPasses(kind.passes));
    job->StartSequence();
    Probe::TrackGains(*job).Append(1.0F);
    Probe::LimiterNeeded(*job).Append(false);
    job->StartPass(kind.pass);
    job.Deliver({32767, -32767, 0, 32767});
    const auto lists = [&] {
      std::vector<std::vector<float>> all;
      for (std::size_t c = 0; c < 2; ++c) {
        all.push_back(ListOf(Probe::InputAccumulators(*job)[c]));
        all.push_back(ListOf(Probe::OutputAccumulators(*job)[c]));
      }
      return all;
    };
    const auto before = lists();
    EXPECT_EQ(job.Deliver({}), kind.flag);
    EXPECT_EQ(lists(), before);
    EXPECT_EQ(Probe::SampleCounter(*job), 2);
    const bool givesBack = kind.flag == 1;
    EXPECT_EQ(Fetch(&*job, 2).size(), givesBack ? 4U : 0U);
    EXPECT_EQ(job.Deliver({}), kind.flag);
    EXPECT_TRUE(Fetch(&*job, 2).empty());
  }
}

// A unit that looks at the out-flag when it is released.
struct WatchfulUnit {
  PcmUnit record{};
  std::uint32_t flag = 9;
  std::uint32_t flagAtRelease = 77;

  WatchfulUnit() { record.release = Release; }
  static std::uint32_t HARVANE_CALL Release(void* record) {
    auto* const unit = static_cast<WatchfulUnit*>(record);
    unit->flagAtRelease = unit->flag;
    return 0;
  }
};

TEST(DelayAudioPasses, FlagOfWaitingOutputIsSetAfterTheUnitIsReleased) {
  for (const auto& [passes, pass] : {std::pair(1, 0U), std::pair(2, 1U), std::pair(3, 0U)}) {
    TestJob job(TextsOfPasses(passes));
    job->StartSequence();
    job->StartPass(pass);
    WatchfulUnit unit;
    job->DeliverPcmUnit(&unit.record, &unit.flag);
    EXPECT_EQ(unit.flagAtRelease, 9U) << passes;
    EXPECT_EQ(unit.flag, 1U) << passes;
  }
}

TEST(DelayAudioPasses, FlagOfTheFirstPassOfTwoIsSetBeforeTheUnitIsReleased) {
  TestJob job(TextsOfPasses(2));
  job->StartSequence();
  job->StartPass(0);
  WatchfulUnit unit;
  job->DeliverPcmUnit(&unit.record, &unit.flag);
  EXPECT_EQ(unit.flagAtRelease, 0U);
  EXPECT_EQ(unit.flag, 0U);
}

TEST(DelayAudioPasses, ChunkRunsAcrossUnits) {
  TestJob job(TextsOfPasses(2));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(std::vector<std::int16_t>(2 * 238, 16384));
  EXPECT_EQ(Probe::InputAccumulators(*job)[1].Size(), 238U);
  EXPECT_BITS_EQ(-70.0F, job->Results()[0].maxTruePeak);
  job.Deliver({16384, 16384, 16384, 16384});
  EXPECT_EQ(Probe::InputAccumulators(*job)[1].Size(), 1U);
  EXPECT_GT(job->Results()[0].maxTruePeak, -70.0F);
  EXPECT_EQ(job->Results()[0].maxTruePeakPosition, 238);
}

TEST(DelayAudioPasses, ZeroBlockSizeMeasuresNothing) {
  TestJob job(TextsOfPasses(1), 100);
  EXPECT_EQ(Probe::BlockSize(*job), 0U);
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(std::vector<std::int16_t>(2 * 1000, 16384));
  EXPECT_EQ(Probe::InputAccumulators(*job)[0].Size(), 1000U);
  EXPECT_BITS_EQ(-70.0F, job->Results()[0].maxTruePeak);
}

// ---- fetching

TEST(DelayAudioPasses, FetchGivesAllThatWaitsInOnePiece) {
  TestJob job(TextsOfPasses(1));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver({32767, 0});
  job.Deliver({0, 32767, -32767, -32767});
  EXPECT_EQ(Fetch(&*job, 2), (std::vector<std::int16_t>{32767, 0, 0, 32767, -32767, -32767}));
  EXPECT_TRUE(Fetch(&*job, 2).empty());
}

TEST(DelayAudioPasses, CountOfChannelZeroStandsForAll) {
  TestJob job(TextsOfPasses(1));
  job->StartSequence();
  Probe::OutputAccumulators(*job)[0].Append(1.0F);
  Probe::OutputAccumulators(*job)[1].Append(1.0F);
  Probe::OutputAccumulators(*job)[1].Append(-1.0F);
  EXPECT_EQ(Fetch(&*job, 2), (std::vector<std::int16_t>{32767, 32767}));
  EXPECT_TRUE(Probe::OutputAccumulators(*job)[1].IsEmpty());
}

TEST(DelayAudioPassesDeathTest, ChannelWithFewerWaitingThanChannelZeroStops) {
  TestJob job(TextsOfPasses(1));
  job->StartSequence();
  Probe::OutputAccumulators(*job)[0].Append(1.0F);
  EXPECT_DEATH(Fetch(&*job, 2), "list index");
}

TEST(DelayAudioPassesDeathTest, FetchWithoutChannelsStops) {
  TestJob job(TextsOfPasses(1), 48000, 0);
  job->StartSequence();
  EXPECT_DEATH(Fetch(&*job, 0), "list index");
}

// ---- end of a pass

TEST(DelayAudioPasses, EndOfAPassDropsWhatWasGathered) {
  for (const int passes : {0, 1, 2, 3}) {
    TestJob job(TextsOfPasses(passes));
    job->StartSequence();
    job->StartPass(0);
    job.Deliver(std::vector<std::int16_t>(2 * 300, 1));
    job->EndPass();
    for (std::size_t c = 0; c < 2; ++c) {
      EXPECT_TRUE(Probe::InputAccumulators(*job)[c].IsEmpty()) << passes;
      EXPECT_TRUE(Probe::OutputAccumulators(*job)[c].IsEmpty()) << passes;
    }
    EXPECT_EQ(Probe::InputAccumulators(*job).Size(), 2U) << "the lists themselves stay";
  }
}

TEST(DelayAudioPasses, DecisionIsMadeAfterTheFirstPassOfTwoOnly) {
  for (const int passes : {0, 1, 2, 3}) {
    TestJob job(TextsOfPasses(passes));
    job->StartSequence();
    job->StartPass(0);
    job->EndPass();
    EXPECT_EQ(job->TrackGains().Size(), passes == 2 ? 1U : 0U) << passes;
    EXPECT_EQ(job->LimiterNeeded().Size(), passes == 2 ? 1U : 0U) << passes;
  }
}

// A second of stereo noise; `amplitude` in steps.
std::vector<std::int16_t> Noise(int amplitude) {
  return support::NoiseInt16(5, 2 * 48000, amplitude);
}

TEST(DelayAudioPasses, AnalysisEndsTheGatingOfItsMeters) {
  TestJob job(TextsOfPasses(1));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(Noise(1000));
  job->EndPass();
  const TrackMeasurement before = job->Results()[0];
  ASSERT_GT(before.integratedLoudness, -70.0F);
  job->StartPass(0);
  job.Deliver(Noise(20000));
  EXPECT_BITS_EQ(before.integratedLoudness, job->Results()[0].integratedLoudness);
  EXPECT_BITS_EQ(before.loudnessRange, job->Results()[0].loudnessRange);
  EXPECT_GT(job->Results()[0].maxMomentary, before.maxMomentary + 20) << "maxima go on";
}

TEST(DelayAudioPasses, AnalysisOfTwoPassesStartsTheGatingAnew) {
  TestJob job(TextsOfPasses(2));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(Noise(20000));
  job->EndPass();
  EXPECT_BITS_EQ(-70.0F, job->Results()[0].integratedLoudness);
  job->StartPass(1);
  job.Deliver(Noise(1000));
  EXPECT_GT(job->Results()[0].integratedLoudness, -70.0F);
  EXPECT_LT(job->Results()[0].integratedLoudness, -35.0F) << "nothing of the first pass";
}

TEST(DelayAudioPasses, EndOfTheSecondPassLeavesTheMetersGating) {
  TestJob job(TextsOfPasses(2));
  job->StartSequence();
  job->StartPass(0);
  job->EndPass();
  job->StartPass(1);
  job.Deliver(Noise(1000));
  job->EndPass();
  const float before = job->Results()[0].integratedLoudness;
  ASSERT_GT(before, -70.0F);
  job->StartPass(1);
  job.Deliver(Noise(20000));
  EXPECT_GT(job->Results()[0].integratedLoudness, before + 10);
}

TEST(DelayAudioPasses, EndOfAnyOtherPassLeavesTheMetersGating) {
  for (const int passes : {0, 3}) {
    TestJob job(TextsOfPasses(passes));
    job->StartSequence();
    job->StartPass(0);
    job.Deliver(Noise(1000));
    job->EndPass();
    const float before = job->Results()[0].integratedLoudness;
    job.Deliver(Noise(20000));
    EXPECT_GT(job->Results()[0].integratedLoudness, before + 10) << passes;
  }
}

TEST(DelayAudioPasses, StreamShorterThanAChunkKeepsTheResetValues) {
  TestJob job(TextsOfPasses(1));
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(std::vector<std::int16_t>(2 * 238, 32767));
  job->EndPass();
  const TrackMeasurement& result = job->Results()[0];
  for (const float level : {result.maxMomentary, result.maxShortTerm, result.integratedLoudness,
                            result.loudnessRange, result.maxTruePeak}) {
    EXPECT_BITS_EQ(-70.0F, level);
  }
  EXPECT_EQ(result.maxMomentaryPosition, 0);
  EXPECT_EQ(result.maxShortTermPosition, 0);
  EXPECT_EQ(result.maxTruePeakPosition, 0);
}

}  // namespace
}  // namespace harvane
