#include "tool/SeriesRecorder.h"

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
      chunks(this->channels.size()),
      meter({OnMomentary, OnShortTerm, nullptr, nullptr, nullptr}, 0, this) {
  meter.Init(sampleRate, static_cast<int>(this->channels.size()));
}

void SeriesRecorder::Hear(const std::int16_t* interleaved, std::size_t frames) {
  for (std::size_t s = 0; s < frames; ++s, interleaved += width) {
    for (std::size_t k = 0; k < channels.size(); ++k) {
      chunks[k].push_back(static_cast<float>(interleaved[channels[k]]) / kFullScale);
    }
    ++position;
    if (chunks.front().size() == chunkFrames) MeasureChunk();
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
  for (std::vector<float>& chunk : chunks) chunk.clear();
}

}  // namespace harvane
