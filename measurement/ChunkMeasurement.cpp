#include "measurement/ChunkMeasurement.h"

#include <algorithm>
#include <vector>

#include "measurement/ChunkKernels.h"
#include "measurement/LoudnessMeter.h"
#include "measurement/SampleHistory.h"
#include "measurement/SampleMath.h"

namespace harvane {
namespace {

void LoadStates(const ChannelChunk& chunk, ChannelLanes* lanes, int lane) {
  const BiquadState first = chunk.meter->GetFirstStageState(chunk.channel);
  const BiquadState second = chunk.meter->GetSecondStageState(chunk.channel);
  float newest[2];
  const auto load = [&newest, lane](const SampleHistory& history, float* one, float* two) {
    history.ReadNewestFirst(newest, 2);
    one[lane] = newest[0];
    two[lane] = newest[1];
  };
  load(*first.xHistory, lanes->input1, lanes->input2);
  load(*first.yHistory, lanes->middle1, lanes->middle2);
  load(*second.yHistory, lanes->output1, lanes->output2);
}

// The histories hold three inputs, of which a filter looks back at two.
void SaveStates(const ChannelChunk& chunk, const ChannelLanes& lanes, int lane) {
  const BiquadState first = chunk.meter->GetFirstStageState(chunk.channel);
  const BiquadState second = chunk.meter->GetSecondStageState(chunk.channel);
  const auto save = [lane](SampleHistory* history, const float* one, const float* two) {
    history->Push(two[lane]);
    history->Push(one[lane]);
  };
  save(first.xHistory, lanes.input1, lanes.input2);
  save(first.yHistory, lanes.middle1, lanes.middle2);
  save(second.xHistory, lanes.middle1, lanes.middle2);
  save(second.yHistory, lanes.output1, lanes.output2);
}

void LoadSums(const ChannelChunk& chunk, ChannelLanes* lanes, int lane) {
  const float* const momentary = chunk.meter->MomentaryWindows(chunk.channel).Sums();
  const float* const shortTerm = chunk.meter->ShortTermWindows(chunk.channel).Sums();
  for (int s = 0; s < OverlapPowerSums::kUsualSums; ++s) {
    lanes->sums[s][lane] = momentary[s];
    lanes->sums[s + OverlapPowerSums::kUsualSums][lane] = shortTerm[s];
  }
}

void SaveSums(const ChannelChunk& chunk, const ChannelLanes& lanes, int lane, int samples) {
  OverlapPowerSums& momentary = chunk.meter->MomentaryWindows(chunk.channel);
  OverlapPowerSums& shortTerm = chunk.meter->ShortTermWindows(chunk.channel);
  for (int s = 0; s < OverlapPowerSums::kUsualSums; ++s) {
    momentary.Sums()[s] = lanes.sums[s][lane];
    shortTerm.Sums()[s] = lanes.sums[s + OverlapPowerSums::kUsualSums][lane];
  }
  momentary.Skip(samples);
  shortTerm.Skip(samples);
}

// Up to kMaxLanes channels with the same filters and the usual number of sums.
void WeightAndFeedLanes(const ChannelChunk* chunks, int count, int n, int position) {
  ChannelLanes lanes{};
  lanes.count = count;
  lanes.coefficients = &chunks[0].meter->Coefficients();
  for (int lane = 0; lane < count; ++lane) {
    lanes.samples[lane] = chunks[lane].samples;
    LoadStates(chunks[lane], &lanes, lane);
  }
  for (int left = n; left > 0;) {
    int run = left;
    for (int lane = 0; lane < count; ++lane) {
      OverlapPowerSums& momentary = chunks[lane].meter->MomentaryWindows(chunks[lane].channel);
      OverlapPowerSums& shortTerm = chunks[lane].meter->ShortTermWindows(chunks[lane].channel);
      momentary.Settle(position);
      shortTerm.Settle(position);
      run = std::min({run, momentary.SamplesToBorder(), shortTerm.SamplesToBorder()});
    }
    for (int lane = 0; lane < count; ++lane) LoadSums(chunks[lane], &lanes, lane);
    ActiveKernels().weightAndSum(&lanes, run);
    for (int lane = 0; lane < count; ++lane) SaveSums(chunks[lane], lanes, lane, run);
    left -= run;
  }
  for (int lane = 0; lane < count; ++lane) SaveStates(chunks[lane], lanes, lane);
}

bool HasUsualSums(const ChannelChunk& chunk) {
  return chunk.meter->MomentaryWindows(chunk.channel).SumCount() == OverlapPowerSums::kUsualSums &&
         chunk.meter->ShortTermWindows(chunk.channel).SumCount() == OverlapPowerSums::kUsualSums;
}

// A window that is not four hops long, at a rate without filters of its own.
void WeightAndFeedOne(const ChannelChunk& chunk, int n, int position) {
  const SampleMath math;
  const StageCoefficients first = chunk.meter->GetFirstStageCoefficients();
  const StageCoefficients second = chunk.meter->GetSecondStageCoefficients();
  std::vector<float> middle(static_cast<std::size_t>(n));
  std::vector<float> output(static_cast<std::size_t>(n));
  math.FilterBlock(chunk.samples, n, first.a, 3, first.b, 3, middle.data(),
                   chunk.meter->GetFirstStageState(chunk.channel));
  math.FilterBlock(middle.data(), n, second.a, 3, second.b, 3, output.data(),
                   chunk.meter->GetSecondStageState(chunk.channel));
  chunk.meter->FeedMomentary(chunk.channel, output.data(), n, position);
  chunk.meter->FeedShortTerm(chunk.channel, output.data(), n, position);
}

}  // namespace

void WeightAndFeed(const ChannelChunk* chunks, int count, int n, int position) {
  for (int first = 0; first < count;) {
    if (!HasUsualSums(chunks[first])) {
      WeightAndFeedOne(chunks[first++], n, position);
      continue;
    }
    int lanes = 1;
    while (first + lanes < count && lanes < kMaxLanes && HasUsualSums(chunks[first + lanes]) &&
           &chunks[first + lanes].meter->Coefficients() == &chunks[first].meter->Coefficients()) {
      ++lanes;
    }
    WeightAndFeedLanes(chunks + first, lanes, n, position);
    first += lanes;
  }
}

}  // namespace harvane
