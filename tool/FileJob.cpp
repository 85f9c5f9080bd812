#include "tool/FileJob.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "host/AudioFile.h"
#include "host/FileAccess.h"
#include "host/FileError.h"
#include "host/JobChecks.h"
#include "normalisation/GainDecision.h"
#include "parameters/ChannelLayouts.h"
#include "tool/CrossCheck.h"
#include "tool/ModuleJob.h"
#include "tool/OutputAssembly.h"
#include "tool/OutputMeter.h"
#include "tool/ParameterReading.h"
#include "tool/TargetSearch.h"
#include "tool/TrackLayout.h"
#include "tool/TrackMeter.h"
#include "tool/Verdicts.h"
#include "tool/results/ResultNumbers.h"

namespace harvane {
namespace {

constexpr std::chrono::milliseconds kWakeUpInterval{5000};
constexpr std::chrono::milliseconds kWakeUpMargin{500};

struct Interrupted {};

std::size_t Index(int i) { return static_cast<std::size_t>(i); }

std::optional<double> Measured(float value) {
  if (value == kNotMeasured || !std::isfinite(value)) return std::nullopt;
  return ShortestDouble(value);
}

std::optional<PeakValue> MeasuredPeak(float value, int position, int sampleRate) {
  if (!Measured(value)) return std::nullopt;
  return PeakValue{*Measured(value), static_cast<double>(position) / sampleRate};
}

// Of a LogMeasurement or a TrackMeasurement.
template <class Measurement>
TrackValues ValuesOf(const Measurement& measurement, int sampleRate) {
  return {Measured(measurement.integratedLoudness), Measured(measurement.loudnessRange),
          MeasuredPeak(measurement.maxTruePeak, measurement.maxTruePeakPosition, sampleRate),
          MeasuredPeak(measurement.maxShortTerm, measurement.maxShortTermPosition, sampleRate),
          MeasuredPeak(measurement.maxMomentary, measurement.maxMomentaryPosition, sampleRate)};
}

const char* LayoutName(int format) {
  switch (format) {
    case 1:
      return "mono";
    case 2:
      return "stereo";
    default:
      return "5.1";
  }
}

// What hears one track beside the module.
struct Ears {
  std::unique_ptr<CrossCheck> check;
  std::unique_ptr<TrackMeter> series;

  void Hear(const std::int16_t* interleaved, std::size_t frames) const {
    if (check) check->Hear(interleaved, frames);
    if (series) series->Hear(interleaved, frames);
  }
};

// A track on its way through the job.
struct Track {
  const JobLayout::Track* place = nullptr;
  std::string name;  // "track 2 (channels 3-4)"
  ModuleJob* job = nullptr;
  std::size_t indexInJob = 0;
  LogMeasurement before{};
  std::optional<TrackValues> after;  // of what is written, where it is processed
  std::optional<LoudnessSeries> seriesAfter;
  GainDecision decision{};
  TrackAction action = TrackAction::kMeasured;
  std::optional<Convergence> convergence;
  Ears earsBefore;
  std::unique_ptr<CrossCheck> checkAfter;

  bool IsProcessed() const { return action == TrackAction::kProcessed; }
  bool IsLimited() const { return IsProcessed() && decision.limiterNeeded; }
};

// The trials of one track that is to converge.
struct Search {
  Track* track;
  TargetSearch search;
};

// One of them, and what hears its output as the file would have it.
struct Trial {
  Trial(Search* search, const JobOptions& options, const JobLayout& layout, int sampleRate,
        const std::string& document, int skip)
      : search(search),
        job(options.module, layout, sampleRate, document),
        meter({{layout.tracks.front().moduleChannels, TrackMeter::Wanted::kValues, {}}},
              layout.moduleChannels, sampleRate),
        skip(skip),
        toSkip(Index(skip)) {
    if (!options.isCrossChecked) return;
    check = std::make_unique<CrossCheck>(layout.tracks.front().moduleChannels,
                                         layout.moduleChannels, sampleRate);
  }

  void Hear() {
    const std::size_t skipped = std::min(toSkip, job.OutputFrames());
    toSkip -= skipped;
    const std::int16_t* const heard = job.Output().data() + skipped * job.ModuleChannels();
    const std::size_t frames = job.OutputFrames() - skipped;
    meter.Hear(heard, frames);
    if (check) check->Hear(heard, frames);
  }

  Search* search;
  ModuleJob job;
  OutputMeter meter;
  std::unique_ptr<CrossCheck> check;
  int skip;  // frames that --align drops
  std::size_t toSkip;
};

class FileRun {
 public:
  FileRun(const JobOptions& options, const std::string& input, const std::string& output,
          const ProgressSink* progress, FileResult* result)
      : options(options),
        input(input),
        output(output),
        progress(progress),
        result(result),
        parameters(options.parameters),
        rules(options.rules),
        reader(input),
        info(reader.Info()) {
    result->sampleRate = info.sampleRate;
    result->channels = info.channels;
    result->frames = std::max<std::int64_t>(info.frames, 0);
    result->reduction = info.reduction;
  }

  void Run() {
    Divide();
    if (options.kind == JobKind::kNormalise) {
      Normalise();
    } else {
      StartJobs(1);
      FirstPass("measuring");
      EndJobs();
      FillResults();
      AwaitLog();
    }
  }

 private:
  // ---- before the passes

  void Divide() {
    CheckLength(input, info.frames);
    std::vector<int> formats = options.groupFormats;
    if (!options.parameterDocument.empty()) formats = FormatsOfDocument();
    layout = DivideTracks(input, info, formats, options.channelMap);
    result->layout = layout.text;
    CheckRate(input, info.sampleRate, &result->notes);
    std::vector<int> surround;
    for (const JobLayout& job : layout.jobs) {
      for (const JobLayout::Track& track : job.tracks) AddTrack(track, &surround);
    }
    CheckSurroundOrder(info, surround, &result->notes);
    NoteFile(info, &result->notes);
    if (layout.jobs.size() > 1) {
      result->notes.push_back(
          fmt::format("note: one job takes {} groups; these tracks went through {} jobs",
                      kMaxGroups, layout.jobs.size()));
    }
  }

  void AddTrack(const JobLayout::Track& place, std::vector<int>* surround) {
    const std::vector<int>& channels = place.fileChannels;
    TrackResult one;
    const auto [first, last] = std::minmax_element(channels.begin(), channels.end());
    one.firstChannel = *first + 1;
    one.lastChannel = *last + 1;
    bool isRun = true;
    for (std::size_t k = 0; k < channels.size(); ++k) {
      isRun = isRun && channels[k] == channels[0] + static_cast<int>(k);
    }
    if (!isRun) {
      for (const int channel : channels) one.channelOrder.push_back(channel + 1);
    } else if (channels.size() > 2) {
      surround->push_back(channels.front());
    }
    one.layout = LayoutName(place.format);
    std::string list;
    if (!isRun) {
      list = fmt::format("channels {}", fmt::join(one.channelOrder, ", "));
    } else if (channels.size() == 1) {
      list = fmt::format("channel {}", one.firstChannel);
    } else {
      list = fmt::format("channels {}-{}", one.firstChannel, one.lastChannel);
    }
    Track track;
    track.place = &place;
    track.name = fmt::format("track {} ({})", tracks.size() + 1, list);
    tracks.push_back(std::move(track));
    result->tracks.push_back(std::move(one));
  }

  // Of the groups that a document names; takes over its parameters. What the module refuses is
  // refused by the module.
  std::vector<int> FormatsOfDocument() {
    const std::optional<ReadParameters> read = ReadParameterDocument(options.parameterDocument);
    if (read && (read->numberOfGroups < 1 || read->numberOfGroups > kMaxGroups)) {
      throw FileError(input, fmt::format("the parameter document has {} groups, with which the "
                                         "module ends the process; 1 to {} would be right",
                                         read->numberOfGroups, kMaxGroups));
    }
    JobLayout all;
    all.moduleChannels = std::min(info.channels, kMaxChannels);
    ModuleJob(options.module, all, info.sampleRate, options.parameterDocument).EndSequence();
    if (!read) throw FileError(input, "the parameter document cannot be read as XML");
    parameters = read->parameters;
    if (options.isConverged && rules.empty()) rules = ConvergenceRules(parameters);
    const int passes = parameters.numberOfPasses;
    if (options.kind == JobKind::kNormalise ? passes != 2 : passes != 1 && passes != 2) {
      throw FileError(input, fmt::format("the parameter document asks for {} pass{}; {} would be "
                                         "right",
                                         passes, passes == 1 ? "" : "es",
                                         options.kind == JobKind::kNormalise ? "2" : "1 or 2"));
    }
    std::vector<int> formats = parameters.groupFormats;
    formats.resize(Index(read->numberOfGroups));
    return formats;
  }

  std::string DocumentFor(const JobLayout& job, int passes, const JobParameters& base) const {
    JobParameters all = base;
    all.numberOfPasses = passes;
    all.groupFormats = job.groupFormats;
    const std::filesystem::path target = PathOf(output);
    all.sourceFileName = PathOf(input).filename().string();
    all.targetPath = target.parent_path().string();
    all.targetBaseName = target.stem().string();
    return ParameterDocument(all);
  }

  void StartJobs(int passes) {
    if (!options.module.empty()) {
      result->notes.push_back(
          "note: a module file tells no values; those shown are measured by harvane itself, "
          "over what went in and what came out");
    }
    std::size_t next = 0;
    for (const JobLayout& job : layout.jobs) {
      const std::string document = options.parameterDocument.empty()
                                       ? DocumentFor(job, passes, parameters)
                                       : options.parameterDocument;
      jobs.push_back(std::make_unique<ModuleJob>(options.module, job, info.sampleRate, document));
      for (std::size_t t = 0; t < job.tracks.size(); ++t, ++next) {
        tracks[next].job = jobs.back().get();
        tracks[next].indexInJob = t;
      }
    }
  }

  // ---- passes

  // All frames of the file from the first one on.
  template <class Take>
  std::int64_t ReadAll(const std::string& step, Take take) {
    if (isRead) reader.Rewind();
    isRead = true;
    std::int64_t done = 0;
    while (const std::size_t count = reader.Read(kUnitFrames, &block)) {
      done += static_cast<std::int64_t>(count);
      CheckLength(input, done);
      take(block.data(), count);
      if (progress != nullptr && *progress &&
          !(*progress)({step, done, frames > 0 ? frames : info.frames, info.sampleRate})) {
        throw Interrupted();
      }
    }
    if (frames >= 0 && done != frames) {
      throw FileError(input,
                      fmt::format("gave {} frames at first and {} the second time", frames, done));
    }
    return done;
  }

  std::unique_ptr<CrossCheck> CheckOf(const Track& track) const {
    return std::make_unique<CrossCheck>(track.place->fileChannels, info.channels, info.sampleRate);
  }

  void FirstPass(const std::string& step) {
    // What comes in is judged where nothing else comes out.
    const bool isJudged = options.kind != JobKind::kNormalise || options.toleranceLu;
    for (Track& track : tracks) {
      if (options.isCrossChecked && isJudged) track.earsBefore.check = CheckOf(track);
      if (!options.hasSeries) continue;
      track.earsBefore.series = std::make_unique<TrackMeter>(
          track.place->fileChannels, info.channels, info.sampleRate, TrackMeter::Wanted::kSeries);
    }
    for (const auto& job : jobs) job->StartPass(0);
    frames = ReadAll(step, [this](const std::int16_t* file, std::size_t count) {
      for (const auto& job : jobs) job->Deliver(file, count, Index(info.channels));
      for (const Track& track : tracks) track.earsBefore.Hear(file, count);
      KeepEnd(file, count);
    });
    result->frames = frames;
    for (const auto& job : jobs) {
      const std::vector<LogMeasurement> measured = job->EndPass();
      for (Track& track : tracks) {
        if (track.job == job.get()) track.before = measured.at(track.indexInJob);
      }
      logRows += measured.size();
    }
    if (frames == 0) throw FileError(input, "is empty: it holds no frame of audio");
    NoteReduction(reader.Counts(), &result->notes);
  }

  // The last second of what the header tells of.
  void KeepEnd(const std::int16_t* file, std::size_t count) {
    passed += static_cast<std::int64_t>(count);
    if (options.kind != JobKind::kNormalise || passed + info.sampleRate < info.frames) return;
    end.insert(end.end(), file, file + count * Index(info.channels));
    const std::size_t most = Index(info.sampleRate) * Index(info.channels);
    if (end.size() > most) {
      end.erase(end.begin(), end.end() - static_cast<std::ptrdiff_t>(most));
    }
  }

  // What the module's filters have heard last: of the end, whole chunks up to the last one.
  std::vector<std::int16_t> Remembered() const {
    const std::size_t chunk = TrackMeter::ChunkFrames(info.sampleRate);
    const std::size_t behind = static_cast<std::size_t>(frames) % chunk;
    const std::size_t kept = end.size() / Index(info.channels);
    if (kept < behind + chunk) return {};
    const std::size_t before = (kept - behind) % chunk;
    const auto at = [this](std::size_t frame) {
      return end.begin() + static_cast<std::ptrdiff_t>(frame * Index(info.channels));
    };
    return {at(before), at(kept - behind)};
  }

  void EndJobs() {
    for (const auto& job : jobs) job->EndSequence();
    for (const auto& job : ownJobs) job->EndSequence();
  }

  // ---- between the passes

  NormalisationTargets Targets(const JobParameters& of) const {
    return {static_cast<int>(of.mode), static_cast<float>(of.loudness),
            static_cast<float>(of.shortTermLoudness), static_cast<float>(of.maxTruePeak)};
  }

  static GainDecision Decide(const LogMeasurement& before, const NormalisationTargets& targets) {
    TrackMeasurement measured;
    measured.integratedLoudness = before.integratedLoudness;
    measured.maxShortTerm = before.maxShortTerm;
    measured.maxTruePeak = before.maxTruePeak;
    return DecideGain(measured, targets);
  }

  TrackAction ActionFor(const Track& track) const {
    const bool isProgramme = parameters.mode == NormalisationMode::kProgrammeLoudness;
    const float aimed = isProgramme ? track.before.integratedLoudness : track.before.maxShortTerm;
    if (aimed == kNotMeasured && !options.areQuietTracksProcessed) return TrackAction::kKeptQuiet;
    const auto ceiling = static_cast<float>(parameters.maxTruePeak);
    if (options.toleranceLu && std::abs(track.decision.gainDb) <= *options.toleranceLu &&
        track.before.maxTruePeak <= ceiling) {
      return TrackAction::kWithinTolerance;
    }
    if (options.isOnlyLowered && track.decision.gainDb > 0.0F) return TrackAction::kNotRaised;
    return TrackAction::kProcessed;
  }

  void DecideTracks() {
    for (Track& track : tracks) {
      track.decision = Decide(track.before, Targets(parameters));
      track.action = ActionFor(track);
      if (track.IsProcessed()) continue;
      if (track.before.maxTruePeak > static_cast<float>(parameters.maxTruePeak)) {
        result->notes.push_back(
            fmt::format("note: {} keeps its level and with it a true peak of {:.2f} dBTP",
                        track.name, track.before.maxTruePeak));
      }
    }
  }

  bool IsAnyProcessed() const {
    return std::any_of(tracks.begin(), tracks.end(),
                       [](const Track& track) { return track.IsProcessed(); });
  }

  // Inside the module a limited track at these rates ends the process, kept or not.
  void AvoidLimiterAtQuadRate() {
    if (!IsQuadRate(info.sampleRate)) return;
    for (const Track& track : tracks) {
      if (!track.IsLimited()) continue;
      throw FileError(
          input,
          fmt::format("{} would need the limiter, by {} dB, which the module does not have at {} "
                      "Hz; a lower target, a higher --true-peak or a lower sample rate would be "
                      "right",
                      track.name, -track.decision.headroomDb, info.sampleRate));
    }
    std::vector<Track*> moved;
    for (Track& track : tracks) {
      const bool isBesideLimited =
          std::any_of(tracks.begin(), tracks.end(), [&track](const Track& other) {
            return other.job == track.job && other.decision.limiterNeeded;
          });
      if (track.IsProcessed() && isBesideLimited) moved.push_back(&track);
    }
    for (Track* track : moved) GiveOwnJob(track, parameters);
  }

  // From here on the track comes from a job of its own, whose first pass is still to come.
  void GiveOwnJob(Track* track, const JobParameters& own) {
    JobLayout one = LayoutOfOne(*track->place);
    const std::string document = DocumentFor(one, 2, own);
    ownJobs.push_back(
        std::make_unique<ModuleJob>(options.module, std::move(one), info.sampleRate, document));
    track->job = ownJobs.back().get();
    track->indexInJob = 0;
    track->decision = Decide(track->before, Targets(own));
  }

  // ---- converging

  double AimedLoudness() const {
    return parameters.mode == NormalisationMode::kProgrammeLoudness ? parameters.loudness
                                                                    : parameters.shortTermLoudness;
  }

  JobParameters With(const TargetSearch::Parameters& tried) const {
    JobParameters own = parameters;
    (own.mode == NormalisationMode::kProgrammeLoudness ? own.loudness : own.shortTermLoudness) =
        tried.loudness;
    own.maxTruePeak = tried.maxTruePeak;
    return own;
  }

  void Converge() {
    std::vector<Search> searches;
    for (Track& track : tracks) {
      if (!track.IsLimited()) continue;
      searches.push_back(
          {&track, TargetSearch(parameters.mode, AimedLoudness(), parameters.maxTruePeak)});
    }
    for (int trial = 1;; ++trial) {
      std::vector<Search*> open;
      for (Search& search : searches) {
        if (!search.search.IsDone()) open.push_back(&search);
      }
      if (open.empty()) break;
      Try(trial, open);
    }
    for (Search& search : searches) TakeResult(&search);
  }

  void Try(int number, const std::vector<Search*>& open) {
    std::deque<Trial> trials;
    for (Search* search : open) {
      JobParameters own = With(search->search.Next());
      const bool isLimited = Decide(search->track->before, Targets(own)).limiterNeeded;
      own.logPath = LogPathFor(options, kNoLogFolder);
      const JobLayout one = LayoutOfOne(*search->track->place);
      trials.emplace_back(search, options, one, info.sampleRate, DocumentFor(one, 2, own),
                          options.isAligned && isLimited ? kLimiterDelayFrames : 0);
    }
    for (const std::uint32_t pass : {0U, 1U}) {
      for (Trial& trial : trials) trial.job.StartPass(pass);
      ReadAll(fmt::format("trial {}, pass {} of 2", number, pass + 1),
              [&](const std::int16_t* file, std::size_t count) {
                for (Trial& trial : trials) {
                  trial.job.Deliver(file, count, Index(info.channels));
                  if (pass > 0) trial.Hear();
                }
              });
      if (pass > 0) break;
      for (Trial& trial : trials) trial.job.EndPass();
    }
    for (Trial& trial : trials) FinishTrial(&trial);
  }

  void FinishTrial(Trial* trial) {
    if (trial->skip > 0) {
      const std::vector<std::int16_t> silence = SilentFrames(trial->skip);
      trial->job.Deliver(silence.data(), Index(trial->skip), Index(info.channels));
      trial->Hear();
    }
    trial->job.EndPass();
    trial->job.EndSequence();
    trial->meter.Finish();
    std::vector<TrackValues> values = {ValuesOf(trial->meter.Meter(0).Values(), info.sampleRate)};
    if (trial->check) values.push_back(trial->check->Finish());
    trial->search->search.Report(FoundIn(values));
  }

  // Of the file.
  std::vector<std::int16_t> SilentFrames(int count) const {
    return std::vector<std::int16_t>(Index(count) * Index(info.channels), 0);
  }

  // Empty where a meter could not measure what is aimed at.
  std::vector<TargetSearch::Found> FoundIn(const std::vector<TrackValues>& meters) const {
    std::vector<TargetSearch::Found> found;
    for (const TrackValues& values : meters) {
      std::optional<double> loudness = values.integratedLoudness;
      if (parameters.mode == NormalisationMode::kMaxShortTerm) {
        loudness = values.maxShortTerm ? std::optional(values.maxShortTerm->value) : std::nullopt;
      }
      if (!loudness || !values.maxTruePeak) return {};
      found.push_back({*loudness, values.maxTruePeak->value});
    }
    return found;
  }

  void TakeResult(Search* search) {
    const TargetSearch& done = search->search;
    const TargetSearch::Parameters& best = done.Best();
    Track* const track = search->track;
    Convergence convergence;
    convergence.jobs = done.Trials();
    convergence.isReached = done.IsReached();
    convergence.missedLu = done.IsReached() ? 0.0 : done.MissedLu();
    convergence.loudness = best.loudness;
    convergence.maxTruePeak = best.maxTruePeak;
    track->convergence = convergence;
    if (!done.IsReached()) {
      std::string missed;
      if (std::abs(done.MissedLu()) > kConvergenceLu) {
        missed = fmt::format(", {:.2f} LU are missing", done.MissedLu());
      }
      if (done.PeakExcessDb() > 0.0) {
        missed += fmt::format(", its true peak stays {:.2f} dB over", done.PeakExcessDb());
      }
      result->notes.push_back(
          fmt::format("warning: {} does not reach {} LUFS under {} dBTP: after {} jobs{}",
                      track->name, AimedLoudness(), parameters.maxTruePeak, done.Trials(), missed));
    }
    const bool isAsAsked =
        best.loudness == AimedLoudness() && best.maxTruePeak == parameters.maxTruePeak;
    if (!isAsAsked) GiveOwnJob(track, With(best));
  }

  // ---- the second pass

  void Normalise() {
    const Container container = ContainerForName(output, info.container);
    PendingFile pending(output, reader.Identity(), PendingFile::Naming::kNamelessIfPossible,
                        options.isOutputReplaced ? PendingFile::Existing::kReplaced
                                                 : PendingFile::Existing::kRefused);
    CheckSpace(container, std::max<std::int64_t>(info.frames, 0));
    StartJobs(2);
    FirstPass("pass 1 of 2");
    DecideTracks();
    if (options.toleranceLu && !IsAnyProcessed()) {
      EndJobs();
      result->status = FileStatus::kSkipped;
      result->output.clear();
      FillResults();
      AwaitLog();
      return;
    }
    AvoidLimiterAtQuadRate();
    if (options.isConverged) Converge();
    CheckSpace(container, frames);
    FirstPassOfOwnJobs();
    AudioWriter writer(&pending, container, info, frames, options.broadcastMode);
    SecondPass(&writer);
    if (options.broadcastMode == BroadcastMode::kUpdate) GiveLoudness(container, &writer);
    writer.Finish();
    EndJobs();
    pending.Commit();
    FillResults();
    NoteDelays();
    AwaitLog();
  }

  // What is kept bit for bit measures what it did.
  TrackValues ValuesAfter(const Track& track) const {
    return track.after ? *track.after : ValuesOf(track.before, info.sampleRate);
  }

  // A broadcast chunk speaks of one programme.
  void GiveLoudness(Container container, AudioWriter* writer) {
    if (!HasBroadcast(container)) {
      result->notes.push_back(fmt::format("note: {} has no broadcast chunk for --bext update",
                                          ContainerName(container)));
      return;
    }
    if (tracks.size() != 1) {
      result->notes.push_back(
          fmt::format("note: of {} tracks the broadcast chunk tells no loudness", tracks.size()));
      return;
    }
    const Track& track = tracks.front();
    const TrackValues values = ValuesAfter(track);
    const auto valueOf = [](const std::optional<PeakValue>& peak) {
      return peak ? std::optional<double>(peak->value) : std::nullopt;
    };
    writer->SetLoudness({values.integratedLoudness, values.loudnessRange,
                         valueOf(values.maxTruePeak), valueOf(values.maxMomentary),
                         valueOf(values.maxShortTerm)});
  }

  void CheckSpace(Container container, std::int64_t count) const {
    std::string reason;
    if (!CanHold(container, info, count, &reason)) throw FileError(output, reason);
  }

  void FirstPassOfOwnJobs() {
    if (ownJobs.empty()) return;
    for (const auto& job : ownJobs) job->StartPass(0);
    ReadAll("pass 1 of 2 again", [this](const std::int16_t* file, std::size_t count) {
      for (const auto& job : ownJobs) job->Deliver(file, count, Index(info.channels));
    });
    for (const auto& job : ownJobs) logRows += job->EndPass().size();
  }

  int DelayOf(const Track& track) const { return track.IsLimited() ? kLimiterDelayFrames : 0; }

  // Jobs of which a track is written.
  std::vector<ModuleJob*> JobsAtWork() const {
    std::vector<ModuleJob*> atWork;
    for (const Track& track : tracks) {
      if (!track.IsProcessed()) continue;
      if (std::find(atWork.begin(), atWork.end(), track.job) == atWork.end()) {
        atWork.push_back(track.job);
      }
    }
    return atWork;
  }

  void SecondPass(AudioWriter* writer) {
    const std::vector<ModuleJob*> atWork = JobsAtWork();
    std::vector<int> skips(Index(info.channels), 0);
    int longestSkip = 0;
    std::vector<bool> isFromModule(Index(info.channels), false);
    for (Track& track : tracks) {
      if (options.isCrossChecked) track.checkAfter = CheckOf(track);
      if (!track.IsProcessed()) continue;
      for (const int channel : track.place->fileChannels) {
        isFromModule[Index(channel)] = true;
        if (options.isAligned) skips[Index(channel)] = DelayOf(track);
      }
      if (options.isAligned) longestSkip = std::max(longestSkip, DelayOf(track));
    }
    const bool isPlain =
        atWork.size() == 1 && longestSkip == 0 && atWork.front()->IsIdentity(isFromModule.size()) &&
        std::find(isFromModule.begin(), isFromModule.end(), false) == isFromModule.end();
    OutputAssembly assembly(skips, frames);
    OutputMeter meter(MetersAfter(), info.channels, info.sampleRate);
    std::vector<std::int16_t> assembled;
    std::int64_t written = 0;
    const auto write = [&](std::vector<std::int16_t>* samples) {
      const std::size_t count = samples->size() / isFromModule.size();
      meter.Hear(samples->data(), count);
      for (const Track& track : tracks) {
        if (track.checkAfter) track.checkAfter->Hear(samples->data(), count);
      }
      writer->Write(samples);
      written += static_cast<std::int64_t>(count);
    };
    const auto take = [&](const std::int16_t* file, std::size_t count) {
      for (ModuleJob* job : atWork) job->Deliver(file, count, isFromModule.size());
      if (isPlain) {
        write(atWork.front()->OutputToTake());
        return;
      }
      Assemble(file, count, isFromModule, &assembly);
      assembly.Hand(&assembled);
      write(&assembled);
    };
    for (ModuleJob* job : atWork) job->StartPass(1);
    ReadAll("pass 2 of 2", take);
    if (longestSkip > 0) {
      // What a limited track still holds comes out before silence.
      const std::vector<std::int16_t> silence = SilentFrames(longestSkip);
      take(silence.data(), Index(longestSkip));
    }
    for (ModuleJob* job : atWork) {
      const std::vector<LogMeasurement> measured = job->EndPass();
      for (Track& track : tracks) {
        if (!track.IsProcessed() || track.job != job || measured.empty()) continue;
        track.after = ValuesOf(measured.at(track.indexInJob), info.sampleRate);
      }
      logRows += job->Layout().tracks.size();
    }
    meter.Finish();
    TakeMeasured(&meter);
    if (written != frames) {
      throw FileError(input, fmt::format("the module gave back {} of {} frames", written, frames));
    }
  }

  // True where the module's second pass would say what the file does if it remembered nothing: the
  // cut to 16 bits takes a few thousandths of a LU, nothing is clipped, and no frame moves. A
  // minute or less, and what is to converge, is measured all the same.
  bool IsModuleGoodEnough(const Track& track) const {
    constexpr std::int64_t kLongSeconds = 60;
    constexpr double kLoudEnough = -24.5;     // LUFS
    constexpr double kBelowFullScale = -0.5;  // dBTP
    if (!options.module.empty() || options.hasSeries || options.isConverged ||
        !track.IsProcessed() || IsQuadRate(info.sampleRate) ||
        frames < kLongSeconds * info.sampleRate || (options.isAligned && track.IsLimited())) {
      return false;
    }
    const double loudness = track.before.integratedLoudness + track.decision.gainDb;
    const double peak = track.IsLimited() ? parameters.maxTruePeak
                                          : track.before.maxTruePeak + track.decision.gainDb;
    return track.before.integratedLoudness != kNotMeasured && loudness >= kLoudEnough &&
           peak <= kBelowFullScale;
  }

  // A track that is kept measures what it did; only its loudness over time is its own.
  std::vector<OutputMeter::Track> MetersAfter() const {
    std::vector<OutputMeter::Track> meters;
    for (const Track& track : tracks) {
      if (!track.IsProcessed() && !options.hasSeries) continue;
      const auto wanted = !track.IsProcessed() ? TrackMeter::Wanted::kSeries
                          : options.hasSeries  ? TrackMeter::Wanted::kBoth
                                               : TrackMeter::Wanted::kValues;
      meters.push_back({track.place->fileChannels, wanted,
                        IsModuleGoodEnough(track) ? Remembered() : std::vector<std::int16_t>()});
    }
    return meters;
  }

  // In the order of MetersAfter.
  void TakeMeasured(OutputMeter* meters) {
    std::size_t next = 0;
    for (Track& track : tracks) {
      if (!track.IsProcessed() && !options.hasSeries) continue;
      TrackMeter& meter = meters->Meter(next++);
      const bool isMeasured = meters->IsMeasured(next - 1);
      if (track.IsProcessed() && isMeasured) {
        track.after = ValuesOf(meter.Values(), info.sampleRate);
      }
      if (options.hasSeries) track.seriesAfter = meter.TakeSeries();
    }
  }

  void Assemble(const std::int16_t* file, std::size_t count, const std::vector<bool>& isFromModule,
                OutputAssembly* assembly) const {
    for (std::size_t c = 0; c < isFromModule.size(); ++c) {
      if (!isFromModule[c]) assembly->Take(c, file + c, isFromModule.size(), count);
    }
    for (const Track& track : tracks) {
      if (!track.IsProcessed()) continue;
      const ModuleJob& job = *track.job;
      const JobLayout::Track& place = job.Layout().tracks[track.indexInJob];
      for (std::size_t k = 0; k < place.fileChannels.size(); ++k) {
        assembly->Take(Index(place.fileChannels[k]), job.Output().data() + place.moduleChannels[k],
                       job.ModuleChannels(), job.OutputFrames());
      }
    }
  }

  // ---- afterwards

  void FillResults() {
    const bool isWritten =
        options.kind == JobKind::kNormalise && result->status == FileStatus::kDone;
    for (std::size_t t = 0; t < tracks.size(); ++t) {
      Track& track = tracks[t];
      TrackResult& one = result->tracks[t];
      one.action = track.action;
      one.before = ValuesOf(track.before, info.sampleRate);
      one.convergence = track.convergence;
      if (isWritten) {
        one.after = ValuesAfter(track);
        one.gainDb = track.IsProcessed() ? ShortestDouble(track.decision.gainDb) : 0.0;
        one.isLimited = track.IsLimited();
        one.delayFrames = options.isAligned ? 0 : DelayOf(track);
      }
      CrossCheck* const check = isWritten ? track.checkAfter.get() : track.earsBefore.check.get();
      if (check != nullptr) one.crossCheck = check->Finish();
      if (track.earsBefore.series) one.seriesBefore = track.earsBefore.series->TakeSeries();
      one.seriesAfter = std::move(track.seriesAfter);
      if (options.kind == JobKind::kMeasure) continue;
      one.verdicts = Judge(rules, one.after.value_or(one.before));
      if (!one.crossCheck) continue;
      for (RuleVerdict& verdict : Judge(rules, *one.crossCheck, "crossCheck.")) {
        one.verdicts.push_back(std::move(verdict));
      }
    }
  }

  void NoteDelays() {
    if (options.isAligned) return;
    for (const Track& track : tracks) {
      if (!track.IsLimited()) continue;
      result->notes.push_back(fmt::format("note: {} was limited and comes out {} late", track.name,
                                          LimiterDelayText(info.sampleRate)));
    }
  }

  // For a module file with rows to write: its writer wakes up every 5 s and writes half of
  // those that wait, and so does unloading.
  void AwaitLog() {
    if (options.module.empty() || logRows < 2) return;
    if (!options.isLogAwaited) {
      result->notes.push_back(
          "note: of log rows that still wait, a module file drops half when it is let go; "
          "--wait-for-log keeps it until they are written");
      return;
    }
    const auto wakeUps = static_cast<int>(std::bit_width(logRows)) - 1;
    std::this_thread::sleep_for(wakeUps * kWakeUpInterval + kWakeUpMargin);
  }

  const JobOptions& options;
  const std::string& input;
  const std::string& output;
  const ProgressSink* progress;
  FileResult* result;
  JobParameters parameters;
  std::vector<Rule> rules;
  AudioReader reader;
  const AudioInfo& info;
  TrackLayout layout;
  std::vector<std::unique_ptr<ModuleJob>> jobs;     // by job of the layout
  std::vector<std::unique_ptr<ModuleJob>> ownJobs;  // of one track each
  std::vector<Track> tracks;
  std::vector<std::int16_t> block;
  std::int64_t frames = -1;  // of the file, once they were counted
  std::int64_t passed = 0;   // of them in the first pass
  std::vector<std::int16_t> end;
  bool isRead = false;
  std::size_t logRows = 0;
};

// A FileError names its file; the result does so already.
std::string WithoutName(const std::string& text, const std::string& name) {
  const std::string prefix = name + ": ";
  return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

void Fail(FileResult* result, FileStatus status, const std::string& error) {
  result->status = status;
  result->error = error;
}

}  // namespace

FileResult RunFileJob(const JobOptions& options, const std::string& input,
                      const std::string& output, const ProgressSink* progress) {
  const auto start = std::chrono::steady_clock::now();
  FileResult result;
  result.input = input;
  result.output = output;
  try {
    FileRun(options, input, output, progress, &result).Run();
  } catch (const Interrupted&) {
    result.status = FileStatus::kInterrupted;
  } catch (const ModuleRefusal& refusal) {
    Fail(&result, FileStatus::kRefused,
         fmt::format("the module's {} answered {} ({})", refusal.ExportName(), refusal.Code(),
                     MeaningOfResult(refusal.Code())));
  } catch (const ModuleDeath& death) {
    Fail(&result, FileStatus::kCrashed, death.what());
  } catch (const std::bad_alloc&) {
    Fail(&result, FileStatus::kFailed, "memory exhausted");
  } catch (const std::exception& failure) {
    Fail(&result, FileStatus::kFailed, WithoutName(failure.what(), input));
  }
  // Half of a result would be taken for all of it.
  if (result.status != FileStatus::kDone && result.status != FileStatus::kSkipped) {
    result.tracks.clear();
  }
  result.wallSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

}  // namespace harvane
