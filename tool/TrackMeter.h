#ifndef HARVANE_TOOL_TRACKMETER_H
#define HARVANE_TOOL_TRACKMETER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "measurement/LoudnessMeter.h"
#include "measurement/TrackMeasurement.h"
#include "measurement/TruePeakMeter.h"
#include "tool/FileResult.h"

namespace harvane {

// One track of a file by the meters that the module has, in the chunks that the module measures,
// with filters that have heard nothing before: what a job of one pass measures of these samples,
// bit by bit. As there, a window that is not complete at the end, and the samples of the last
// partial chunk, do not count.
//
// Samples    signed 16-bit, interleaved, of the file's channels.
// Errors     std::bad_alloc. Thread: one caller at a time.
class TrackMeter {
 public:
  enum class Wanted {
    kValues,
    kSeries,  // momentary and short-term loudness over time, in which the values' maxima lie
    kBoth,
  };

  // `channels`: those of the track, from 0, of frames of `width` samples. `sampleRate` in Hz.
  TrackMeter(std::vector<int> channels, int width, int sampleRate, Wanted wanted);
  TrackMeter(const TrackMeter&) = delete;
  TrackMeter& operator=(const TrackMeter&) = delete;

  void Hear(const std::int16_t* interleaved, std::size_t frames);

  // Forgets values, series and unfinished windows, and not what the filters have heard: what the
  // module does between its passes.
  void StartOver();

  // Frames that are measured at a time.
  static std::size_t ChunkFrames(int sampleRate);
  std::uint32_t FramesHeard() const { return heard; }

  // Of what was heard; positions in its frames.
  const TrackMeasurement& Values() const { return values; }
  const LoudnessSeries& Series() const { return series; }
  // Moves what was recorded out.
  LoudnessSeries TakeSeries();

 private:
  static void OnMomentary(float value, int position, int track, void* context);
  static void OnShortTerm(float value, int position, int track, void* context);
  static void OnIntegrated(float value, int position, int track, void* context);
  static void OnRange(float value, int position, int track, void* context);
  void MeasureChunk();

  std::vector<int> channels;
  std::size_t width;
  std::size_t chunkFrames;
  bool hasValues;
  bool hasSeries;
  std::size_t filled = 0;                  // frames of the present chunk
  std::vector<std::vector<float>> chunks;  // by channel of the track
  std::vector<float> scratch;
  std::uint32_t heard = 0;  // frames
  TrackMeasurement values;
  LoudnessSeries series;
  LoudnessMeter meter;
  TruePeakMeter peakMeter;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_TRACKMETER_H
