#ifndef HARVANE_TOOL_FILERESULT_H
#define HARVANE_TOOL_FILERESULT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace harvane {

// What became of one file of a run: all that the reports show, and what goes between processes
// and shards. Plain values; whoever makes one fills it, and nobody computes from texts again.
//
// Units      loudness LUFS, range LU, peaks dBTP, gains dB, times seconds from the file's start.
//            A value that was not measured is empty: never -70, never a text.
// Channels   count from 1, over the channels of the file.

// A maximum and where it lies.
struct PeakValue {
  double value;
  double seconds;
};

// What one pass measured on one track.
struct TrackValues {
  std::optional<double> integratedLoudness;
  std::optional<double> loudnessRange;
  std::optional<PeakValue> maxTruePeak;
  std::optional<PeakValue> maxShortTerm;
  std::optional<PeakValue> maxMomentary;
};

// Momentary and short-term loudness over time. Value i belongs to the window that begins at i steps
// and is 0.4 s or 3 s long; silence is empty.
struct LoudnessSeries {
  double momentaryStep = 0.1;  // seconds
  double shortTermStep = 0.75;
  std::vector<std::optional<float>> momentary;
  std::vector<std::optional<float>> shortTerm;
};

enum class Verdict { kPass, kFail, kNotMeasured };

// One rule of a preset on one track: "integratedLoudness" within -23 +/- 0.5, say.
struct RuleVerdict {
  std::string rule;              // the measured value's name, as in the JSON
  std::string wanted;            // "-23.0 ±0.5 LUFS", "at most -1.0 dBTP"
  std::optional<double> value;   // what was judged
  std::optional<double> excess;  // by how much it misses; empty where it fits
  Verdict verdict = Verdict::kNotMeasured;
};

// What was done to a track.
enum class TrackAction {
  kMeasured,         // nothing; there was one pass
  kProcessed,        // gain, and the limiter where it says so
  kKeptQuiet,        // could not be measured: keeps its level
  kWithinTolerance,  // fits already: keeps its level
  kNotRaised,        // would have been raised, and only lowering was asked for
};

// What repeating the job with adjusted targets came to.
struct Convergence {
  int jobs = 1;              // two-pass jobs that were run
  bool isReached = false;    // within 0.1 LU and under the ceiling
  double missedLu = 0.0;     // target minus result, where it is not
  double loudness = 0.0;     // the `Loudness` that the last job was given
  double maxTruePeak = 0.0;  // its `MaxTP`
};

struct TrackResult {
  int firstChannel = 1;
  int lastChannel = 1;
  // Where a track has other channels than those from the first to the last, or in another order:
  // all of them, in the track's. Else empty.
  std::vector<int> channelOrder;
  std::string layout;  // "mono", "stereo" or "5.1"
  TrackAction action = TrackAction::kMeasured;
  TrackValues before;
  std::optional<TrackValues> after;  // this and the next three: after two passes
  std::optional<double> gainDb;
  bool isLimited = false;
  int delayFrames = 0;  // how late the track comes out; 0 where it was aligned
  std::optional<Convergence> convergence;
  std::optional<TrackValues> crossCheck;  // libebur128's values of what was judged
  std::vector<RuleVerdict> verdicts;      // empty where no rules were asked for
  std::optional<LoudnessSeries> seriesBefore;
  std::optional<LoudnessSeries> seriesAfter;
};

// Each has its exit code; a run's is that of its worst file (see ExitCodeOf).
enum class FileStatus {
  kDone,
  kSkipped,   // fits already: nothing is written
  kFailed,    // the file or its output: unreadable, no such layout, disk full
  kRefused,   // by the module
  kCrashed,   // the worker process died, or the process that a Windows module was in
  kTimedOut,  // the worker process was killed
  kInterrupted,
};

struct FileResult {
  std::string input;   // as it was given
  std::string output;  // empty where nothing is written
  FileStatus status = FileStatus::kDone;
  std::string error;  // one line, where it failed
  int sampleRate = 0;
  int channels = 0;
  std::int64_t frames = 0;
  std::string layout;              // "5.1+2,2"
  std::string reduction;           // how samples became 16 bits; empty if they had 16
  std::vector<std::string> notes;  // one line each
  double wallSeconds = 0.0;        // spent on this file
  std::vector<TrackResult> tracks;
};

inline constexpr int kExitDone = 0;
inline constexpr int kExitFileFailed = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitVerdictFail = 3;
inline constexpr int kExitRefused = 4;
inline constexpr int kExitCrashed = 5;  // or timed out
inline constexpr int kExitInterrupted = 130;

// A whole run, or a shard of one.
struct RunResult {
  std::string command;  // "measure", "check", "normalise"
  std::string preset;   // the name of the rules that were judged by; may be empty
  std::string version;
  // The ends of a target and its tolerance, for pictures. Empty where nothing was aimed at.
  std::optional<double> targetLoudness;
  std::optional<double> toleranceLu;
  std::optional<double> maxTruePeak;
  std::vector<FileResult> files;  // in the order in which they were given
};

// True where a rule of any track says fail.
bool HasFailedVerdict(const FileResult& file);

// 130 before 5 before 4 before 1 before 3 before 0.
int ExitCodeOf(const std::vector<FileResult>& files);

}  // namespace harvane

#endif  // HARVANE_TOOL_FILERESULT_H
