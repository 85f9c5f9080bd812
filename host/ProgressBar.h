#ifndef HARVANE_HOST_PROGRESSBAR_H
#define HARVANE_HOST_PROGRESSBAR_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace harvane {

// How far a pass is.
struct Progress {
  std::int64_t frames;     // done
  std::int64_t allFrames;  // in the pass; negative if unknown
  double audioSeconds;     // done, in time of the audio
  double elapsedSeconds;   // of the clock, since the pass began
};

// "pass 1 of 2 [#####     ]  50 %  312 x real time", at most `columns` characters.
// Without a known length "pass 1 of 2  61 s  312 x real time". The speed is left
// out while no time has gone by.
std::string ProgressText(const std::string& label, const Progress& progress, int columns);

// One line on a terminal that is written over as the work goes on. On a stream that
// is no terminal nothing is written.
//
// Errors     none that are reported. Thread: one caller at a time.
class ProgressBar {
 public:
  // `sampleRate` in Hz; `allFrames` as in Progress.
  ProgressBar(std::FILE* stream, std::string label, std::int64_t allFrames, int sampleRate);
  // Clears the line.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Shows the frames done so far, at most ten times a second.
  void Update(std::int64_t frames);

 private:
  using Clock = std::chrono::steady_clock;

  std::FILE* stream;
  std::string label;
  std::int64_t allFrames;
  int sampleRate;
  bool isShown;
  Clock::time_point start = Clock::now();
  Clock::time_point next = start;
};

}  // namespace harvane

#endif  // HARVANE_HOST_PROGRESSBAR_H
