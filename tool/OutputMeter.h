#ifndef HARVANE_TOOL_OUTPUTMETER_H
#define HARVANE_TOOL_OUTPUTMETER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <vector>

#include "host/BackgroundThread.h"
#include "host/Handover.h"
#include "tool/TrackMeter.h"

namespace harvane {

// Measures tracks of what is written while it is written, on a thread of its own, so that the
// module need not wait for it.
//
// Memory     a track may come with what the module's filters have heard last. It is then measured
//            twice for 4.2 s: by meters that remember nothing, and by meters that remember that. By
//            then the memory has died away (in 4.2 s at 38 Hz by 20 log10 e^1000 dB), and every
//            window that it reached is complete. Where each of these windows comes out within 0.005
//            LU of its twin, or both lie below the absolute gate, and the peaks are as near, the
//            module's values cannot be further off, and the track is measured no longer. Else the
//            meters without a memory go on.
// Errors     std::bad_alloc; what goes wrong on the thread is thrown by Finish.
// Thread     one caller at a time. Without a thread to be had it measures on the caller's.
class OutputMeter {
 public:
  struct Track {
    std::vector<int> channels;  // from 0
    TrackMeter::Wanted wanted;
    // Whole chunks that end with the last one that the module's filters have heard; empty: the
    // track is measured to its end.
    std::vector<std::int16_t> remembered;
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
  // False where the module's values are as good.
  bool IsMeasured(std::size_t track) const { return tracks[track].isMeasured; }
  TrackMeter& Meter(std::size_t track) { return tracks[track].meter; }

 private:
  using Block = std::vector<std::int16_t>;
  static constexpr std::size_t kBlocks = 4;

  struct Ears {
    Ears(const Track& track, int width, int sampleRate);
    void Hear(const std::int16_t* interleaved, std::size_t frames, std::uint32_t headFrames);

    TrackMeter meter;
    std::unique_ptr<TrackMeter> twin;  // remembers; gone when it has told enough
    bool isMeasured = true;
  };

  void HearHere(const std::int16_t* interleaved, std::size_t frames);

  std::size_t width;
  std::uint32_t headFrames;
  std::deque<Ears> tracks;
  std::atomic<bool> isListening = true;  // to any of them
  std::exception_ptr failure;            // of the thread
  Handover<Block> blocks{kBlocks, Handover<Block>::Waking::kEager};
  BackgroundThread thread;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_OUTPUTMETER_H
