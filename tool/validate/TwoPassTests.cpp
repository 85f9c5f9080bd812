// Jobs of two passes: target, ceiling, delay and counts.
//
// Expected values  a sine of 997 Hz at A dB of full scale on both channels of a stereo track stands
//                  at A LUFS, so that at its target its level is the target. The limiter's curve
//                  has its threshold T 0.2 dB under MaxTP, a knee 12 dB wide and a ratio of 100: a
//                  level x becomes T + (x - T) / 100 beyond the knee, and in it x - 0.99 * (x - T +
//                  6)^2 / 24.

#include <algorithm>
#include <cmath>

#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 180;
constexpr std::uint32_t kRate = 48000;
constexpr double kToneFrequency = 997.0;
constexpr double kLevelTolerance = 0.03;    // dB: truncation to 16 bits, and the filter's slope
constexpr double kLimiterTolerance = 0.08;  // dB: the ripple of its twelve taps besides
constexpr std::ptrdiff_t kDelayFrames = 95;

std::ptrdiff_t FirstSound(const Samples& samples) {
  return std::find_if(samples.begin(), samples.end(), [](std::int16_t s) { return s != 0; }) -
         samples.begin();
}

// Level of the first channel of a steady tone's output, without its first and last tenths.
double SteadyLevel(const Samples& output, std::size_t channels) {
  const Samples channel = ChannelOf(output, 0, channels);
  return ToneLevel(channel, channel.size() / 10, channel.size() - channel.size() / 10);
}

void ReachTarget(TestRun& run, std::uint32_t rate) {
  const Samples tone = OnChannels(Tone(kToneFrequency, -30.0, 4.0, rate), 2);
  const Samples output = RunJob(run, TextsFor(run, "log", "raised"), rate, 2, tone);
  run.ExpectEqual(tone.size(), output.size(), "samples of the output");
  run.ExpectNear(-23.0, SteadyLevel(output, 2), kLevelTolerance, "level of a raised tone");
  JobTexts texts = TextsFor(run, "log", "lowered");
  texts.Loudness = "-29.5";
  const Samples lowered =
      RunJob(run, texts, rate, 2, OnChannels(Tone(kToneFrequency, -12.0, 4.0, rate), 2));
  run.ExpectNear(-29.5, SteadyLevel(lowered, 2), kLevelTolerance, "level of a lowered tone");
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 4);
  run.Require(rows.size() == 4, Joined(rows.size(), " rows, not 4"));
  constexpr double kWanted[] = {-30.0, -23.0, -12.0, -29.5};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const bool isAnalysis = i % 2 == 0;
    run.Expect(rows[i].pass == (isAnalysis ? LoggedPass::kAnalysis : LoggedPass::kProcess),
               Joined("row ", i + 1, " is of the other pass"));
    run.ExpectNear(kWanted[i], rows[i].integratedLoudness, 0.06,
                   Joined("integrated loudness in row ", i + 1));
  }
}

void ScaleAllSamplesAlike(TestRun& run) {
  const Samples samples = Noise(run.Seed(), 2 * 3 * kRate, 6000);
  JobTexts texts = TextsFor(run, "log", "noise");
  texts.MaxTP = "0";
  const Samples output = RunJob(run, texts, kRate, 2, samples);
  run.Require(samples.size() == output.size(),
              Joined(output.size(), " samples, not ", samples.size()));
  double product = 0.0;
  double power = 0.0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    product += double{1.0} * samples[i] * output[i];
    power += double{1.0} * samples[i] * samples[i];
  }
  const double gain = product / power;
  constexpr double kTruncation = 2.0;  // steps: of the sample itself, and of the mean gain
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double wanted = gain * samples[i];
    run.Require(
        std::fabs(output[i] - wanted) <= kTruncation,
        Joined("sample ", i, ": ", samples[i], " became ", output[i], " where the gain is ", gain));
  }
}

// A steady tone that the limiter must bring from `level`, in dB over MaxTP, to `wanted`.
void LimitTone(TestRun& run, std::uint32_t rate, double level, double wanted) {
  JobTexts texts = TextsFor(run, "log", "limited");
  texts.MaxTP = "-12";
  texts.Loudness = std::to_string(-12.0 + level);
  const Samples tone = OnChannels(Tone(kToneFrequency, -20.0, 4.0, rate), 2);
  const Samples output = RunJob(run, texts, rate, 2, tone);
  run.ExpectEqual(tone.size(), output.size(), "samples of the output");
  run.ExpectNear(-12.0 + wanted, SteadyLevel(output, 2), kLimiterTolerance,
                 Joined("level of a tone ", level, " dB over the ceiling at ", rate, " Hz"));
}

void HoldCeiling(TestRun& run) {
  for (const std::uint32_t rate : {44100U, 48000U, 88200U, 96000U}) {
    LimitTone(run, rate, 8.0, -0.2 + 8.2 / 100.0);
    LimitTone(run, rate, 3.0, 3.0 - 0.99 * 9.2 * 9.2 / 24.0);
  }
  constexpr std::size_t kJobs = 8;
  std::size_t processed = 0;
  for (const LoggedTrack& row : run.TakeRows("log", 2 * kJobs)) {
    if (row.pass != LoggedPass::kProcess) continue;
    ++processed;
    run.Expect(row.maxTruePeak <= -11.9, Joined("maximum true peak in the log: ", row.maxTruePeak));
  }
  run.ExpectEqual(kJobs, processed, "rows of second passes");
}

// Silence, then a quiet tone with a loud start: its track is limited where the ceiling is low.
Samples LateStart() {
  Samples signal = Silence(0.5, kRate);
  Append(&signal, Tone(1000.0, -4.0, 0.02, kRate, 0.25));
  Append(&signal, Tone(1000.0, -35.0, 3.0, kRate));
  return signal;
}

Samples QuietStart() {
  Samples signal = Silence(0.5, kRate);
  Append(&signal, Tone(1000.0, -35.0, 3.02, kRate, 0.25));
  return signal;
}

void DelayLimitedTracksOnly(TestRun& run) {
  JobTexts texts = TextsFor(run, "log", "late");
  texts.formats = {"3"};
  const Samples loud = LateStart();
  const Samples quiet = QuietStart();
  const Samples output = RunJob(run, texts, kRate, 4, Interleaved({loud, loud, quiet, quiet}));
  run.ExpectEqual(4 * loud.size(), output.size(), "samples of the output");
  for (std::size_t c = 0; c < 4; ++c) {
    const std::ptrdiff_t delay = FirstSound(ChannelOf(output, c, 4)) - FirstSound(loud);
    run.ExpectEqual(c < 2 ? kDelayFrames : 0, delay,
                    Joined("frames by which channel ", c + 1, " is late"));
  }
}

// The louder channel sets the reduction of both.
void ReduceChannelsAlike(TestRun& run) {
  JobTexts texts = TextsFor(run, "log", "pair");
  texts.MaxTP = "-12";
  texts.Loudness = "-6";
  const Samples left = Tone(kToneFrequency, -20.0, 4.0, kRate);
  const Samples right = Tone(kToneFrequency, -26.0, 4.0, kRate);
  const Samples output = RunJob(run, texts, kRate, 2, Interleaved({left, right}));
  const std::size_t first = left.size() / 10;
  const std::size_t last = left.size() - first;
  const double difference = ToneLevel(ChannelOf(output, 0, 2), first, last) -
                            ToneLevel(ChannelOf(output, 1, 2), first, last);
  run.ExpectNear(6.0, difference, 0.02, "dB between a limited track's channels");
}

void OnlyLowerShortTerm(TestRun& run) {
  JobTexts texts = TextsFor(run, "log", "short-term");
  texts.normalisationMode = "1";
  const Samples quiet = OnChannels(Tone(kToneFrequency, -30.0, 5.0, kRate), 2);
  const Samples kept = RunJob(run, texts, kRate, 2, quiet);
  bool isKept = kept.size() == quiet.size();
  for (std::size_t i = 0; isKept && i < kept.size(); ++i) isKept = kept[i] == RoundTrip(quiet[i]);
  run.Expect(isKept, "a tone under its short-term target has changed");
  const Samples loud = OnChannels(Tone(kToneFrequency, -10.0, 5.0, kRate), 2);
  run.ExpectNear(-20.0, SteadyLevel(RunJob(run, texts, kRate, 2, loud), 2), kLevelTolerance,
                 "level of a tone over its short-term target");
}

// -23 - -70 is 47 dB, 223.87 times.
void RaiseTheUnmeasured(TestRun& run) {
  JobTexts texts = TextsFor(run, "log", "unmeasured");
  texts.formats = {"1"};
  const Samples output = RunJob(run, texts, kRate, 1, Samples(4800, 10));
  run.Require(output.size() == 4800, Joined(output.size(), " samples, not 4800"));
  run.ExpectEqual(2238, int{output[0]}, "first sample of 10 raised by 47 dB");
  run.ExpectEqual(2238, int{output[4799]}, "last sample of 10 raised by 47 dB");
  const Samples silence = RunJob(run, texts, kRate, 1, Samples(kRate));
  run.Expect(std::all_of(silence.begin(), silence.end(), [](std::int16_t s) { return s == 0; }),
             "silence is no longer silent");
}

void StartAfresh(TestRun& run) {
  const Samples tone = OnChannels(Tone(kToneFrequency, -30.0, 1.0, kRate), 2);
  const Samples noise = Noise(run.Seed(), 2 * kRate, 20000);
  JobTexts texts = TextsFor(run, "log", "again");
  texts.MaxTP = "-6";
  ModuleInstance job(run);
  job.Begin(texts, kRate, 2);
  const Samples first = job.Sequence(noise);
  job.EndSequence();
  run.RequireCode(0, job.StartSequence(), "xStartSequenceEx");
  job.Sequence(tone);
  job.EndSequence();
  run.RequireCode(0, job.StartSequence(), "xStartSequenceEx");
  run.Expect(job.Sequence(noise) == first, "the third sequence differs from the first");
  job.EndSequence();
}

}  // namespace

void AddTwoPassTests(std::vector<ValidationTest>* tests) {
  const TestGroup group("TwoPasses.", kLimitSeconds, tests);
  for (const std::uint32_t rate : {48000U, 44100U, 96000U, 192000U}) {
    group.Add(Joined("ToneReachesItsTarget.Rate", rate),
              [rate](TestRun& run) { ReachTarget(run, rate); });
  }
  group.Add("AllSamplesAreScaledAlike", ScaleAllSamplesAlike);
  group.Add("CeilingHoldsAndFollowsTheCurve", HoldCeiling);
  group.Add("LimitedTracksAreNinetyFiveFramesLate", DelayLimitedTracksOnly);
  group.Add("ChannelsOfALimitedTrackAreReducedAlike", ReduceChannelsAlike);
  group.Add("ShortTermTargetOnlyLowers", OnlyLowerShortTerm);
  group.Add("UnmeasuredTrackIsRaisedByTheWholeDifference", RaiseTheUnmeasured);
  group.Add("SequencesInheritNothing", StartAfresh);
}

}  // namespace harvane
