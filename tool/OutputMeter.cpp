#include "tool/OutputMeter.h"

#include <algorithm>
#include <cmath>

namespace harvane {
namespace {

constexpr double kHeadSeconds = 4.2;
constexpr float kNear = 0.005F;  // LU or dB

// Levels that are not measured, or below the absolute gate, count in nothing.
bool IsNear(float one, float other) {
  return std::abs(one - other) <= kNear || (one <= kNotMeasured && other <= kNotMeasured);
}

bool AreNear(const std::vector<std::optional<float>>& one,
             const std::vector<std::optional<float>>& other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](const std::optional<float>& a, const std::optional<float>& b) {
                      return IsNear(a.value_or(kNotMeasured), b.value_or(kNotMeasured));
                    });
}

bool AreNear(const TrackMeter& one, const TrackMeter& other) {
  return AreNear(one.Series().momentary, other.Series().momentary) &&
         AreNear(one.Series().shortTerm, other.Series().shortTerm) &&
         IsNear(one.Values().maxTruePeak, other.Values().maxTruePeak);
}

}  // namespace

OutputMeter::Ears::Ears(const Track& track, int width, int sampleRate)
    : meter(track.channels, width, sampleRate,
            track.remembered.empty() ? track.wanted : TrackMeter::Wanted::kBoth) {
  if (track.remembered.empty()) return;
  twin = std::make_unique<TrackMeter>(track.channels, width, sampleRate, TrackMeter::Wanted::kBoth);
  twin->Hear(track.remembered.data(), track.remembered.size() / static_cast<std::size_t>(width));
  twin->StartOver();
}

void OutputMeter::Ears::Hear(const std::int16_t* interleaved, std::size_t frames,
                             std::uint32_t headFrames) {
  if (!isMeasured) return;
  meter.Hear(interleaved, frames);
  if (!twin) return;
  twin->Hear(interleaved, frames);
  if (twin->FramesHeard() < headFrames) return;
  isMeasured = !AreNear(meter, *twin);
  twin.reset();
}

OutputMeter::OutputMeter(const std::vector<Track>& asked, int width, int sampleRate)
    : width(static_cast<std::size_t>(width)),
      headFrames(static_cast<std::uint32_t>(kHeadSeconds * sampleRate)) {
  for (const Track& track : asked) tracks.emplace_back(track, width, sampleRate);
  isListening = !tracks.empty();
  if (!isListening) return;
  thread.Start([this] {
    try {
      while (const Block* block = blocks.ForUse()) {
        HearHere(block->data(), block->size() / this->width);
        blocks.Used();
      }
    } catch (...) {
      failure = std::current_exception();
      blocks.Stop();
    }
  });
}

OutputMeter::~OutputMeter() { blocks.Stop(); }

void OutputMeter::Hear(const std::int16_t* interleaved, std::size_t frames) {
  if (!isListening) return;
  if (!thread.IsRunning()) {
    HearHere(interleaved, frames);
    return;
  }
  Block* const block = blocks.ForFilling();
  if (block == nullptr) return;  // Finish says why
  block->assign(interleaved, interleaved + frames * width);
  blocks.Filled();
}

void OutputMeter::Finish() {
  blocks.End();
  thread.Join();
  if (failure) std::rethrow_exception(failure);
}

void OutputMeter::HearHere(const std::int16_t* interleaved, std::size_t frames) {
  for (Ears& track : tracks) track.Hear(interleaved, frames, headFrames);
  isListening =
      std::any_of(tracks.begin(), tracks.end(), [](const Ears& track) { return track.isMeasured; });
}

}  // namespace harvane
