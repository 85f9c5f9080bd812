// States in which going on would mean invented audio or a read past a list: the process must end.

#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 60;
constexpr std::uint32_t kRate = 48000;

void GoOn(TestRun& run) { run.Expect(false, "the process went on"); }

void DeliverSomething(TestRun& run, const ModuleInstance& job, const Samples& frame) {
  CountedUnit unit(frame.data(), 1, static_cast<std::uint32_t>(frame.size()), Arrangement::kPlanar);
  std::uint32_t flag = 0;
  run.Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag);
}

void Fetch(TestRun& run, const ModuleInstance& job) {
  PcmUnit* unit = nullptr;
  std::uint32_t flag = 0;
  run.Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag);
}

void LimitWithoutPhases(TestRun& run, std::uint32_t rate) {
  ModuleInstance job(run);
  JobTexts texts = TextsFor(run, "log", "job");
  texts.Loudness = "-3";
  texts.MaxTP = "-12";
  job.Begin(texts, rate, 2);
  job.Pass(0, Noise(run.Seed(), std::size_t{2} * rate, 16000));
  job.StartPass(1);
  run.AnnounceDeath("the first frame of a limited track");
  DeliverSomething(run, job, {1, 1});
  GoOn(run);
}

void SetFifthGroup(TestRun& run) {
  ModuleInstance job(run);
  JobTexts texts;
  texts.numberOfGroups = "5";
  run.AnnounceDeath("xSetParameter with five groups");
  job.SetParameter(DocumentOf(texts));
  GoOn(run);
}

void StartWithoutGroups(TestRun& run) {
  ModuleInstance job(run);
  JobTexts texts;
  texts.numberOfGroups = "0";
  run.RequireCode(0, job.SetParameter(DocumentOf(texts)), "xSetParameter");
  run.RequireCode(0, job.SetInput(FormatBlobOf(kRate, 2)), "xSetInputInfo");
  run.AnnounceDeath("xStartSequenceEx without a group");
  job.StartSequence();
  GoOn(run);
}

void FetchWithoutChannels(TestRun& run) {
  ModuleInstance job(run);
  JobTexts texts;
  texts.numberOfPasses = "1";
  job.Begin(texts, kRate, 0);
  run.AnnounceDeath("xFetchPcmUnit without channels");
  Fetch(run, job);
  GoOn(run);
}

void FetchBeforeSequence(TestRun& run) {
  ModuleInstance job(run);
  run.RequireCode(0, job.SetParameter(DocumentOf(JobTexts())), "xSetParameter");
  run.RequireCode(0, job.SetInput(FormatBlobOf(kRate, 2)), "xSetInputInfo");
  run.AnnounceDeath("xFetchPcmUnit before a sequence");
  Fetch(run, job);
  GoOn(run);
}

void DivideByZero(TestRun& run) {
  ModuleInstance job(run);
  JobTexts texts;
  texts.frameRate = "1";
  run.RequireCode(0, job.SetParameter(DocumentOf(texts)), "xSetParameter");
  Bytes blob;
  AppendChunk(&blob, HARVANE_TAG_VIDE, VidePayloadOf(25, 0), sizeof(VidePayload));
  run.AnnounceDeath("xSetInputInfo with a video rate over 0");
  job.SetInput(blob);
  GoOn(run);
}

void ProcessBeforeAnyDecision(TestRun& run) {
  ModuleInstance job(run);
  job.Begin(TextsFor(run, "log", "job"), kRate, 2);
  job.StartPass(1);
  run.AnnounceDeath("a second pass before any decision");
  DeliverSomething(run, job, {1, 1});
  GoOn(run);
}

void ProcessTooFewChannels(TestRun& run) {
  ModuleInstance job(run);
  JobTexts texts = TextsFor(run, "log", "job");
  texts.formats = {"6"};
  job.Begin(texts, kRate, 5);
  job.Pass(0, Samples(5 * 500, 100));
  job.StartPass(1);
  run.AnnounceDeath("a second pass with fewer channels than the track has");
  DeliverSomething(run, job, {1, 1, 1, 1, 1});
  GoOn(run);
}

}  // namespace

void AddDeathTests(std::vector<ValidationTest>* tests) {
  const TestGroup group("ProcessEnds.", kLimitSeconds, tests, Ending::kDies);
  for (const std::uint32_t rate : {176400U, 192000U}) {
    group.Add(Joined("WhereALimiterHasNoPhases.Rate", rate),
              [rate](TestRun& run) { LimitWithoutPhases(run, rate); });
  }
  group.Add("AtAFifthGroup", SetFifthGroup);
  group.Add("AtASequenceWithoutGroups", StartWithoutGroups);
  group.Add("AtAFetchWithoutChannels", FetchWithoutChannels);
  group.Add("AtAFetchBeforeASequence", FetchBeforeSequence);
  group.Add("AtAVideoRateOverZero", DivideByZero);
  group.Add("AtASecondPassBeforeAnyDecision", ProcessBeforeAnyDecision);
  group.Add("AtASecondPassWithTooFewChannels", ProcessTooFewChannels);
}

}  // namespace harvane
