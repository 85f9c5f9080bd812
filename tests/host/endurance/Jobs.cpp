#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/PassObserver.h"
#include "tests/host/JobRunner.h"
#include "tests/host/endurance/Endurance.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/LiveMemory.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/Signals.h"
#include "tests/support/TemporaryFolder.h"

namespace endurance {
namespace {

using harvane::DelayAudioProbe;
using hosttest::JobRunner;
using support::LiveMemory;

const harvane::ModuleExports& Module() { return harvane::LinkedModuleExports(); }

// A job and its audio: somewhat more than one 400 ms block.
struct Job {
  twin::JobSpec spec;
  std::vector<std::int16_t> signal;
};

Job MakeJob(int rate, int passes, int groups, int format, int channels) {
  constexpr int kPerMille = 430;
  Job job;
  job.spec.sampleRate = rate;
  job.spec.numberOfPasses = passes;
  job.spec.numberOfGroups = groups;
  for (int& one : job.spec.formats) one = format;
  job.spec.channels = channels;
  job.spec.loudness = rate > 100000 ? -60.0F : -15.0F;  // no limiter where there is none
  job.spec.entryName = "endurance";
  job.signal = support::Programme(static_cast<std::uint64_t>(rate + channels), rate, channels,
                                  static_cast<std::size_t>(rate / 1000 * kPerMille));
  return job;
}

std::vector<Job> MakeJobs() {
  return {MakeJob(48000, 2, 1, 2, 2),  MakeJob(44100, 1, 1, 1, 1), MakeJob(48000, 2, 1, 6, 6),
          MakeJob(48000, 2, 4, 5, 32), MakeJob(96000, 2, 1, 2, 2), MakeJob(192000, 2, 1, 2, 2)};
}

void RunSequence(JobRunner* runner, const Job& job) {
  hosttest::Delivery delivery;
  delivery.unitFrames = {1920, 700};
  delivery.fetchEvery = 2;
  runner->StartSequence();
  for (int pass = 0; pass < job.spec.numberOfPasses; ++pass) {
    runner->RunPass(static_cast<std::uint32_t>(pass), job.signal, delivery);
  }
  runner->EndSequence();
}

void RunWhole(const Job& job, const std::string& folder, int sequences) {
  JobRunner runner(Module(), job.spec, folder, "rows");
  for (int i = 0; i < sequences; ++i) RunSequence(&runner, job);
}

// Calls that the module must refuse, on one instance.
void RunRefused() {
  const auto& exports = Module();
  void* handle = nullptr;
  Require(exports.xOpen(&handle) == 0, "xOpen");
  Require(exports.xSetParameter(handle, "<parameter>") == 3, "a text that is not XML");
  Require(exports.xSetParameter(handle, "<parameter/>") == 4, "a document without values");
  support::ParameterTexts texts;
  texts.formats[0] = "9";
  Require(exports.xSetParameter(handle, support::ParameterDocument(texts).c_str()) == 0, "format");
  Require(exports.xStartSequenceEx(handle, nullptr) == 3, "an unknown channel format");
  support::CountedInfo echo(support::FormatBlob(44100, 3));
  Require(exports.xSetOutputInfo(handle, echo.Record()) == 3, "another output format");
  Require(exports.xClose(handle) == 0, "xClose");
}

// Closes an instance within the second pass, then frees the track objects that the instance must
// have left behind, and nothing else. Gives what they took.
LiveMemory RunAbandoned(const Job& job, const std::string& folder) {
  auto runner = std::make_unique<JobRunner>(Module(), job.spec, folder, "rows");
  runner->StartSequence();
  runner->RunPass(0, job.signal, {});
  runner->StartPass(1);
  runner->Deliver(job.signal.data(), 1000, support::Arrangement::kInterleaved);
  auto& instance = *static_cast<harvane::DelayAudio*>(runner->Handle());
  const auto meters = DelayAudioProbe::Meters(instance);
  const auto peakMeters = DelayAudioProbe::TruePeakMeters(instance);
  const auto limiters = DelayAudioProbe::Limiters(instance);
  float* const scratch = DelayAudioProbe::TruePeakScratch(instance);
  runner = nullptr;
  harvane::WriteWaitingLogRows();
  const LiveMemory closed = support::MemoryInUse();
  for (harvane::LoudnessMeter* one : meters) delete one;
  for (harvane::TruePeakMeter* one : peakMeters) delete one;
  for (harvane::TruePeakLimiter* one : limiters) delete one;
  delete[] scratch;
  const LiveMemory freed = support::MemoryInUse();
  const LiveMemory left = {closed.blocks - freed.blocks, closed.bytes - freed.bytes};
  Require(left.blocks > 0, "the closed instance has left nothing");
  return left;
}

// Once no row waits, and the writer is out of its last one.
struct Use {
  LiveMemory memory;
  support::ProcessUse process;
};

Use UseAtRest(const Use* wanted) {
  constexpr int kAttempts = 200;
  Use use{};
  for (int i = 0; i < kAttempts; ++i) {
    harvane::WriteWaitingLogRows();
    use = {support::MemoryInUse(), support::UseOfProcess()};
    if (wanted == nullptr) break;
    if (use.memory == wanted->memory && use.process.handles == wanted->process.handles) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return use;
}

class Series {
 public:
  explicit Series(const std::vector<Job>& jobs) : jobs(jobs) {}

  // Every kind of job once.
  void RunRound() {
    for (const Job& job : jobs) RunWhole(job, folder.Text(), 1);
    RunWhole(jobs[0], folder.Text(), 2);
    RunRefused();
    const LiveMemory left = RunAbandoned(jobs[0], folder.Text());
    Require(leftBehind.blocks == 0 || left == leftBehind,
            "instances leave different things behind");
    leftBehind = left;
  }

  int JobsOfARound() const { return static_cast<int>(jobs.size()) + 3; }
  const LiveMemory& LeftBehind() const { return leftBehind; }

 private:
  const std::vector<Job>& jobs;
  support::TemporaryFolder folder;
  LiveMemory leftBehind{};
};

std::string Text(const Use& use) {
  return std::to_string(use.memory.bytes) + " bytes in " + std::to_string(use.memory.blocks) +
         " blocks, " + std::to_string(use.process.handles) + " handles, " +
         std::to_string(use.process.threads) + " threads, resident " +
         std::to_string(use.process.residentBytes);
}

}  // namespace

void RunJobs(int count) {
  constexpr int kWarmUpRounds = 4;
  constexpr std::int64_t kResidentSlack = std::int64_t{1536} * 1024;  // of the allocator's making
  const std::vector<Job> jobs = MakeJobs();
  Series series(jobs);
  for (int i = 0; i < kWarmUpRounds; ++i) series.RunRound();
  const Use start = UseAtRest(nullptr);
  std::int64_t resident = start.process.residentBytes;
  int done = 0;
  while (done < count) {
    series.RunRound();
    done += series.JobsOfARound();
    const Use use = UseAtRest(&start);
    resident = std::max(resident, use.process.residentBytes);
    const bool isSame = use.memory == start.memory &&
                        use.process.handles == start.process.handles &&
                        use.process.threads == start.process.threads;
    Require(isSame,
            "after " + std::to_string(done) + " jobs: " + Text(use) + "; before: " + Text(start));
    Require(!support::kResidentBytesTell ||
                use.process.residentBytes <= start.process.residentBytes + kResidentSlack,
            "resident memory grows: " + Text(use) + "; before: " + Text(start));
  }
  std::printf("%d jobs: %s; resident %lld more at most\n", done, Text(start).c_str(),
              static_cast<long long>(resident - start.process.residentBytes));
  std::printf(
      "a stereo instance closed without the end of its sequence leaves %lld bytes in %lld "
      "blocks, its track objects\n",
      static_cast<long long>(series.LeftBehind().bytes),
      static_cast<long long>(series.LeftBehind().blocks));
}

}  // namespace endurance
