#include "tool/TrackMeter.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "measurement/ChunkKernels.h"
#include "measurement/ChunkMeasurement.h"

namespace harvane {
namespace {

// The module's, with its single precision: 239 frames at 48000 Hz.
constexpr float kChunkSeconds = 0.005F;

std::optional<float> Finite(float value) {
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

void KeepMaximum(float value, int position, float* maximum, int* maximumPosition) {
  if (!(value > *maximum)) return;
  *maximum = value;
  *maximumPosition = position;
}

TrackMeter* Self(void* context) { return static_cast<TrackMeter*>(context); }

}  // namespace

TrackMeter::TrackMeter(std::vector<int> channels, int width, int sampleRate, Wanted wanted)
    : channels(std::move(channels)),
      width(static_cast<std::size_t>(width)),
      chunkFrames(ChunkFrames(sampleRate)),
      hasValues(wanted != Wanted::kSeries),
      hasSeries(wanted != Wanted::kValues),
      chunks(this->channels.size(), std::vector<float>(chunkFrames)),
      scratch(chunkFrames + kTruePeakTaps),
      meter({OnMomentary, OnShortTerm, OnIntegrated, OnRange, nullptr}, 0, this) {
  meter.Init(sampleRate, static_cast<int>(this->channels.size()));
  if (!hasValues) return;
  meter.SetMode(LoudnessMeter::kGated);
  peakMeter.Init(sampleRate, static_cast<int>(this->channels.size()));
}

void TrackMeter::Hear(const std::int16_t* interleaved, std::size_t frames) {
  while (frames > 0) {
    const std::size_t run = std::min(frames, chunkFrames - filled);
    for (std::size_t k = 0; k < channels.size(); ++k) {
      ActiveKernels().fromPcm(interleaved + channels[k], width, run, chunks[k].data() + filled);
    }
    interleaved += run * width;
    frames -= run;
    filled += run;
    heard += static_cast<std::uint32_t>(run);
    if (filled == chunkFrames) MeasureChunk();
  }
}

void TrackMeter::StartOver() {
  // A change of the mode drops the windows.
  meter.SetMode(hasValues ? LoudnessMeter::kMaximaOnly : LoudnessMeter::kGated);
  meter.ClearSeries();
  meter.SetMode(hasValues ? LoudnessMeter::kGated : LoudnessMeter::kMaximaOnly);
  peakMeter.StartOver();
  filled = 0;
  heard = 0;
  values = {};
  series = {};
}

std::size_t TrackMeter::ChunkFrames(int sampleRate) {
  return static_cast<std::size_t>(static_cast<double>(sampleRate) * double{kChunkSeconds});
}

LoudnessSeries TrackMeter::TakeSeries() { return std::move(series); }

void TrackMeter::OnMomentary(float value, int position, int /*track*/, void* context) {
  TrackMeasurement& values = Self(context)->values;
  KeepMaximum(value, position, &values.maxMomentary, &values.maxMomentaryPosition);
  if (Self(context)->hasSeries) Self(context)->series.momentary.push_back(Finite(value));
}

void TrackMeter::OnShortTerm(float value, int position, int /*track*/, void* context) {
  TrackMeasurement& values = Self(context)->values;
  KeepMaximum(value, position, &values.maxShortTerm, &values.maxShortTermPosition);
  if (Self(context)->hasSeries) Self(context)->series.shortTerm.push_back(Finite(value));
}

void TrackMeter::OnIntegrated(float value, int /*position*/, int /*track*/, void* context) {
  Self(context)->values.integratedLoudness = value;
}

void TrackMeter::OnRange(float value, int /*position*/, int /*track*/, void* context) {
  Self(context)->values.loudnessRange = value;
}

void TrackMeter::MeasureChunk() {
  const auto frames = static_cast<int>(chunkFrames);
  // Of the chunk's last frame, and past 2^31 frames as the module counts.
  const auto position = static_cast<int>(heard - 1);
  std::vector<ChannelChunk> list;
  for (std::size_t k = 0; k < chunks.size(); ++k) {
    list.push_back({&meter, static_cast<int>(k), chunks[k].data()});
  }
  WeightAndFeed(list.data(), static_cast<int>(list.size()), frames, position);
  for (std::size_t k = 0; hasValues && k < chunks.size(); ++k) {
    const float peak =
        peakMeter.MeasureChunk(static_cast<int>(k), chunks[k].data(), frames, scratch.data());
    KeepMaximum(peak, position, &values.maxTruePeak, &values.maxTruePeakPosition);
  }
  filled = 0;
}

}  // namespace harvane
