#include <memory>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/PluginException.h"
#include "measurement/ChunkKernels.h"
#include "measurement/ChunkMeasurement.h"

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
  static_cast<void>(truePeakMeters[0]);  // a job without tracks ends here
  truePeakScratch = new float[static_cast<std::size_t>(blockSize) + kPeakHistory];
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
  FreeScratch(&truePeakScratch);
}

void DelayAudio::MeasureChunk(int c, int k, int t) {
  const MeasuredChannel channel = {c, k, t};
  MeasureChunks(&channel, 1);
}

void DelayAudio::MeasureChunks(const MeasuredChannel* channels, int count) {
  if (count == 0) return;
  const auto n = static_cast<int>(blockSize);
  ChannelChunk chunks[kMaxChannels] = {};
  for (int i = 0; i < count; ++i) {
    chunks[i] = {meters[Index(channels[i].t)], channels[i].k,
                 inputAccumulators[Index(channels[i].c)].Data()};
  }
  WeightAndFeed(chunks, count, n, sampleCounter);
  for (int i = 0; i < count; ++i) {
    const MeasuredChannel& channel = channels[i];
    const float peak = truePeakMeters[Index(channel.t)]->MeasureChunk(channel.k, chunks[i].samples,
                                                                      n, truePeakScratch);
    OnTruePeak(peak, sampleCounter, channel.t, this);
    inputAccumulators[Index(channel.c)].Clear();
  }
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
