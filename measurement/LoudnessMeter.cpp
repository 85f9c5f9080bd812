#include "measurement/LoudnessMeter.h"

#include <algorithm>
#include <memory>

#include "measurement/OverlapBlockBuffer.h"
#include "measurement/SampleHistory.h"
#include "measurement/SampleMath.h"

namespace harvane {
namespace {

constexpr float kMomentarySeconds = 0.4F;
constexpr float kShortTermSeconds = 3.0F;
constexpr float kWindowOverlap = 0.75F;
constexpr int kRecentBlocks = 20;           // 15 s of programme at a hop of 750 ms
constexpr float kLoudnessOffset = -0.691F;  // ITU-R BS.1770, Annex 1

constexpr int kLowFrequencyPosition = 3;
constexpr int kFirstSurroundPosition = 4;
constexpr int kLastSurroundPosition = 5;
constexpr float kSurroundWeight = 1.41F;

// ITU-R BS.1770, table of channel weightings, for L R C LFE Ls Rs.
float ChannelWeight(int channel) {
  if (channel == kLowFrequencyPosition) return 0.0F;
  if (channel >= kFirstSurroundPosition && channel <= kLastSurroundPosition) return kSurroundWeight;
  return 1.0F;
}

float Weighted(float meanSquare, int channel) {
  return static_cast<float>(static_cast<double>(meanSquare) * ChannelWeight(channel));
}

float LoudnessOf(const CheckedList<MeterValue>& channelValues) {
  float sum = 0.0F;
  for (const MeterValue& one : channelValues) {
    sum = static_cast<float>(static_cast<double>(sum) + one.value);
  }
  return static_cast<float>(static_cast<double>(Log10(sum)) * 10.0 + kLoudnessOffset);
}

// The pair enters the list only when both histories exist.
void AppendState(CheckedList<BiquadState>* states) {
  auto inputs = std::make_unique<SampleHistory>(kBiquadInputs);
  auto outputs = std::make_unique<SampleHistory>(kBiquadOutputs);
  states->Append({inputs.get(), outputs.get(), kBiquadInputs, kBiquadOutputs});
  inputs.release();
  outputs.release();
}

void AppendGatherer(CheckedList<OverlapPowerSums*>* gatherers, float seconds, int sampleRate,
                    int channel, void* owner, OverlapPowerSums::WindowCallback callback) {
  auto gatherer = std::make_unique<OverlapPowerSums>(WindowLength(sampleRate, seconds), channel,
                                                     kWindowOverlap, owner, callback);
  gatherers->Append(gatherer.get());
  gatherer.release();
}

void DestroyGatherers(CheckedList<OverlapPowerSums*>* gatherers) {
  for (OverlapPowerSums* gatherer : *gatherers) {
    gatherer->Detach();
    delete gatherer;
  }
  gatherers->Clear();
}

void DestroyStates(CheckedList<BiquadState>* states) {
  for (const BiquadState& state : *states) {
    delete state.xHistory;
    delete state.yHistory;
  }
  states->Clear();
}

StageCoefficients Stage(const float (&a)[3], const float (&b)[3]) {
  StageCoefficients stage{};
  std::copy(std::begin(a), std::end(a), stage.a);
  std::copy(std::begin(b), std::end(b), stage.b);
  return stage;
}

}  // namespace

LoudnessMeter::LoudnessMeter(MeterCallbacks callbacks, int trackIndex, void* context)
    : trackIndex(trackIndex),
      callbacks(callbacks),
      context(context),
      coefficients(&KWeightingFor(sampleRate)) {}

LoudnessMeter::~LoudnessMeter() {
  DestroyGatherers(&momentaryGatherers);
  DestroyGatherers(&shortTermGatherers);
  callbacks = {};
  context = nullptr;
  DestroyStates(&firstStageStates);
  DestroyStates(&secondStageStates);
}

void LoudnessMeter::Init(int rate, int channels) {
  sampleRate = rate;
  channelCount = channels;
  coefficients = &KWeightingFor(sampleRate);
  for (int c = 0; c < channelCount; ++c) {
    AppendGatherer(&momentaryGatherers, kMomentarySeconds, sampleRate, c, this, OnMomentaryWindow);
  }
  for (int c = 0; c < channelCount; ++c) {
    AppendGatherer(&shortTermGatherers, kShortTermSeconds, sampleRate, c, this, OnShortTermWindow);
  }
  momentaryChannelValues.Clear();
  shortTermChannelValues.Clear();
  for (int c = 0; c < channelCount; ++c) {
    AppendState(&firstStageStates);
    AppendState(&secondStageStates);
  }
  recentRange.Init(kRecentBlocks);
}

void LoudnessMeter::FeedMomentary(int channel, const float* samples, int count, int position) {
  if (channel >= channelCount) return;
  momentaryGatherers[static_cast<std::size_t>(channel)]->Append(samples, count, position);
}

void LoudnessMeter::FeedShortTerm(int channel, const float* samples, int count, int position) {
  if (channel >= channelCount) return;
  shortTermGatherers[static_cast<std::size_t>(channel)]->Append(samples, count, position);
}

void LoudnessMeter::ClearSeries() {
  integratedSeries.Clear();
  rangeSeries.Clear();
}

void LoudnessMeter::SetMode(int newMode) {
  if (newMode != mode) {
    for (OverlapPowerSums* gatherer : momentaryGatherers) gatherer->Reset();
    for (OverlapPowerSums* gatherer : shortTermGatherers) gatherer->Reset();
  }
  mode = newMode;
}

StageCoefficients LoudnessMeter::GetFirstStageCoefficients() const {
  return Stage(coefficients->firstStageA, coefficients->firstStageB);
}

StageCoefficients LoudnessMeter::GetSecondStageCoefficients() const {
  return Stage(coefficients->secondStageA, coefficients->secondStageB);
}

void LoudnessMeter::OnMomentaryWindow(float meanSquare, int channel, void* owner, int position) {
  static_cast<LoudnessMeter*>(owner)->AddMomentaryValue(Weighted(meanSquare, channel), position);
}

void LoudnessMeter::OnShortTermWindow(float meanSquare, int channel, void* owner, int position) {
  static_cast<LoudnessMeter*>(owner)->AddShortTermValue(Weighted(meanSquare, channel), position);
}

void LoudnessMeter::AddMomentaryValue(float v, int position) {
  momentaryChannelValues.Append({v, position});
  if (++momentaryGathered != channelCount) return;
  FinishMomentaryBlock();
  momentaryGathered = 0;
}

void LoudnessMeter::AddShortTermValue(float v, int position) {
  shortTermChannelValues.Append({v, position});
  if (++shortTermGathered != channelCount) return;
  FinishShortTermBlock();
  shortTermGathered = 0;
}

void LoudnessMeter::FinishMomentaryBlock() {
  momentaryLoudness = LoudnessOf(momentaryChannelValues);
  momentaryPosition = momentaryChannelValues[0].position;
  if (callbacks.onMomentary != nullptr) {
    callbacks.onMomentary(momentaryLoudness, momentaryPosition, trackIndex, context);
  }
  if (mode == kGated) UpdateIntegrated();
  momentaryChannelValues.Clear();
}

void LoudnessMeter::FinishShortTermBlock() {
  shortTermLoudness = LoudnessOf(shortTermChannelValues);
  shortTermPosition = shortTermChannelValues[0].position;
  if (callbacks.onShortTerm != nullptr) {
    callbacks.onShortTerm(shortTermLoudness, shortTermPosition, trackIndex, context);
  }
  UpdateRecentRange();
  if (mode == kGated) UpdateLoudnessRange();
  shortTermChannelValues.Clear();
}

void LoudnessMeter::UpdateIntegrated() {
  if (!integratedSeries.UpdateIntegrated(momentaryLoudness)) return;
  integratedLoudness = integratedSeries.Result();
  if (callbacks.onIntegrated != nullptr) {
    callbacks.onIntegrated(integratedLoudness, integratedPosition, trackIndex, context);
  }
}

void LoudnessMeter::UpdateLoudnessRange() {
  if (!rangeSeries.UpdateRange(shortTermLoudness)) return;
  loudnessRange = rangeSeries.Result();
  if (callbacks.onRange != nullptr) {
    callbacks.onRange(loudnessRange, loudnessRangePosition, trackIndex, context);
  }
}

void LoudnessMeter::UpdateRecentRange() {
  if (!recentRange.Update(shortTermLoudness)) return;
  recentLow = recentRange.low;
  recentHigh = recentRange.high;
  if (callbacks.onRecentRange != nullptr) callbacks.onRecentRange(recentLow, recentHigh, context);
}

}  // namespace harvane
