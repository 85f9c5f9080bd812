#include <algorithm>
#include <memory>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/PluginException.h"

namespace harvane {
namespace {

std::size_t Index(int i) { return static_cast<std::size_t>(i); }

// The object enters the list only when it is whole.
template <class Object>
void AppendOwned(CheckedList<Object*>* list, std::unique_ptr<Object> object) {
  list->Append(object.get());
  object.release();
}

template <class Object>
void DestroyAll(CheckedList<Object*>* list) {
  for (Object* object : *list) delete object;
  list->Clear();
}

void FreeScratch(float** scratch) {
  delete[] * scratch;
  *scratch = nullptr;
}

void KeepMaximum(float value, int position, float* maximum, int* maximumPosition) {
  if (!(value > *maximum)) return;
  *maximum = value;
  *maximumPosition = position;
}

}  // namespace

void DelayAudio::CreateTrackObjects() {
  if (trackCount == kNoTrack) {
    throw PluginException("Incorrect initialization of input channels tables!", kTablesFailure);
  }
  constexpr MeterCallbacks kCallbacks = {OnMomentary, OnShortTerm, OnIntegrated, OnRange, nullptr};
  int t = 0;
  for (const int channelCount : trackChannelCounts) {
    results.Append({});
    auto meter = std::make_unique<LoudnessMeter>(kCallbacks, t, this);
    meter->Init(sampleRate, channelCount);
    AppendOwned(&meters, std::move(meter));
    auto truePeakMeter = std::make_unique<TruePeakMeter>();
    truePeakMeter->Init(sampleRate, channelCount);
    AppendOwned(&truePeakMeters, std::move(truePeakMeter));
    auto limiter = std::make_unique<TruePeakLimiter>();
    limiter->Init(channelCount, sampleRate);
    AppendOwned(&limiters, std::move(limiter));
    ++t;
  }
  filterScratch1 = new float[blockSize];
  filterScratch2 = new float[blockSize];
  const int phases = truePeakMeters[0]->GetPhases();
  truePeakScratch = new float[static_cast<std::size_t>(blockSize) * Index(std::max(phases, 1))];
  for (LoudnessMeter* meter : meters) {
    meter->ClearSeries();
    meter->SetMode(LoudnessMeter::kGated);
  }
  for (TrackMeasurement& result : results) result = TrackMeasurement();
}

void DelayAudio::ResetTrackObjects() {
  results.Clear();
  DestroyAll(&meters);
  DestroyAll(&truePeakMeters);
  DestroyAll(&limiters);
  FreeScratch(&filterScratch1);
  FreeScratch(&filterScratch2);
  FreeScratch(&truePeakScratch);
}

void DelayAudio::MeasureChunk(int c, int k, int t) {
  CheckedList<float>& accumulator = inputAccumulators[Index(c)];
  const std::vector<float> chunk(accumulator.begin(), accumulator.end());
  const auto n = static_cast<int>(chunk.size());
  LoudnessMeter& meter = *meters[Index(t)];
  const StageCoefficients first = meter.GetFirstStageCoefficients();
  const StageCoefficients second = meter.GetSecondStageCoefficients();
  sampleMath.FilterBlock(chunk.data(), n, first.a, 3, first.b, 3, filterScratch1,
                         meter.GetFirstStageState(k));
  sampleMath.FilterBlock(filterScratch1, n, second.a, 3, second.b, 3, filterScratch2,
                         meter.GetSecondStageState(k));
  meter.FeedMomentary(k, filterScratch2, n, sampleCounter);
  meter.FeedShortTerm(k, filterScratch2, n, sampleCounter);
  const float peak =
      MeasureTruePeak(*truePeakMeters[Index(t)], k, chunk.data(), n, truePeakScratch);
  OnTruePeak(peak, sampleCounter, t, this);
  accumulator.Clear();
}

void DelayAudio::OnMomentary(float value, int position, int track, void* context) {
  if (context == nullptr) return;
  TrackMeasurement& result = static_cast<DelayAudio*>(context)->results[Index(track)];
  KeepMaximum(value, position, &result.maxMomentary, &result.maxMomentaryPosition);
}

void DelayAudio::OnShortTerm(float value, int position, int track, void* context) {
  if (context == nullptr) return;
  TrackMeasurement& result = static_cast<DelayAudio*>(context)->results[Index(track)];
  KeepMaximum(value, position, &result.maxShortTerm, &result.maxShortTermPosition);
}

void DelayAudio::OnIntegrated(float value, int /*position*/, int track, void* context) {
  if (context == nullptr) return;
  static_cast<DelayAudio*>(context)->results[Index(track)].integratedLoudness = value;
}

void DelayAudio::OnRange(float value, int /*position*/, int track, void* context) {
  if (context == nullptr) return;
  static_cast<DelayAudio*>(context)->results[Index(track)].loudnessRange = value;
}

void DelayAudio::OnTruePeak(float value, int position, int track, void* context) {
  if (context == nullptr) return;
  TrackMeasurement& result = static_cast<DelayAudio*>(context)->results[Index(track)];
  KeepMaximum(value, position, &result.maxTruePeak, &result.maxTruePeakPosition);
}

}  // namespace harvane
