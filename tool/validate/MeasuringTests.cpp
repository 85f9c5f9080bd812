// What a single pass measures, read back from the log.
//
// Expected values  by ITU-R BS.1770 a sine of 997 Hz with its peak at 0 dB of full scale stands at
//                  -3.01 LUFS on one channel; channels add their powers, those of the surrounds
//                  times 1.41, the low-frequency channel not at all. The sequences and their values
//                  are those of EBU Tech 3341 and 3342. Tolerances hold a tenth of rounding in the
//                  log, besides what those papers allow.

#include <array>
#include <cmath>

#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 180;
constexpr std::uint32_t kRate = 48000;
constexpr double kToneFrequency = 997.0;
constexpr double kLoudnessTolerance = 0.1;
// Half a tenth of rounding, and the filter's slope about 997 Hz.
constexpr double kCloseTolerance = 0.06;
constexpr double kMonoOffset = -3.01;

JobTexts SinglePassFor(const TestRun& run, const std::string& name) {
  JobTexts texts = TextsFor(run, "log", name);
  texts.numberOfPasses = "1";
  return texts;
}

// The rows of one single pass.
std::vector<LoggedTrack> RowsOf(TestRun& run, const JobTexts& texts, std::uint32_t sampleRate,
                                std::uint32_t channels, const Samples& samples,
                                std::size_t tracks) {
  RunJob(run, texts, sampleRate, channels, samples);
  std::vector<LoggedTrack> rows = run.TakeRows("log", static_cast<int>(tracks));
  run.Require(rows.size() == tracks, Joined(rows.size(), " rows, not ", tracks));
  return rows;
}

void MeasureTone(TestRun& run, std::uint32_t rate) {
  const Samples tone = Tone(kToneFrequency, -23.0, 10.0, rate);
  const LoggedTrack row =
      RowsOf(run, SinglePassFor(run, "tone"), rate, 2, OnChannels(tone, 2), 1)[0];
  run.ExpectNear(-23.0, row.integratedLoudness, kCloseTolerance, "integrated loudness");
  run.ExpectNear(-23.0, row.maxShortTerm, kCloseTolerance, "maximum short-term loudness");
  run.ExpectNear(-23.0, row.maxMomentary, kCloseTolerance, "maximum momentary loudness");
  run.ExpectNear(0.0, row.loudnessRange, kLoudnessTolerance, "loudness range");
  // Where there are no phases to interpolate with, the first samples of chunks are looked at.
  const bool hasPhases = rate <= 96000;
  run.Expect(row.maxTruePeak >= (hasPhases ? -23.1 : -23.6) && row.maxTruePeak <= -22.8,
             Joined("maximum true peak: ", row.maxTruePeak));
}

// Channels of the tracks of each layout: 1 mono, 2 stereo, 6 surround.
const std::vector<std::vector<int>>& Layouts() {
  static const std::vector<std::vector<int>> kLayouts = {{1},          {2}, {2, 2}, {2, 2, 2},
                                                         {2, 2, 2, 2}, {6}, {6, 2}, {2, 6}};
  return kLayouts;
}

LoggedFormat FormatOf(int channels) {
  if (channels == 1) return LoggedFormat::kMono;
  return channels == 2 ? LoggedFormat::kStereo : LoggedFormat::kSurround;
}

// Power of a track with the same tone on all its channels, as that of so many front channels.
double WeightOf(int channels) { return channels == 6 ? 3.0 + 2 * 1.41 : channels; }

void ExpectLevels(TestRun& run, const std::vector<int>& tracks,
                  const std::vector<LoggedTrack>& rows) {
  int first = 0;
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    const std::string track = Joined("track ", t + 1, " of ", tracks.size(), ": ");
    const double level = -20.0 - 3.0 * static_cast<double>(t);
    run.ExpectNear(level + kMonoOffset + 10.0 * std::log10(WeightOf(tracks[t])),
                   rows[t].integratedLoudness, kCloseTolerance, track + "integrated loudness");
    run.ExpectEqual(first, rows[t].firstChannel, track + "first channel");
    run.ExpectEqual(first + tracks[t] - 1, rows[t].lastChannel, track + "last channel");
    run.Expect(rows[t].format == FormatOf(tracks[t]), track + "another format");
    first += tracks[t];
  }
}

// A tone 3 dB lower on each track than on the one before, and noise on the channels of none.
void MeasureLayout(TestRun& run, std::size_t layout) {
  const std::vector<int>& tracks = Layouts().at(layout - 1);
  std::vector<Samples> channels;
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    const Samples tone = Tone(kToneFrequency, -20.0 - 3.0 * static_cast<double>(t), 3.0, kRate);
    channels.insert(channels.end(), static_cast<std::size_t>(tracks[t]), tone);
  }
  while (channels.size() < 8) channels.push_back(Noise(run.Seed(), channels[0].size(), 32767));
  JobTexts texts = SinglePassFor(run, "layout");
  texts.formats = {std::to_string(layout)};
  ExpectLevels(run, tracks, RowsOf(run, texts, kRate, 8, Interleaved(channels), tracks.size()));
}

// Mono, stereo, surround and stereo again, each group at a multiple of eight channels.
void MeasureGroups(TestRun& run) {
  const std::vector<int> tracks = {1, 2, 6, 2, 2};
  const std::vector<std::size_t> starts = {0, 8, 16, 22, 24};
  JobTexts texts = SinglePassFor(run, "groups");
  texts.numberOfGroups = "4";
  texts.formats = {"1", "2", "7", "2"};
  std::vector<Samples> channels(32, Samples(2 * kRate));
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    for (std::size_t c = 0; c < static_cast<std::size_t>(tracks[t]); ++c) {
      channels[starts[t] + c] =
          Tone(kToneFrequency, -20.0 - 3.0 * static_cast<double>(t), 2.0, kRate);
    }
  }
  ExpectLevels(run, tracks, RowsOf(run, texts, kRate, 32, Interleaved(channels), tracks.size()));
}

// One channel of a surround track at a time.
void WeighChannels(TestRun& run) {
  constexpr std::array kOffsets = {0.0, 0.0, 0.0, 0.0, 1.49, 1.49};  // 1.49 dB is 1.41
  constexpr std::size_t kLowFrequency = 3;
  for (std::size_t loud = 0; loud < kOffsets.size(); ++loud) {
    std::vector<Samples> channels(6, Samples(2 * kRate));
    channels[loud] = Tone(kToneFrequency, -20.0, 2.0, kRate);
    JobTexts texts = SinglePassFor(run, Joined("channel ", loud));
    texts.formats = {"6"};
    RunJob(run, texts, kRate, 6, Interleaved(channels));
  }
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 6);
  run.Require(rows.size() == 6, Joined(rows.size(), " rows, not 6"));
  for (std::size_t loud = 0; loud < kOffsets.size(); ++loud) {
    const double wanted = loud == kLowFrequency ? -70.0 : -20.0 + kMonoOffset + kOffsets[loud];
    run.ExpectNear(wanted, rows[loud].integratedLoudness, kCloseTolerance,
                   Joined("integrated loudness of channel ", loud + 1, " alone"));
  }
}

struct Section {
  double level;  // dBFS, the same on both channels of stereo; so many LUFS
  double seconds;
};

struct Sequence {
  const char* name;
  std::vector<Section> sections;
};

Samples SignalOf(const Sequence& sequence) {
  Samples signal;
  for (const Section& section : sequence.sections) {
    Append(&signal, Tone(1000.0, section.level, section.seconds, kRate));
  }
  return OnChannels(signal, 2);
}

void MeasureGating(TestRun& run) {
  const std::vector<Sequence> sequences = {
      {"loud between quiet", {{-36, 10}, {-23, 60}, {-36, 10}}},
      {"near silence around", {{-72, 10}, {-36, 10}, {-23, 60}, {-36, 10}, {-72, 10}}},
      {"loud middle", {{-26, 20}, {-20, 20.1}, {-26, 20}}}};
  for (const Sequence& sequence : sequences) {
    RunJob(run, SinglePassFor(run, sequence.name), kRate, 2, SignalOf(sequence));
  }
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 3);
  run.Require(rows.size() == 3, Joined(rows.size(), " rows, not 3"));
  for (const LoggedTrack& row : rows) {
    run.ExpectNear(-23.0, row.integratedLoudness, kLoudnessTolerance, row.name);
  }
}

void MeasureRanges(TestRun& run) {
  const std::vector<Sequence> sequences = {{"10", {{-20, 20}, {-30, 20}}},
                                           {"5", {{-20, 20}, {-15, 20}}},
                                           {"20", {{-40, 20}, {-20, 20}}}};
  constexpr double kRangeTolerance = 1.0;
  for (const Sequence& sequence : sequences) {
    RunJob(run, SinglePassFor(run, sequence.name), kRate, 2, SignalOf(sequence));
  }
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 3);
  run.Require(rows.size() == 3, Joined(rows.size(), " rows, not 3"));
  for (const LoggedTrack& row : rows) {
    run.ExpectNear(std::stod(row.name), row.loudnessRange, kRangeTolerance,
                   "loudness range of a step of " + row.name);
  }
}

// Peaks between the samples: a quarter of the rate, an eighth of a turn off, shows 3 dB less.
void MeasurePeaksBetweenSamples(TestRun& run) {
  constexpr double kBelow = 0.4;
  constexpr double kAbove = 0.2;
  for (const std::uint32_t rate : {44100U, 48000U}) {
    RunJob(run, SinglePassFor(run, std::to_string(rate)), rate, 2,
           OnChannels(Tone(rate / 4.0, -6.0, 1.0, rate, 0.125), 2));
  }
  for (const LoggedTrack& row : run.TakeRows("log", 2)) {
    run.Expect(row.maxTruePeak >= -6.0 - kBelow && row.maxTruePeak <= -6.0 + kAbove,
               Joined("maximum true peak at ", row.name, " Hz: ", row.maxTruePeak));
  }
}

double SecondsOf(const LoggedTime& time) {
  return time.hours * 3600.0 + time.minutes * 60.0 + time.seconds +
         time.framesOrMilliseconds / 1000.0;
}

// Five loud seconds from 10.0: maxima lie at the end of the first windows that are loud throughout.
void FindMaxima(TestRun& run) {
  Samples signal;
  for (const Section& section : {Section{-50, 10}, Section{-20, 5}, Section{-50, 5}}) {
    Append(&signal, Tone(1000.0, section.level, section.seconds, kRate));
  }
  const LoggedTrack row =
      RowsOf(run, SinglePassFor(run, "burst"), kRate, 2, OnChannels(signal, 2), 1)[0];
  run.ExpectNear(-20.0, row.maxShortTerm, kLoudnessTolerance, "maximum short-term loudness");
  run.ExpectNear(-20.0, row.maxMomentary, kLoudnessTolerance, "maximum momentary loudness");
  const auto within = [&run](const LoggedTime& time, double low, double high,
                             const std::string& what) {
    const double seconds = SecondsOf(time);
    run.Expect(seconds >= low && seconds <= high, Joined("time of the ", what, ": ", seconds));
  };
  within(row.maxTruePeakTime, 10.0, 15.1, "maximum true peak");
  within(row.maxShortTermTime, 13.0, 15.2, "maximum short-term loudness");
  within(row.maxMomentaryTime, 10.4, 15.2, "maximum momentary loudness");
}

void MeasureNothing(TestRun& run) {
  RunJob(run, SinglePassFor(run, "silence"), kRate, 2, Samples(std::size_t{2} * 5 * kRate));
  RunJob(run, SinglePassFor(run, "short"), kRate, 2,
         OnChannels(Tone(kToneFrequency, -20.0, 0.3, kRate), 2));
  RunJob(run, SinglePassFor(run, "empty"), kRate, 2, {});
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 3);
  run.Require(rows.size() == 3, Joined(rows.size(), " rows, not 3"));
  for (const LoggedTrack& row : rows) {
    run.ExpectEqual(-70.0, row.integratedLoudness, row.name + ": integrated loudness");
    run.ExpectEqual(-70.0, row.loudnessRange, row.name + ": loudness range");
    run.ExpectEqual(-70.0, row.maxShortTerm, row.name + ": maximum short-term loudness");
    run.ExpectEqual(-70.0, row.maxMomentary, row.name + ": maximum momentary loudness");
    run.ExpectEqual(0.0, SecondsOf(row.maxMomentaryTime), row.name + ": its time");
  }
  run.ExpectEqual(-70.0, rows[0].maxTruePeak, "silence: maximum true peak");
  run.ExpectNear(-20.0, rows[1].maxTruePeak, 0.1, "short: maximum true peak");
}

}  // namespace

void AddMeasuringTests(std::vector<ValidationTest>* tests) {
  const TestGroup group("Measuring.", kLimitSeconds, tests);
  for (const std::uint32_t rate : {48000U, 44100U, 88200U, 96000U, 176400U, 192000U}) {
    group.Add(Joined("ToneStandsAtItsLoudness.Rate", rate),
              [rate](TestRun& run) { MeasureTone(run, rate); });
  }
  for (std::size_t layout = 1; layout <= Layouts().size(); ++layout) {
    group.Add(Joined("TracksAreMeasuredApart.Layout", layout),
              [layout](TestRun& run) { MeasureLayout(run, layout); });
  }
  group.Add("GroupsBeginAtEveryEighthChannel", MeasureGroups);
  group.Add("SurroundChannelsHaveTheirWeights", WeighChannels);
  group.Add("GatesLeaveQuietPassagesOut", MeasureGating);
  group.Add("RangeIsThatOfTheSteps", MeasureRanges);
  group.Add("PeaksBetweenSamplesAreSeen", MeasurePeaksBetweenSamples);
  group.Add("MaximaLieWhereTheyAre", FindMaxima);
  group.Add("SilenceAndShortTracksStayUnmeasured", MeasureNothing);
}

}  // namespace harvane
