#include "tests/support/twin/Job.h"

#include <algorithm>

namespace twin {
namespace {

constexpr float kOverlap = 0.75f;

// The longest look back of any kernel is twelve samples.
void KeepNewest(std::vector<float>* history) {
  if (history->size() > kLookAheadFrames) {
    history->erase(history->begin(),
                   history->end() - static_cast<std::ptrdiff_t>(kLookAheadFrames));
  }
}

void TakeMaximum(float value, int position, float* maximum, std::int32_t* maximumPosition) {
  if (value > *maximum) {
    *maximum = value;
    *maximumPosition = position;
  }
}

std::vector<float> ValuesOf(const std::vector<MeterValue>& blocks) {
  std::vector<float> values;
  for (const MeterValue& block : blocks) values.push_back(block.value);
  return values;
}

}  // namespace

Job::Job(const JobSpec& jobSpec)
    : spec(jobSpec),
      layout(LayoutOf(spec.numberOfGroups, spec.formats)),
      blockSize(ChunkFrames(spec.sampleRate)),
      timecodeFrameRate(TimecodeFrameRate(spec.frameRate, spec.hasVideo, spec.frameRateNumerator,
                                          spec.frameRateDenominator)),
      bank(PolyphaseBankOf(spec.sampleRate)) {}

Job::Start Job::StartSequence() {
  tracks.clear();
  if (layout.pastLastGroup) return Start::kEndsProcess;
  if (layout.trackCount == -1) return Start::kRefused;
  if (layout.trackChannelCounts.empty()) return Start::kEndsProcess;
  for (int count : layout.trackChannelCounts) {
    TrackState track;
    track.channels.resize(static_cast<std::size_t>(count));
    const int momentary = MomentaryWindow(spec.sampleRate);
    const int shortTerm = ShortTermWindow(spec.sampleRate);
    track.momentary = {momentary, HopOf(momentary, kOverlap)};
    track.shortTerm = {shortTerm, HopOf(shortTerm, kOverlap)};
    track.momentaryLooks = {momentary, spec.sampleRate / 100};
    track.shortTermLooks = {shortTerm, spec.sampleRate / 10};
    track.limiter = DefaultLimiterSettings(spec.sampleRate);
    track.mode = 1;
    tracks.push_back(track);
  }
  for (int c = 0; c < spec.channels; ++c) {
    int position = 0;
    int track = 0;
    if (!LookupChannel(layout, c, &position, &track)) continue;
    tracks[static_cast<std::size_t>(track)].present.push_back(static_cast<std::size_t>(position));
  }
  return Start::kStarted;
}

PassResult Job::RunPass(int passNumber, const std::vector<std::int16_t>& input) {
  const std::size_t channels = static_cast<std::size_t>(spec.channels);
  const std::size_t frames = input.size() / channels;
  const bool isFirstOfTwo = spec.numberOfPasses == 2 && passNumber == 0;
  const bool isSecondOfTwo = spec.numberOfPasses == 2 && passNumber != 0;

  PassResult result;
  if (isSecondOfTwo && frames > 0 && SecondPassEndsProcess()) {
    result.endsProcess = true;
    return result;
  }

  std::vector<std::vector<float>> stream(channels);
  for (std::size_t i = 0; i < frames; ++i) {
    for (std::size_t c = 0; c < channels; ++c) {
      stream[c].push_back(FromInt16(input[i * channels + c]));
    }
  }
  if (isSecondOfTwo) {
    std::vector<std::vector<float>> processed;
    Process(stream, &processed);
    stream = processed;
  }

  for (std::size_t t = 0; t < tracks.size(); ++t) MeasureTrack(t, stream);

  if (!isFirstOfTwo) {
    for (std::size_t i = 0; i < frames; ++i) {
      for (std::size_t c = 0; c < channels; ++c) result.output.push_back(ToInt16(stream[c][i]));
    }
  }

  for (const TrackState& track : tracks) result.tracks.push_back(track.report);

  const bool endsAnalysis =
      passNumber == 0 && (spec.numberOfPasses == 1 || spec.numberOfPasses == 2);
  if (endsAnalysis) {
    for (TrackState& track : tracks) SetMode(&track, 0);
    result.rows = Rows("Analysis");
    if (spec.numberOfPasses == 2) DecideGains();
  } else if (spec.numberOfPasses == 2 && passNumber == 1) {
    result.rows = Rows("Process");
  }
  return result;
}

bool Job::SecondPassEndsProcess() const {
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    if (t >= decisions.size()) return true;
    if (tracks[t].present.size() < tracks[t].channels.size()) return true;
    if (decisions[t].limiterNeeded && bank.empty()) return true;
  }
  return false;
}

void Job::Process(const std::vector<std::vector<float>>& input,
                  std::vector<std::vector<float>>* output) {
  const std::size_t frames = input[0].size();
  *output = input;

  for (std::size_t t = 0; t < tracks.size(); ++t) {
    TrackState& track = tracks[t];
    std::vector<std::size_t> streamChannels;
    for (std::size_t c = 0; c < input.size(); ++c) {
      int position = 0;
      int owner = 0;
      if (LookupChannel(layout, static_cast<int>(c), &position, &owner) &&
          static_cast<std::size_t>(owner) == t) {
        streamChannels.push_back(c);
      }
    }

    for (std::size_t i = 0; i < frames; ++i) {
      std::vector<float> peaks;
      for (std::size_t k = 0; k < streamChannels.size(); ++k) {
        const float gained = static_cast<float>(double(input[streamChannels[k]][i]) *
                                                double(decisions[t].trackGain));
        if (!decisions[t].limiterNeeded) {
          (*output)[streamChannels[k]][i] = gained;
          continue;
        }
        track.channels[k].gained.push_back(gained);
        peaks.push_back(Abs(PeakEstimate(track.channels[k].gained, bank)));
      }
      if (!decisions[t].limiterNeeded) continue;

      float frameGain = 1.0f;
      const float peak = MaxOf(peaks, peaks.size());
      // Deliberate: silence freezes the limiter where it stands.
      if (peak != 0.0f) {
        track.limiterLevels = NextLevels(track.limiterLevels, peak, track.limiter);
        frameGain = track.limiterLevels.linearGain;
      }
      for (std::size_t k = 0; k < streamChannels.size(); ++k) {
        const std::vector<float>& gained = track.channels[k].gained;
        const float delayed =
            gained.size() > kDelayFrames ? gained[gained.size() - 1 - kDelayFrames] : 0.0f;
        (*output)[streamChannels[k]][i] = static_cast<float>(double(frameGain) * double(delayed));
      }
    }
    track.report.limiterPeakHold = track.limiterLevels.peakHold;
  }
}

void Job::MeasureTrack(std::size_t t, const std::vector<std::vector<float>>& stream) {
  TrackState& track = tracks[t];
  TrackValues& values = track.report.values;
  const KWeighting weighting = KWeightingOf(spec.sampleRate);
  const std::size_t chunkLength = static_cast<std::size_t>(blockSize);
  // Deliberate: what is left after the last whole chunk is dropped.
  const std::size_t chunks = stream[0].size() / chunkLength;

  for (std::size_t n = 0; n < chunks; ++n) {
    const int chunkPosition = static_cast<int>((n + 1) * chunkLength) - 1;
    for (std::size_t c = 0; c < stream.size(); ++c) {
      int position = 0;
      int owner = 0;
      if (!LookupChannel(layout, static_cast<int>(c), &position, &owner)) continue;
      if (static_cast<std::size_t>(owner) != t) continue;
      ChannelState& channel = track.channels[static_cast<std::size_t>(position)];
      std::vector<float> chunk;
      for (std::size_t i = 0; i < chunkLength; ++i) chunk.push_back(stream[c][n * chunkLength + i]);

      const std::vector<float> first =
          FilterBlock(chunk, weighting.first, &channel.firstInputs, &channel.firstOutputs);
      const std::vector<float> second =
          FilterBlock(first, weighting.second, &channel.secondInputs, &channel.secondOutputs);
      for (float sample : second) channel.weighted.push_back(sample);

      const float peak = TruePeakOfChunk(chunk, bank, &channel.peakPast);
      TakeMaximum(peak, chunkPosition, &values.maxTruePeak, &values.maxTruePeakPosition);

      KeepNewest(&channel.firstInputs);
      KeepNewest(&channel.firstOutputs);
      KeepNewest(&channel.secondInputs);
      KeepNewest(&channel.secondOutputs);
      KeepNewest(&channel.peakPast);
    }
    track.runPositions.push_back(chunkPosition);
  }

  track.report.momentary = NewBlocks(&track, &track.momentary);
  track.report.shortTerm = NewBlocks(&track, &track.shortTerm);
  for (const MeterValue& block : track.report.shortTerm) {
    track.shortTermOfSequence.push_back(block.value);
  }

  track.report.momentaryLooks = track.report.momentary;
  track.report.shortTermLooks = track.report.shortTerm;
  if (!spec.departures.maximaOfSeriesOnly) {
    track.report.momentaryLooks = NewBlocks(&track, &track.momentaryLooks);
    track.report.shortTermLooks = NewBlocks(&track, &track.shortTermLooks);
  }
  for (const MeterValue& look : track.report.momentaryLooks) {
    TakeMaximum(look.value, look.position, &values.maxMomentary, &values.maxMomentaryPosition);
  }
  for (const MeterValue& look : track.report.shortTermLooks) {
    TakeMaximum(look.value, look.position, &values.maxShortTerm, &values.maxShortTermPosition);
  }

  const RecentRange recent = RecentRangeOf(track.shortTermOfSequence);
  track.report.recentLow = recent.low;
  track.report.recentHigh = recent.high;

  if (track.mode == 1) {
    for (const SeriesUpdate& update :
         IntegratedSeries(ValuesOf(track.report.momentary), &track.integratedSeries)) {
      values.integratedLoudness = update.value;
    }
    for (const SeriesUpdate& update :
         RangeSeries(ValuesOf(track.report.shortTerm), &track.rangeSeries)) {
      values.loudnessRange = update.value;
    }
  }
  track.report.integratedRelativeGate = track.integratedSeries.relativeGate;
  track.report.rangeRelativeGate = track.rangeSeries.relativeGate;
}

// Deliberate: a block is complete with as many powers as the track has channels, whichever
// channels they came from.
std::vector<MeterValue> Job::NewBlocks(TrackState* track, SeriesOfBlocks* series) const {
  const std::vector<std::size_t> lengths(track->runPositions.size(),
                                         static_cast<std::size_t>(blockSize));
  const std::vector<BlockPlace> places = BlockPlaces(series->window, series->hop, lengths);

  std::vector<MeterValue> blocks;
  while (series->reported < places.size()) {
    const std::size_t firstOfRun = series->reported;
    std::size_t endOfRun = firstOfRun;
    while (endOfRun < places.size() && places[endOfRun].run == places[firstOfRun].run) ++endOfRun;

    for (std::size_t position : track->present) {
      for (std::size_t b = firstOfRun; b < endOfRun; ++b) {
        const float* samples = track->channels[position].weighted.data() + places[b].first;
        if (series->pendingPowers.empty()) {
          series->pendingPosition = track->runPositions[places[b].run];
        }
        series->pendingPowers.push_back(WeightedPower(
            samples, static_cast<std::size_t>(series->window), static_cast<int>(position)));
        if (series->pendingPowers.size() < track->channels.size()) continue;
        blocks.push_back({LoudnessOf(series->pendingPowers), series->pendingPosition});
        series->pendingPowers.clear();
      }
    }
    series->reported = endOfRun;
  }
  return blocks;
}

void Job::SetMode(TrackState* track, int mode) const {
  if (mode != track->mode) {
    track->runPositions.clear();
    track->momentary.reported = 0;
    track->shortTerm.reported = 0;
    track->momentaryLooks.reported = 0;
    track->shortTermLooks.reported = 0;
    for (ChannelState& channel : track->channels) channel.weighted.clear();
  }
  track->mode = mode;
}

std::vector<std::string> Job::Rows(const std::string& passName) const {
  const std::string name = spec.entryName.empty()
                               ? DefaultEntryName(spec.hour, spec.minute, spec.second)
                               : spec.entryName;
  std::vector<std::string> rows;
  int startChannel = 0;
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    const int count = layout.trackChannelCounts[t];
    rows.push_back(RowText(name, passName, startChannel, count, tracks[t].report.values,
                           timecodeFrameRate, spec.sampleRate));
    startChannel += count;
  }
  return rows;
}

void Job::DecideGains() {
  const Targets targets{spec.normalisationMode, spec.loudness, spec.shortTermLoudness, spec.maxTp};
  decisions.clear();
  for (TrackState& track : tracks) {
    TrackValues& values = track.report.values;
    decisions.push_back(
        DecideGain(targets, values.integratedLoudness, values.maxShortTerm, values.maxTruePeak));
    track.limiter = DefaultLimiterSettings(spec.sampleRate);
    track.limiter.threshold = decisions.back().limiterThreshold;
    values = TrackValues();
    track.integratedSeries.accepted.clear();
    track.rangeSeries.accepted.clear();
    SetMode(&track, 1);
  }
}

JobResult RunJob(const JobSpec& spec, const std::vector<std::int16_t>& interleavedInput) {
  Job job(spec);
  JobResult result;
  result.blockSize = job.GetBlockSize();
  result.timecodeFrameRate = job.GetTimecodeFrameRate();
  result.layout = job.GetLayout();

  const Job::Start start = job.StartSequence();
  result.endsProcess = start == Job::Start::kEndsProcess;
  result.sequenceRefused = start == Job::Start::kRefused;
  if (start != Job::Start::kStarted) return result;

  const int passCount = spec.numberOfPasses == 2 ? 2 : 1;
  for (int pass = 0; pass < passCount; ++pass) {
    const PassResult passResult = job.RunPass(pass, interleavedInput);
    if (passResult.endsProcess) {
      result.endsProcess = true;
      return result;
    }
    result.passes.push_back(passResult.tracks);
    result.rows.insert(result.rows.end(), passResult.rows.begin(), passResult.rows.end());
    result.output = passResult.output;
    if (pass == 0) result.decisions = job.GetDecisions();
  }
  for (const TrackReport& track : result.passes.back()) {
    result.limiterFinalPeakHold.push_back(track.limiterPeakHold);
  }
  return result;
}

}  // namespace twin
