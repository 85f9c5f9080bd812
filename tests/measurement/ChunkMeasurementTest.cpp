#include "measurement/ChunkMeasurement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "measurement/ChunkKernels.h"
#include "measurement/LoudnessMeter.h"
#include "tests/measurement/MeterTwin.h"
#include "tests/measurement/RandomSamples.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

using measurement_tests::Event;
using measurement_tests::kAllCallbacks;
using measurement_tests::Kind;
using measurement_tests::kTrack;
using measurement_tests::Listener;
using measurement_tests::MeterTwin;
using measurement_tests::OneIn;
using measurement_tests::RandomInt;
using measurement_tests::RandomRun;
using measurement_tests::SameEvents;
using measurement_tests::WeightingTwin;

constexpr Kind kKinds[] = {Kind::kMomentary, Kind::kShortTerm, Kind::kIntegrated, Kind::kRange,
                           Kind::kRecent};

// The meter of one track, and its twin, which filters and is fed channel by channel.
class Track {
 public:
  Track(int sampleRate, int channelCount)
      : channelCount(channelCount),
        meterTwin(sampleRate, channelCount),
        row(twin::KWeightingOf(sampleRate)),
        weighting(static_cast<std::size_t>(channelCount)) {
    meter.Init(sampleRate, channelCount);
    meter.SetMode(LoudnessMeter::kGated);
    meterTwin.SetMode(LoudnessMeter::kGated);
  }

  int ChannelCount() const { return channelCount; }
  ChannelChunk ChunkOf(int channel, const std::vector<float>& samples) {
    return {&meter, channel, samples.data()};
  }
  void FeedTwin(int channel, const std::vector<float>& samples, int position) {
    const std::vector<float> weighted =
        weighting[static_cast<std::size_t>(channel)].Run(samples, row);
    meterTwin.FeedMomentary(channel, weighted, position);
    meterTwin.FeedShortTerm(channel, weighted, position);
  }
  std::vector<Event> Of(Kind kind) const { return listener.Of(kind); }

  // Of each kind, the same events in the same order. Between kinds there is no order: where
  // windows of both lengths end within a chunk, the one that ends first may be heard first.
  testing::AssertionResult AgreesWithTheTwin() const {
    Listener wanted;
    wanted.events = meterTwin.events;
    for (const Kind kind : kKinds) {
      const testing::AssertionResult result = SameEvents(wanted.Of(kind), listener.Of(kind));
      if (!result) return result;
    }
    return testing::AssertionSuccess();
  }

 private:
  int channelCount;
  Listener listener;
  LoudnessMeter meter{kAllCallbacks, kTrack, &listener};
  MeterTwin meterTwin;
  twin::KWeighting row;
  std::vector<WeightingTwin> weighting;
};

using Tracks = std::vector<std::unique_ptr<Track>>;

// One chunk for every channel of all tracks, `samples` in their order: at once, and to the twins.
void Feed(const Tracks& tracks, const std::vector<std::vector<float>>& samples, int position) {
  std::vector<ChannelChunk> chunks;
  for (const std::unique_ptr<Track>& track : tracks) {
    for (int c = 0; c < track->ChannelCount(); ++c) {
      const std::vector<float>& own = samples.at(chunks.size());
      chunks.push_back(track->ChunkOf(c, own));
      track->FeedTwin(c, own, position);
    }
  }
  WeightAndFeed(chunks.data(), static_cast<int>(chunks.size()), static_cast<int>(samples[0].size()),
                position);
}

// A programme in chunks of the rate's length: tracks of `channelCounts` side by side.
Tracks FeedProgramme(int sampleRate, const std::vector<int>& channelCounts, std::size_t frames) {
  Tracks tracks;
  std::size_t channels = 0;
  for (const int count : channelCounts) {
    tracks.push_back(std::make_unique<Track>(sampleRate, count));
    channels += static_cast<std::size_t>(count);
  }
  const std::vector<float> programme =
      support::ToFloat(support::Programme(5, sampleRate, static_cast<int>(channels), frames));
  const auto chunk = static_cast<std::size_t>(twin::ChunkFrames(sampleRate));
  for (std::size_t first = 0; first + chunk <= frames; first += chunk) {
    std::vector<std::vector<float>> samples(channels);
    for (std::size_t i = first; i < first + chunk; ++i) {
      for (std::size_t c = 0; c < channels; ++c) samples[c].push_back(programme[i * channels + c]);
    }
    Feed(tracks, samples, static_cast<int>(first + chunk) - 1);
  }
  return tracks;
}

TEST(ChunkMeasurement, NoChannelsFeedNobody) {
  Track track(100, 1);
  WeightAndFeed(nullptr, 0, 5, 0);
  EXPECT_TRUE(track.Of(Kind::kMomentary).empty());
}

TEST(ChunkMeasurement, WindowIsFinishedByTheChunkAfterItsLastSample) {
  // Windows of 40 samples, hops of 10.
  Track track(100, 1);
  const std::vector<float> chunk(8, 1.0F);
  const ChannelChunk one = track.ChunkOf(0, chunk);
  for (int i = 1; i <= 5; ++i) WeightAndFeed(&one, 1, 8, 8 * i);
  EXPECT_TRUE(track.Of(Kind::kMomentary).empty());
  WeightAndFeed(&one, 1, 8, 48);
  ASSERT_EQ(1U, track.Of(Kind::kMomentary).size());
  EXPECT_EQ(48, track.Of(Kind::kMomentary)[0].position);
}

// ---- real rates

struct RateCase {
  int sampleRate;
  std::size_t frames;
  std::size_t momentary, shortTerm;  // windows
};

class ChunkMeasurementRates : public testing::TestWithParam<RateCase> {};

// The rates without filters of their own still have windows of their own length. At 22050 and 201
// these are not four hops long.
TEST_P(ChunkMeasurementRates, TracksSideBySideAgreeWithTheTwin) {
  for (const std::unique_ptr<Track>& track :
       FeedProgramme(GetParam().sampleRate, {2, 1}, GetParam().frames)) {
    EXPECT_EQ(GetParam().momentary, track->Of(Kind::kMomentary).size());
    EXPECT_EQ(GetParam().shortTerm, track->Of(Kind::kShortTerm).size());
    EXPECT_TRUE(track->AgreesWithTheTwin());
  }
}

// A window, and one more for each hop, as long as a further sample comes. At 48000 the 610 whole
// chunks of 239 are 145790 frames: 1 + 126589 / 4800 windows of 19200, and one of 144000.
INSTANTIATE_TEST_SUITE_P(Rates, ChunkMeasurementRates,
                         testing::Values(RateCase{48000, 146000, 27, 1},
                                         RateCase{32000, 97000, 27, 1},
                                         RateCase{22050, 67000, 27, 1}, RateCase{201, 1000, 46, 3}),
                         [](const auto& info) {
                           return "Rate" + std::to_string(info.param.sampleRate);
                         });

// ---- batches

TEST(ChunkMeasurement, TrackIsSplitOverTwoBatches) {
  static_assert(kMaxLanes == 8, "the second track has two channels in the first batch");
  for (const std::unique_ptr<Track>& track : FeedProgramme(400, {6, 6, 2}, 1600)) {
    EXPECT_LT(0U, track->Of(Kind::kShortTerm).size());
    EXPECT_TRUE(track->AgreesWithTheTwin());
  }
}

TEST(ChunkMeasurement, MetersOfDifferentFiltersKeepTheirOwn) {
  Tracks tracks;
  for (const int rate : {48000, 44100, 44100, 48000}) {
    tracks.push_back(std::make_unique<Track>(rate, 1));
  }
  support::NoiseSource noise(1);
  for (int chunk = 1; chunk <= 90; ++chunk) {
    const std::vector<float> samples = RandomRun(&noise, 239, false);
    Feed(tracks, {samples, samples, samples, samples}, chunk);
  }
  for (const std::unique_ptr<Track>& track : tracks) {
    EXPECT_LT(0U, track->Of(Kind::kMomentary).size());
    EXPECT_TRUE(track->AgreesWithTheTwin());
  }
}

// ---- any job

// Half of the rates have windows of four hops, as those have that are measured side by side.
int RandomRate(support::NoiseSource* noise) {
  return OneIn(noise, 2) ? 20 * RandomInt(noise, 2, 10) : RandomInt(noise, 40, 200);
}

const ChunkKernels* RandomKernels(support::NoiseSource* noise) {
  int count = 0;
  const ChunkKernels* const* const all = AvailableKernels(&count);
  return all[RandomInt(noise, 0, count - 1)];
}

void CompareAnyJob(std::uint64_t seed) {
  support::NoiseSource noise(seed);
  const ChunkKernels* const kernels = RandomKernels(&noise);
  const bool isMixed = OneIn(&noise, 4);
  const bool isSpecial = OneIn(&noise, 6);
  int rate = RandomRate(&noise);
  std::string job = kernels->name;
  Tracks tracks;
  std::size_t channels = 0;
  int shortestHop = rate / 10;
  for (int t = RandomInt(&noise, 1, 4); t > 0; --t) {
    if (isMixed) rate = RandomRate(&noise);
    const int count = RandomInt(&noise, 1, 6);
    job += ", " + std::to_string(count) + " channels at " + std::to_string(rate);
    tracks.push_back(std::make_unique<Track>(rate, count));
    channels += static_cast<std::size_t>(count);
    shortestHop = std::min(shortestHop, rate / 10);
  }
  SCOPED_TRACE(job);
  ForceKernels(kernels);
  const int frames = OneIn(&noise, 4) ? 5 * rate : rate;
  for (int position = 0; position < frames;) {
    const int n = RandomInt(&noise, 1, shortestHop - 1);
    position += n;
    std::vector<std::vector<float>> samples;
    for (std::size_t c = 0; c < channels; ++c) {
      samples.push_back(RandomRun(&noise, static_cast<std::size_t>(n),
                                  isSpecial && position > frames / 2 && OneIn(&noise, 20)));
    }
    Feed(tracks, samples, position);
  }
  ForceKernels(nullptr);
  for (const std::unique_ptr<Track>& track : tracks) ASSERT_TRUE(track->AgreesWithTheTwin());
}

TEST(ChunkMeasurement, AnyJobAgreesWithTheTwin) { support::ForEachSeed(150, CompareAnyJob); }

}  // namespace
}  // namespace harvane
