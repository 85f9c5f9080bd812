#include "tool/OutputMeter.h"

namespace harvane {

OutputMeter::OutputMeter(const std::vector<Track>& tracks, int width, int sampleRate)
    : width(static_cast<std::size_t>(width)) {
  for (const Track& track : tracks) {
    meters.emplace_back(track.channels, width, sampleRate, track.wanted);
  }
  if (meters.empty()) return;
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
  for (TrackMeter& meter : meters) meter.Hear(interleaved, frames);
}

}  // namespace harvane
