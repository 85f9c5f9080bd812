#ifndef HARVANE_HOST_LOGREADING_H
#define HARVANE_HOST_LOGREADING_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace harvane {

enum class LoggedPass { kAnalysis, kProcess };

// Channels of a track as a row names them: by their number alone.
enum class LoggedFormat { kMono, kStereo, kSurround, kUnspecified };

// A position in time as a row shows it. Negative parts come from positions that have run past
// what 32 bits count.
struct LoggedTime {
  int hours;
  int minutes;
  int seconds;
  int framesOrMilliseconds;  // see LoggedTrack::hasFrames
};

// One row: what a pass measured on one track, each level to one decimal. Not measured: -70.0 with
// a time of zero. A level may be infinite or not a number.
struct LoggedTrack {
  std::size_t line;  // of the file, from 1
  std::string name;  // UTF-8; may hold commas
  LoggedPass pass;
  int firstChannel;  // from 0, over the channels of tracks
  int lastChannel;
  LoggedFormat format;
  double integratedLoudness;  // LUFS
  double loudnessRange;       // LU
  double maxTruePeak;         // dBTP
  LoggedTime maxTruePeakTime;
  double maxShortTerm;  // LUFS
  LoggedTime maxShortTermTime;
  double maxMomentary;  // LUFS
  LoggedTime maxMomentaryTime;
  // The times' last parts are video frames; else milliseconds. Three digits in all of them are
  // taken for milliseconds, which they are at frame rates up to 100.
  bool hasFrames;
};

// Something that is no row and no part of the banner, or a file that cannot be read.
struct LogProblem {
  std::size_t line;  // from 1; 0: the file as a whole
  std::string reason;
};

// What a log file holds, in its order.
struct LogReading {
  std::vector<LoggedTrack> tracks;
  std::vector<LogProblem> problems;  // the first kMostLogProblems
  std::size_t problemCount = 0;      // all of them
  bool isMemoryExhausted = false;    // the rest was not read
};

inline constexpr std::size_t kMostLogProblems = 1000;

// Reads a log as the module writes it (docs/log-file.md): rows, the lines of the banner wherever
// they stand, blank lines. Any other line is a problem, and is passed over: a field too few, a
// text that is no value, a byte that is NUL or no UTF-8, and the last line where its end is
// missing, since what stands there may be cut.
//
// Names      the twelve fields behind the name have no comma, so one in the name is no harm. Of a
//            name with a line end the last line counts, and the others are problems.
// Numbers    as the module writes them, whatever the locale.
// Memory     in proportion to the text.
// Errors     problems; nothing is thrown.
// Thread     any.
LogReading ReadLog(std::string_view text) noexcept;

// The same for a file, `path` in UTF-8: as much of it as it holds when it is opened.
LogReading ReadLogFile(const std::string& path) noexcept;

}  // namespace harvane

#endif  // HARVANE_HOST_LOGREADING_H
