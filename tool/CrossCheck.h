#ifndef HARVANE_TOOL_CROSSCHECK_H
#define HARVANE_TOOL_CROSSCHECK_H

#include <ebur128.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "tool/FileResult.h"

namespace harvane {

// libebur128's values of one track, as a second opinion.
//
// Maxima     of momentary and short-term loudness at every tenth of a second, whose ends are
//            their places; of the true peak with the end of its tenth.
// Samples    signed 16-bit, interleaved, of the file's channels.
// Errors     std::bad_alloc. Thread: one caller at a time.
class CrossCheck {
 public:
  // `channels`: those of the track, from 0, of frames of `width` samples: 1, 2, or 6 as
  // L R C LFE Ls Rs. `sampleRate` in Hz.
  CrossCheck(std::vector<int> channels, int width, int sampleRate);

  void Hear(const std::int16_t* interleaved, std::size_t frames);
  // What was heard; a last part of a tenth of a second counts in the integrated loudness and
  // in the peak.
  TrackValues Finish();

 private:
  struct Destroy {
    void operator()(ebur128_state* state) const;
  };

  void MeasureTenth();

  std::vector<int> channels;
  int width;
  int sampleRate;
  std::size_t tenthFrames;
  std::unique_ptr<ebur128_state, Destroy> state;
  std::vector<std::int16_t> tenth;  // the track's frames
  std::int64_t position = 0;        // frames measured
  TrackValues values;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_CROSSCHECK_H
