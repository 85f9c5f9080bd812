#include "host/JobRun.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

#include "host/AudioFile.h"
#include "host/ChannelMap.h"
#include "host/FileError.h"
#include "host/JobChecks.h"
#include "host/JobSession.h"
#include "host/PassRecorder.h"
#include "host/ProgressBar.h"
#include "parameters/ChannelLayouts.h"

namespace harvane {
namespace {

constexpr std::chrono::milliseconds kWakeUpInterval{5000};
constexpr std::chrono::milliseconds kWakeUpMargin{500};

void Note(const std::string& path, const std::string& text) {
  fmt::print(stderr, "harvane: {}: {}\n", path, text);
}

std::vector<int> FormatsFor(const JobRequest& request, const AudioInfo& info) {
  if (info.channels > kMaxChannels) {
    throw FileError(request.input, fmt::format("has {} channels; {} or fewer would be right",
                                               info.channels, kMaxChannels));
  }
  const std::string fitting = LayoutsFor(info.channels);
  const std::string right =
      fitting.empty() ? "a --layout of several groups, separated by commas, would be right"
                      : fmt::format("--layout {} would be right", fitting);
  if (request.groupFormats.empty()) {
    std::vector<int> automatic = AutomaticLayout(info.channels);
    if (!automatic.empty()) return automatic;
    throw FileError(request.input, fmt::format("has {} channels, which stand for no layout by "
                                               "themselves; {}",
                                               info.channels, right));
  }
  const int taken = ChannelMap(request.groupFormats).FileChannels();
  if (taken == info.channels) return request.groupFormats;
  throw FileError(
      request.input,
      fmt::format("has {} channel{}, too {} for the layout {}, which takes {}; {}", info.channels,
                  info.channels == 1 ? "" : "s", info.channels > taken ? "many" : "few",
                  LayoutText(request.groupFormats), taken, right));
}

struct PassLength {
  std::int64_t in = 0;   // frames delivered
  std::int64_t out = 0;  // frames given back
};

// One job from the opened input to the end of the sequence.
class JobRun {
 public:
  explicit JobRun(const JobRequest& request)
      : request(request),
        reader(request.input),
        formats(FormatsFor(request, reader.Info())),
        map(formats),
        format{static_cast<std::uint32_t>(reader.Info().sampleRate),
               static_cast<std::uint32_t>(map.ModuleChannels()),
               {}} {
    CheckLength(request.input, reader.Info().frames);
    std::vector<std::string> notes;
    CheckRate(request.input, reader.Info().sampleRate, &notes);
    CheckSurroundOrder(reader.Info(), map.SurroundTracks(), &notes);
    NoteFile(reader.Info(), &notes);
    for (const std::string& note : notes) Note(request.input, note);
  }

  AudioReader& Reader() { return reader; }

  void Start(int numberOfPasses) {
    if (request.module.empty()) {
      session = std::make_unique<JobSession>();
      recorder.Attach(session.get());
    } else {
      session = std::make_unique<JobSession>(request.module);
      Note(request.input,
           "note: a module file tells no values; those printed are measured by harvane itself, "
           "over what went in and what came out");
    }
    JobParameters parameters = request.parameters;
    parameters.numberOfPasses = numberOfPasses;
    parameters.groupFormats = formats;
    const std::filesystem::path output(request.output);
    parameters.sourceFileName = std::filesystem::path(request.input).filename().string();
    parameters.targetPath = output.parent_path().string();
    parameters.targetBaseName = output.stem().string();
    session->Configure(ParameterDocument(parameters), format);
    session->StartSequence();
  }

  // One pass over the whole input. What it measured: the input in the first pass,
  // the output in the second.
  std::vector<LogMeasurement> Pass(std::uint32_t number, const std::string& label,
                                   AudioWriter* writer, PassLength* length) {
    std::optional<Witness> witness;
    if (!request.module.empty()) witness.emplace(formats, format);
    session->StartPass(number);
    {
      ProgressBar bar(stderr, label, reader.Info().frames, reader.Info().sampleRate);
      while (const std::size_t frames = reader.Read(kUnitFrames, &block)) {
        length->in += static_cast<std::int64_t>(frames);
        CheckLength(request.input, length->in);
        Unit(frames, writer, witness ? &*witness : nullptr, length);
        bar.Update(length->in);
      }
    }
    session->EndPass();
    return witness ? witness->Finish() : recorder.Take();
  }

  void EndSequence() { session->EndSequence(); }

  // For a module file with so many rows of this job to write: its writer wakes up
  // every 5 s and writes half of those that wait, and so does unloading.
  void AwaitLog(std::size_t rows) const {
    if (request.module.empty() || rows < 2) return;
    if (!request.isLogAwaited) {
      Note(request.input,
           "note: of log rows that still wait, a module file drops half when it is let go; "
           "--wait-for-log keeps it until they are written");
      return;
    }
    const auto wakeUps = static_cast<int>(std::bit_width(rows)) - 1;
    std::this_thread::sleep_for(wakeUps * kWakeUpInterval + kWakeUpMargin);
  }

  void NoteCounts() {
    std::vector<std::string> notes;
    NoteReduction(reader.Counts(), &notes);
    for (const std::string& note : notes) Note(request.input, note);
  }

 private:
  void Unit(std::size_t frames, AudioWriter* writer, Witness* witness, PassLength* length) {
    const auto count = static_cast<std::uint32_t>(frames);
    const std::int16_t* delivered = block.data();
    if (!map.IsIdentity()) {
      map.Expand(block.data(), frames, &row);
      delivered = row.data();
    }
    output.clear();
    session->Deliver(delivered, count, &output);
    const std::size_t outFrames = output.size() / format.channels;
    length->out += static_cast<std::int64_t>(outFrames);
    if (witness != nullptr) {
      if (writer == nullptr) {
        witness->Hear(delivered, count);
      } else {
        witness->Hear(output.data(), static_cast<std::uint32_t>(outFrames));
      }
    }
    if (writer == nullptr) return;
    if (map.IsIdentity()) {
      writer->Write(&output);
    } else {
      map.Extract(output.data(), outFrames, &block);
      writer->Write(&block);
    }
  }

  const JobRequest& request;
  AudioReader reader;
  std::vector<int> formats;
  ChannelMap map;
  SessionFormat format;
  PassRecorder recorder;
  std::unique_ptr<JobSession> session;
  std::vector<std::int16_t> block;   // the file's frames
  std::vector<std::int16_t> row;     // the module's
  std::vector<std::int16_t> output;  // the module's, given back
};

// Runs `job` with the module's refusals named by the file they came with.
template <class Job>
auto Named(const std::string& path, Job job) {
  try {
    return job();
  } catch (const ModuleRefusal& refusal) {
    throw FileError(path, fmt::format("the module's {} answered {} ({})", refusal.ExportName(),
                                      refusal.Code(), MeaningOfResult(refusal.Code())));
  }
}

std::vector<TrackReport> Decided(const std::vector<LogMeasurement>& before,
                                 const JobParameters& parameters) {
  const NormalisationTargets targets = {
      static_cast<int>(parameters.mode), static_cast<float>(parameters.loudness),
      static_cast<float>(parameters.shortTermLoudness), static_cast<float>(parameters.maxTruePeak)};
  std::vector<TrackReport> tracks;
  for (const LogMeasurement& measurement : before) {
    TrackMeasurement measured;
    measured.integratedLoudness = measurement.integratedLoudness;
    measured.maxShortTerm = measurement.maxShortTerm;
    measured.maxTruePeak = measurement.maxTruePeak;
    tracks.push_back({measurement, {}, DecideGain(measured, targets)});
  }
  return tracks;
}

void RefuseLimiterAtQuadRate(const JobRequest& request, int rate,
                             const std::vector<TrackReport>& tracks) {
  if (!IsQuadRate(rate)) return;
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    if (!tracks[t].decision->limiterNeeded) continue;
    throw FileError(
        request.input,
        fmt::format("{} would need the limiter, by {} dB, which the module does not have at {} Hz; "
                    "a lower target, a higher --true-peak or a lower sample rate would be right",
                    TrackName(t, tracks[t].before), -tracks[t].decision->headroomDb, rate));
  }
}

void NoteDelays(const JobRequest& request, int rate, const std::vector<TrackReport>& tracks) {
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    if (!tracks[t].decision->limiterNeeded) continue;
    Note(request.output, fmt::format("note: {} was limited and comes out {} late",
                                     TrackName(t, tracks[t].before), LimiterDelayText(rate)));
  }
}

}  // namespace

std::vector<TrackReport> MeasureFile(const JobRequest& request) {
  return Named(request.input, [&] {
    JobRun run(request);
    run.Start(1);
    PassLength length;
    const std::vector<LogMeasurement> measured = run.Pass(0, "measuring", nullptr, &length);
    if (length.in == 0) throw FileError(request.input, "is empty: it holds no frame of audio");
    run.NoteCounts();
    run.EndSequence();
    run.AwaitLog(measured.size());
    std::vector<TrackReport> tracks;
    for (const LogMeasurement& measurement : measured) tracks.push_back({measurement, {}, {}});
    return tracks;
  });
}

std::vector<TrackReport> NormaliseFile(const JobRequest& request) {
  return Named(request.input, [&] {
    JobRun run(request);
    const AudioInfo& info = run.Reader().Info();
    const Container container = ContainerForName(request.output, info.container);
    PendingFile pending(request.output, run.Reader().Identity());
    const auto checkSpace = [&](std::int64_t frames) {
      std::string reason;
      if (!CanHold(container, info, frames, &reason)) throw FileError(request.output, reason);
    };
    checkSpace(std::max<std::int64_t>(info.frames, 0));

    run.Start(2);
    PassLength first;
    std::vector<TrackReport> tracks =
        Decided(run.Pass(0, "pass 1 of 2", nullptr, &first), request.parameters);
    if (first.in == 0) throw FileError(request.input, "is empty: it holds no frame of audio");
    run.NoteCounts();
    RefuseLimiterAtQuadRate(request, info.sampleRate, tracks);
    checkSpace(first.in);

    run.Reader().Rewind();
    AudioWriter writer(&pending, container, info, first.in);
    PassLength second;
    const std::vector<LogMeasurement> after = run.Pass(1, "pass 2 of 2", &writer, &second);
    if (second.in != first.in) {
      throw FileError(request.input, fmt::format("gave {} frames at first and {} the second time",
                                                 first.in, second.in));
    }
    if (second.out != first.in) {
      throw FileError(request.input,
                      fmt::format("the module gave back {} of {} frames", second.out, first.in));
    }
    writer.Finish();
    run.EndSequence();
    pending.Commit();
    run.AwaitLog(tracks.size() + after.size());
    for (std::size_t t = 0; t < tracks.size(); ++t) tracks[t].after = after.at(t);
    NoteDelays(request, info.sampleRate, tracks);
    return tracks;
  });
}

}  // namespace harvane
