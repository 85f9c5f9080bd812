// What a single pass, and a channel of no track, make of samples: 16 bits to single precision and
// back.

#include <algorithm>
#include <cstdlib>

#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 60;
constexpr std::uint32_t kRate = 48000;

JobTexts SinglePassFor(const TestRun& run) {
  JobTexts texts = TextsFor(run, "log", "job");
  texts.numberOfPasses = "1";
  return texts;
}

void ExpectSamples(TestRun& run, const Samples& wanted, const Samples& got,
                   const std::string& what) {
  run.Expect(wanted.size() == got.size(),
             Joined(what, ": ", got.size(), " samples, not ", wanted.size()));
  const auto [left, right] = std::mismatch(wanted.begin(), wanted.end(), got.begin(), got.end());
  if (left == wanted.end() || right == got.end()) return;
  run.Expect(false,
             Joined(what, ": sample ", left - wanted.begin(), " is ", *right, ", not ", *left));
}

void RoundTripAllValues(TestRun& run) {
  Samples samples;
  for (int sample = -32768; sample <= 32767; ++sample) {
    samples.push_back(static_cast<std::int16_t>(sample));
    samples.push_back(static_cast<std::int16_t>(-1 - sample));
  }
  JobTexts texts = SinglePassFor(run);
  texts.formats = {"1"};  // the other channel belongs to no track
  const Samples given = RunJob(run, texts, kRate, 2, samples);
  run.Require(given.size() == samples.size(), "the pass gives another number of samples");
  int lowered = 0;
  for (std::size_t i = 0; i < given.size(); ++i) {
    const int step = std::abs(samples[i]) - std::abs(given[i]);
    run.Require(given[i] == RoundTrip(samples[i]),
                Joined(samples[i], " comes back as ", given[i], ", not ", RoundTrip(samples[i])));
    run.Require(step == 0 || step == 1, Joined(samples[i], " comes back as ", given[i]));
    if (i % 2 == 0 && samples[i] > 0 && step == 1) ++lowered;
  }
  run.ExpectEqual(16639, lowered, "positive values that come back one lower");
  run.ExpectEqual(-32767, int{given[0]}, "what comes of -32768");
}

void CountStridesInSamples(TestRun& run) {
  const Samples samples = Noise(run.Seed(), 2 * 700, 32767);
  Samples wanted;
  for (const std::int16_t sample : samples) wanted.push_back(RoundTrip(sample));
  for (const Arrangement arrangement :
       {Arrangement::kInterleaved, Arrangement::kPlanar, Arrangement::kStrided}) {
    ModuleInstance job(run);
    job.Begin(SinglePassFor(run), kRate, 2);
    job.StartPass(0);
    job.Deliver(samples.data(), 700, arrangement);
    ExpectSamples(run, wanted, job.Fetch(), Joined("arrangement ", static_cast<int>(arrangement)));
    job.EndSequence();
  }
  ModuleInstance job(run);
  job.Begin(SinglePassFor(run), kRate, 2);
  const Samples few = {32767, -32767, 0, 0, 0, 0};
  CountedUnit unit(few.data(), 3, 2, Arrangement::kPlanar);
  unit.Record()->stride[0] = 0;
  std::uint32_t flag = 0;
  run.RequireCode(0, run.Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag),
                  "xDeliverPcmUnit");
  ExpectSamples(run, {32767, -32767, 32767, 0, 32767, 0}, job.Fetch(), "a stride of 0");
  job.EndSequence();
}

void PassSixtyFourChannels(TestRun& run) {
  constexpr std::uint32_t kChannels = 64;
  JobTexts texts = SinglePassFor(run);
  texts.numberOfGroups = "4";
  texts.formats = {"5", "5", "5", "5"};
  const Samples samples = Noise(run.Seed(), kChannels * 500, 32767);
  Samples wanted;
  for (const std::int16_t sample : samples) wanted.push_back(RoundTrip(sample));
  ExpectSamples(run, wanted, RunJob(run, texts, kRate, kChannels, samples), "64 channels");
}

// A job with gain and limiter, cut into units of all kinds.
void CutAnywhere(TestRun& run) {
  JobTexts texts = TextsFor(run, "log", "job");
  texts.Loudness = "-12";
  texts.MaxTP = "-6";
  const Samples samples = Noise(run.Seed(), 2 * 48000, 6000);
  Samples first;
  for (const std::uint32_t frames : {48000U, 239U, 240U, 1024U, 7U}) {
    ModuleInstance job(run);
    job.Begin(texts, kRate, 2);
    const Samples output = job.Sequence(samples, frames);
    job.EndSequence();
    if (first.empty()) first = output;
    ExpectSamples(run, first, output, Joined("units of ", frames, " frames"));
  }
}

void LoseWhatIsNotFetched(TestRun& run) {
  ModuleInstance job(run);
  job.Begin(SinglePassFor(run), kRate, 2);
  job.StartPass(0);
  job.Deliver({1000, 2000, 3000, 4000});
  job.EndPass();
  run.Expect(job.Fetch().empty(), "output is left over from a pass that has ended");
  job.EndSequence();
}

void LeaveOtherChannelsAlone(TestRun& run) {
  JobTexts texts = TextsFor(run, "log", "job");
  texts.formats = {"1"};
  texts.Loudness = "-12";
  const Samples tone = Tone(1000.0, -40.0, 2.0, kRate);
  const Samples noise = Noise(run.Seed(), tone.size(), 32767);
  const Samples output = RunJob(run, texts, kRate, 2, Interleaved({tone, noise}));
  Samples wanted;
  for (const std::int16_t sample : noise) wanted.push_back(RoundTrip(sample));
  ExpectSamples(run, wanted, ChannelOf(output, 1, 2), "the channel of no track");
}

void ReadStatedChannelsOnly(TestRun& run) {
  ModuleInstance job(run);
  job.Begin(SinglePassFor(run), kRate, 2);
  const Samples samples = {32767, 0, 5, 0, -32767, 5};
  CountedUnit unit(samples.data(), 2, 3, Arrangement::kInterleaved);
  unit.Record()->data[2] = nullptr;
  std::uint32_t flag = 0;
  run.RequireCode(0, run.Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag),
                  "xDeliverPcmUnit");
  ExpectSamples(run, {32767, 0, 0, -32767}, job.Fetch(), "two channels of three");
  job.EndSequence();
}

}  // namespace

void AddSampleTests(std::vector<ValidationTest>* tests) {
  const TestGroup group("Samples.", kLimitSeconds, tests);
  group.Add("EveryValueComesBackAtMostOneStepTowardsZero", RoundTripAllValues);
  group.Add("StridesCountSamples", CountStridesInSamples);
  group.Add("SixtyFourChannelsPassThrough", PassSixtyFourChannels);
  group.Add("LengthsOfUnitsDoNotMatter", CutAnywhere);
  group.Add("OutputThatWasNotFetchedIsLost", LoseWhatIsNotFetched);
  group.Add("ChannelOfNoTrackGoesThroughUnchanged", LeaveOtherChannelsAlone);
  group.Add("OnlyTheStatedChannelsAreRead", ReadStatedChannelsOnly);
}

}  // namespace harvane
