#ifndef HARVANE_TOOL_OUTPUTMETER_H
#define HARVANE_TOOL_OUTPUTMETER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <vector>

#include "host/BackgroundThread.h"
#include "host/Handover.h"
#include "tool/TrackMeter.h"

namespace harvane {

// Measures tracks of what is written while it is written, on a thread of its own, so that the
// module need not wait for it.
//
// Errors     std::bad_alloc; what goes wrong on the thread is thrown by Finish.
// Thread     one caller at a time. Without a thread to be had it measures on the caller's.
class OutputMeter {
 public:
  struct Track {
    std::vector<int> channels;  // from 0
    TrackMeter::Wanted wanted;
  };

  // Of frames of `width` samples. `sampleRate` in Hz.
  OutputMeter(const std::vector<Track>& tracks, int width, int sampleRate);
  ~OutputMeter();
  OutputMeter(const OutputMeter&) = delete;
  OutputMeter& operator=(const OutputMeter&) = delete;

  // Frames of 16-bit samples, which are copied.
  void Hear(const std::int16_t* interleaved, std::size_t frames);

  // Once, behind the last frame. Meters may be asked afterwards.
  void Finish();
  TrackMeter& Meter(std::size_t track) { return meters[track]; }

 private:
  using Block = std::vector<std::int16_t>;
  static constexpr std::size_t kBlocks = 4;

  void HearHere(const std::int16_t* interleaved, std::size_t frames);

  std::size_t width;
  std::deque<TrackMeter> meters;
  std::exception_ptr failure;  // of the thread
  Handover<Block> blocks{kBlocks, Handover<Block>::Waking::kEager};
  BackgroundThread thread;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_OUTPUTMETER_H
