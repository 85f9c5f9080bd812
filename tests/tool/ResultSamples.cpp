#include "tests/tool/ResultSamples.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <random>

namespace support {
namespace {

using harvane::FileResult;
using harvane::FileStatus;
using harvane::LoudnessSeries;
using harvane::RunResult;
using harvane::TrackResult;
using harvane::TrackValues;
using harvane::Verdict;

TrackValues BeforeValues() {
  TrackValues values;
  values.integratedLoudness = -18.25;
  values.loudnessRange = 6.5;
  values.maxTruePeak = {0.5, 12.125};
  values.maxShortTerm = {-14.75, 12.0};
  values.maxMomentary = {-11.5, 11.5};
  return values;
}

TrackValues AfterValues() {
  TrackValues values;
  values.integratedLoudness = -23.75;
  values.loudnessRange = 6.25;
  values.maxTruePeak = {-1.5, 12.125};
  values.maxShortTerm = {-19.5, 12.0};
  values.maxMomentary = {-16.25, 11.5};
  return values;
}

void AppendWave(double seconds, double step, float middle, float swing,
                std::vector<std::optional<float>>* values) {
  constexpr double kWindowSteps = 4.0;
  constexpr double kPauseFrom = 0.6;
  constexpr double kPauseTo = 0.65;
  for (int i = 0; (i + kWindowSteps) * step <= seconds; ++i) {
    const double part = (i + kWindowSteps) * step / seconds;
    if (part > kPauseFrom && part < kPauseTo) {
      values->emplace_back();
      continue;
    }
    const double wave =
        std::sin(part * 37.0) + 0.6 * std::sin(part * 131.0 + 1.0) + 0.5 * std::sin(part * 1009.0);
    values->emplace_back(middle + swing * static_cast<float>(wave));
  }
}

// ---- any values ----------------------------------------------------------------------------

class Chance {
 public:
  explicit Chance(std::uint64_t seed) : generator(seed) {}

  std::size_t Below(std::size_t count) { return generator() % count; }
  bool Flag() { return Below(2) == 1; }

  double Number() {
    for (;;) {
      const std::uint64_t bits = generator();
      double number;
      std::memcpy(&number, &bits, sizeof number);
      if (Flag()) number = std::round(number * 1e6) / 1e6;
      if (std::isfinite(number)) return number;
    }
  }

  std::optional<double> NumberOrNone() {
    if (Flag()) return std::nullopt;
    return Number();
  }

  float Single() {
    for (;;) {
      const auto bits = static_cast<std::uint32_t>(generator());
      float number;
      std::memcpy(&number, &bits, sizeof number);
      if (std::isfinite(number)) return number;
    }
  }

  template <class Integer>
  Integer Whole() {
    return static_cast<Integer>(generator() & std::numeric_limits<Integer>::max());
  }

  std::string Text() {
    static const std::string kPieces[] = {"a",   "\"",     "\\",         "\n",
                                          "<&>", "\u00e9", "\U0001F3B5", ",",
                                          "'",   "\t",     "\x7f",       std::string(1, '\0')};
    std::string text;
    for (std::size_t n = Below(5); n > 0; --n) text += kPieces[Below(std::size(kPieces))];
    return text;
  }

  std::string Name() { return Flag() ? Text() : Text() + "\xff\xc3(" + Text(); }

 private:
  std::mt19937_64 generator;
};

std::optional<harvane::PeakValue> AnyPeak(Chance* chance) {
  if (chance->Flag()) return std::nullopt;
  return harvane::PeakValue{chance->Number(), chance->Number()};
}

TrackValues AnyValues(Chance* chance) {
  TrackValues values;
  values.integratedLoudness = chance->NumberOrNone();
  values.loudnessRange = chance->NumberOrNone();
  values.maxTruePeak = AnyPeak(chance);
  values.maxShortTerm = AnyPeak(chance);
  values.maxMomentary = AnyPeak(chance);
  return values;
}

LoudnessSeries AnySeries(Chance* chance) {
  LoudnessSeries series;
  series.momentaryStep = std::abs(chance->Number());
  series.shortTermStep = std::abs(chance->Number());
  for (auto* const values : {&series.momentary, &series.shortTerm}) {
    for (std::size_t n = chance->Below(20); n > 0; --n) {
      values->push_back(chance->Flag() ? std::optional(chance->Single()) : std::nullopt);
    }
  }
  return series;
}

TrackResult AnyTrack(Chance* chance) {
  TrackResult track;
  track.firstChannel = chance->Whole<int>();
  track.lastChannel = chance->Whole<int>();
  for (std::size_t n = chance->Below(3); n > 0; --n) {
    track.channelOrder.push_back(1 + static_cast<int>(chance->Below(64)));
  }
  track.layout = chance->Text();
  track.action = static_cast<harvane::TrackAction>(chance->Below(5));
  track.before = AnyValues(chance);
  if (chance->Flag()) track.after = AnyValues(chance);
  track.gainDb = chance->NumberOrNone();
  track.isLimited = chance->Flag();
  track.delayFrames = chance->Whole<int>();
  if (chance->Flag()) {
    track.convergence = {chance->Whole<int>(), chance->Flag(), chance->Number(), chance->Number(),
                         chance->Number()};
  }
  if (chance->Flag()) track.crossCheck = AnyValues(chance);
  for (std::size_t n = chance->Below(3); n > 0; --n) {
    track.verdicts.push_back({chance->Text(), chance->Text(), chance->NumberOrNone(),
                              chance->NumberOrNone(), static_cast<Verdict>(chance->Below(3))});
  }
  if (chance->Flag()) track.seriesBefore = AnySeries(chance);
  if (chance->Flag()) track.seriesAfter = AnySeries(chance);
  return track;
}

FileResult AnyFile(Chance* chance) {
  FileResult file;
  file.input = chance->Name();
  file.output = chance->Name();
  file.status = static_cast<FileStatus>(chance->Below(7));
  file.error = chance->Text();
  file.sampleRate = chance->Whole<int>();
  file.channels = chance->Whole<int>();
  file.frames = chance->Whole<std::int64_t>();
  file.layout = chance->Text();
  file.reduction = chance->Text();
  for (std::size_t n = chance->Below(3); n > 0; --n) file.notes.push_back(chance->Text());
  file.wallSeconds = std::abs(chance->Number());
  for (std::size_t n = chance->Below(3); n > 0; --n) file.tracks.push_back(AnyTrack(chance));
  return file;
}

// ---- every field ---------------------------------------------------------------------------
// The bindings name all members of a record: a new one does not compile until it stands here too.

class Listing {
 public:
  void Add(const std::string& value) { text += std::to_string(value.size()) + ":" + value + "\n"; }
  void Add(bool value) { Add(std::string(value ? "true" : "false")); }
  void Add(int value) { Add(std::to_string(value)); }
  void Add(std::int64_t value) { Add(std::to_string(value)); }

  void Add(double value) {
    std::int64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    Add(bits);
  }

  void Add(float value) {
    std::int32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    Add(int{bits});
  }

  template <class Value>
  void Add(const std::optional<Value>& value) {
    Add(value.has_value());
    if (value) Add(*value);
  }

  template <class Value>
  void Add(const std::vector<Value>& values) {
    Add(static_cast<std::int64_t>(values.size()));
    for (const Value& value : values) Add(value);
  }

  void Add(const harvane::PeakValue& peak) {
    const auto& [value, seconds] = peak;
    AddAll(value, seconds);
  }

  void Add(const TrackValues& values) {
    const auto& [integrated, range, truePeak, shortTerm, momentary] = values;
    AddAll(integrated, range, truePeak, shortTerm, momentary);
  }

  void Add(const LoudnessSeries& series) {
    const auto& [momentaryStep, shortTermStep, momentary, shortTerm] = series;
    AddAll(momentaryStep, shortTermStep, momentary, shortTerm);
  }

  void Add(const harvane::RuleVerdict& rule) {
    const auto& [name, wanted, value, excess, verdict] = rule;
    AddAll(name, wanted, value, excess, static_cast<int>(verdict));
  }

  void Add(const harvane::Convergence& convergence) {
    const auto& [jobs, isReached, missedLu, loudness, maxTruePeak] = convergence;
    AddAll(jobs, isReached, missedLu, loudness, maxTruePeak);
  }

  void Add(const TrackResult& track) {
    const auto& [firstChannel, lastChannel, channelOrder, layout, action, before, after, gainDb,
                 isLimited, delayFrames, convergence, crossCheck, verdicts, seriesBefore,
                 seriesAfter] = track;
    AddAll(firstChannel, lastChannel, channelOrder, layout, static_cast<int>(action), before, after,
           gainDb, isLimited, delayFrames, convergence, crossCheck, verdicts, seriesBefore,
           seriesAfter);
  }

  void Add(const FileResult& file) {
    const auto& [input, output, status, error, sampleRate, channels, frames, layout, reduction,
                 notes, wallSeconds, tracks] = file;
    AddAll(input, output, static_cast<int>(status), error, sampleRate, channels, frames, layout,
           reduction, notes, wallSeconds, tracks);
  }

  void Add(const RunResult& run) {
    const auto& [command, preset, version, targetLoudness, toleranceLu, maxTruePeak, files] = run;
    AddAll(command, preset, version, targetLoudness, toleranceLu, maxTruePeak, files);
  }

  const std::string& Text() const { return text; }

 private:
  template <class... Values>
  void AddAll(const Values&... values) {
    (Add(values), ...);
  }

  std::string text;
};

}  // namespace

LoudnessSeries WavySeries(double seconds, float middle) {
  LoudnessSeries series;
  AppendWave(seconds, series.momentaryStep, middle, 3.0F, &series.momentary);
  AppendWave(seconds, series.shortTermStep, middle, 1.5F, &series.shortTerm);
  return series;
}

TrackResult FullTrack() {
  TrackResult track;
  track.firstChannel = 1;
  track.lastChannel = 2;
  track.layout = "stereo";
  track.action = harvane::TrackAction::kProcessed;
  track.before = BeforeValues();
  track.after = AfterValues();
  track.gainDb = -4.75;
  track.isLimited = true;
  track.delayFrames = 95;
  track.convergence = {3, false, 0.75, -22.25, -1.25};
  track.crossCheck = AfterValues();
  track.crossCheck->integratedLoudness = -23.7421875;
  track.verdicts = {
      {"integratedLoudness", "-23.0 \u00b10.5 LUFS", -23.75, 0.25, Verdict::kFail},
      {"maxTruePeak", "at most -1.0 dBTP", -1.5, std::nullopt, Verdict::kPass},
  };
  track.seriesBefore = WavySeries(25.0, -18.0F);
  track.seriesAfter = WavySeries(25.0, -23.5F);
  return track;
}

FileResult FullFile() {
  TrackResult quiet;
  quiet.firstChannel = 3;
  quiet.lastChannel = 3;
  quiet.layout = "mono";
  quiet.action = harvane::TrackAction::kKeptQuiet;
  quiet.after = TrackValues();
  quiet.verdicts = {{"integratedLoudness", "-23.0 \u00b10.5 LUFS", std::nullopt, std::nullopt,
                     Verdict::kNotMeasured}};
  FileResult file;
  file.input = "in/Caf\u00e9 <1>, \"final\".wav";
  file.output = "out/Caf\u00e9 <1>, \"final\".wav";
  file.sampleRate = 48000;
  file.channels = 3;
  file.frames = 1200000;
  file.layout = "2,1";
  file.reduction = "24 bits cut to 16";
  file.notes = {"track 1 comes out 95 frames (1.979 ms) late"};
  file.wallSeconds = 0.5;
  file.tracks = {FullTrack(), quiet};
  return file;
}

RunResult FullRun() {
  FileResult broken;
  broken.input = "in/broken.wav";
  broken.status = FileStatus::kFailed;
  broken.error = "is no audio file";
  FileResult crashed;
  crashed.input = "in/storm.wav";
  crashed.output = "out/storm.wav";
  crashed.status = FileStatus::kCrashed;
  crashed.error = "the worker process ended by signal 6";
  RunResult run;
  run.command = "normalise";
  run.preset = "r128";
  run.version = "1.0.0";
  run.targetLoudness = -23.0;
  run.toleranceLu = 0.5;
  run.maxTruePeak = -1.0;
  run.files = {FullFile(), broken, crashed};
  return run;
}

RunResult AnyRun(std::uint64_t seed) {
  Chance chance(seed);
  RunResult run;
  run.command = chance.Text();
  run.preset = chance.Text();
  run.version = chance.Text();
  run.targetLoudness = chance.NumberOrNone();
  run.toleranceLu = chance.NumberOrNone();
  run.maxTruePeak = chance.NumberOrNone();
  for (std::size_t n = chance.Below(4); n > 0; --n) run.files.push_back(AnyFile(&chance));
  return run;
}

std::string Everything(const RunResult& run) {
  Listing listing;
  listing.Add(run);
  return listing.Text();
}

}  // namespace support
