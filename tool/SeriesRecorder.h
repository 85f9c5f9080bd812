#ifndef HARVANE_TOOL_SERIESRECORDER_H
#define HARVANE_TOOL_SERIESRECORDER_H

#include <cstdint>
#include <vector>

#include "measurement/LoudnessMeter.h"
#include "tool/FileResult.h"

namespace harvane {

// Momentary and short-term loudness of one track over time, by the meter that the module has, in
// the chunks that the module measures: its maxima are the module's. As there, a window that is
// not complete at the end, and the samples of the last partial chunk, do not count.
//
// Samples    signed 16-bit, interleaved, of the file's channels.
// Errors     std::bad_alloc. Thread: one caller at a time.
class SeriesRecorder {
 public:
  // `channels`: those of the track, from 0, of frames of `width` samples. `sampleRate` in Hz.
  SeriesRecorder(std::vector<int> channels, int width, int sampleRate);
  SeriesRecorder(const SeriesRecorder&) = delete;
  SeriesRecorder& operator=(const SeriesRecorder&) = delete;

  void Hear(const std::int16_t* interleaved, std::size_t frames);
  // Moves what was recorded out.
  LoudnessSeries Take();

 private:
  static void OnMomentary(float value, int position, int track, void* context);
  static void OnShortTerm(float value, int position, int track, void* context);
  void MeasureChunk();

  std::vector<int> channels;
  int width;
  std::size_t chunkFrames;
  std::size_t filled = 0;                  // frames of the present chunk
  std::vector<std::vector<float>> chunks;  // by channel of the track
  int position = 0;                        // frames heard
  LoudnessSeries series;
  LoudnessMeter meter;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_SERIESRECORDER_H
