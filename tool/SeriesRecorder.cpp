#include "tool/SeriesRecorder.h"

#include <algorithm>
#include <cmath>

#include "measurement/ChunkMeasurement.h"

namespace harvane {
namespace {

constexpr float kFullScale = 32767.0F;
// The module's, with its single precision: 239 frames at 48000 Hz.
constexpr float kChunkSeconds = 0.005F;

std::optional<float> Finite(float value) {
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

}  // namespace

SeriesRecorder::SeriesRecorder(std::vector<int> channels, int width, int sampleRate)
    : channels(std::move(channels)),
      width(width),
      chunkFrames(
          static_cast<std::size_t>(static_cast<double>(sampleRate) * double{kChunkSeconds})),
      chunks(this->channels.size(), std::vector<float>(chunkFrames)),
      meter({OnMomentary, OnShortTerm, nullptr, nullptr, nullptr}, 0, this) {
  meter.Init(sampleRate, static_cast<int>(this->channels.size()));
}

void SeriesRecorder::Hear(const std::int16_t* interleaved, std::size_t frames) {
  while (frames > 0) {
    const std::size_t run = std::min(frames, chunkFrames - filled);
    for (std::size_t k = 0; k < channels.size(); ++k) {
      const std::int16_t* from = interleaved + channels[k];
      float* const to = chunks[k].data() + filled;
      for (std::size_t s = 0; s < run; ++s) {
        to[s] = static_cast<float>(from[s * static_cast<std::size_t>(width)]) / kFullScale;
      }
    }
    interleaved += run * static_cast<std::size_t>(width);
    frames -= run;
    filled += run;
    position += static_cast<int>(run);
    if (filled == chunkFrames) MeasureChunk();
  }
}

LoudnessSeries SeriesRecorder::Take() { return std::move(series); }

void SeriesRecorder::OnMomentary(float value, int /*position*/, int /*track*/, void* context) {
  static_cast<SeriesRecorder*>(context)->series.momentary.push_back(Finite(value));
}

void SeriesRecorder::OnShortTerm(float value, int /*position*/, int /*track*/, void* context) {
  static_cast<SeriesRecorder*>(context)->series.shortTerm.push_back(Finite(value));
}

void SeriesRecorder::MeasureChunk() {
  std::vector<ChannelChunk> list;
  for (std::size_t k = 0; k < chunks.size(); ++k) {
    list.push_back({&meter, static_cast<int>(k), chunks[k].data()});
  }
  WeightAndFeed(list.data(), static_cast<int>(list.size()), static_cast<int>(chunkFrames),
                position);
  filled = 0;
}

}  // namespace harvane
