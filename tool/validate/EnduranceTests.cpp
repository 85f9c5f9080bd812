// Many instances, memory, and jobs and documents by chance. The test's seed decides what chance is.

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>

#ifdef _WIN32
#include <windows.h>
// Behind windows.h, whose types it takes.
#include <psapi.h>
#else
#include <unistd.h>

#include <fstream>
#endif

#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 180;
constexpr std::uint32_t kRate = 48000;

std::int64_t MemoryOfProcess() {
#ifdef _WIN32
  PROCESS_MEMORY_COUNTERS memory{};
  K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
  return static_cast<std::int64_t>(memory.WorkingSetSize);
#else
  std::int64_t totalPages = 0;
  std::int64_t residentPages = 0;
  std::ifstream("/proc/self/statm") >> totalPages >> residentPages;
  return residentPages * sysconf(_SC_PAGESIZE);
#endif
}

// A sanitizer's build keeps what was freed for so many bytes.
#if defined(__SANITIZE_ADDRESS__)
constexpr std::int64_t kKeptBytes = std::int64_t{300} << 20;
#else
constexpr std::int64_t kKeptBytes = 0;
#endif

JobTexts LimitedJob(const TestRun& run, std::size_t instance) {
  JobTexts texts = TextsFor(run, "log", "job-" + std::to_string(instance));
  texts.Loudness = std::to_string(-12 - static_cast<int>(instance));
  texts.MaxTP = "-6";
  return texts;
}

void TakeTurns(TestRun& run) {
  constexpr std::size_t kInstances = 12;
  constexpr std::size_t kFrames = 24000;
  constexpr std::size_t kUnit = 1000;
  std::vector<Samples> inputs;
  std::vector<Samples> wanted;
  for (std::size_t i = 0; i < kInstances; ++i) {
    inputs.push_back(Noise(run.Seed() + i, 2 * kFrames, 6000));
    wanted.push_back(RunJob(run, LimitedJob(run, i), kRate, 2, inputs[i]));
  }
  std::vector<std::unique_ptr<ModuleInstance>> jobs;
  std::vector<Samples> outputs(kInstances);
  for (std::size_t i = 0; i < kInstances; ++i) {
    jobs.push_back(std::make_unique<ModuleInstance>(run));
    jobs[i]->Begin(LimitedJob(run, i), kRate, 2);
  }
  for (std::uint32_t pass = 0; pass < 2; ++pass) {
    for (auto& job : jobs) job->StartPass(pass);
    for (std::size_t frame = 0; frame < kFrames; frame += kUnit) {
      for (std::size_t i = 0; i < kInstances; ++i) {
        jobs[i]->Deliver(inputs[i].data() + 2 * frame, kUnit);
        if (pass == 1) Append(&outputs[i], jobs[i]->Fetch());
      }
    }
    for (auto& job : jobs) job->EndPass();
  }
  for (std::size_t i = 0; i < kInstances; ++i) {
    jobs[i]->EndSequence();
    run.Expect(outputs[i] == wanted[i], Joined("instance ", i + 1, " gives other samples"));
  }
}

void RunOnThreads(TestRun& run) {
  constexpr std::size_t kThreads = 4;
  const ModuleExports& exports = run.Module();
  const Samples input = Noise(run.Seed(), 2 * 24000, 6000);
  const Samples wanted = RunJob(run, LimitedJob(run, 0), kRate, 2, input);
  const std::string document = DocumentOf(LimitedJob(run, 0));
  // Each with calls of its own: a test's report has one caller at a time.
  std::array<bool, kThreads> isRight{};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      void* handle = nullptr;
      CountedInfo info(FormatBlobOf(kRate, 2));
      std::uint32_t codes = exports.xOpen(&handle);
      codes |= exports.xSetParameter(handle, document.c_str());
      codes |= exports.xSetInputInfo(handle, info.Record());
      codes |= exports.xStartSequenceEx(handle, nullptr);
      PcmUnit* given = nullptr;
      for (std::uint32_t number = 0; number < 2; ++number) {
        const PassArgument pass = {number};
        std::uint32_t flag = 0;
        CountedUnit unit(input.data(), 24000, 2, Arrangement::kInterleaved);
        codes |= exports.xStartPassEx(handle, &pass);
        codes |= exports.xDeliverPcmUnit(handle, 0, unit.Record(), &flag);
        if (number == 1) codes |= exports.xFetchPcmUnit(handle, 0, &given, &flag);
        codes |= exports.xEndPass(handle);
      }
      bool isSame = codes == 0 && given != nullptr && given->sampleCount == 24000;
      for (std::size_t s = 0; isSame && s < wanted.size(); ++s) {
        isSame = given->data[s % 2][s / 2] == wanted[s];
      }
      if (given != nullptr) given->release(given);
      codes |= exports.xEndSequence(handle);
      codes |= exports.xClose(handle);
      isRight[i] = isSame && codes == 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < kThreads; ++i) {
    run.Expect(isRight[i], Joined("thread ", i + 1, ": other samples, or a call that failed"));
  }
}

// Whole jobs after a few for warming up. A job that leaves more than a tenth of this behind shows.
void KeepMemory(TestRun& run, int jobs) {
  constexpr int kWarmUp = 8;
  constexpr std::int64_t kMostGrowth = std::int64_t{12} << 20;
  const Samples input = Noise(run.Seed(), 2 * 12000, 6000);
  std::int64_t before = 0;
  for (int job = 0; job < kWarmUp + jobs; ++job) {
    if (job == kWarmUp) before = MemoryOfProcess();
    RunJob(run, LimitedJob(run, 0), kRate, 2, input);
  }
  const std::int64_t growth = MemoryOfProcess() - before;
  run.Expect(growth <= kMostGrowth + kKeptBytes,
             Joined(growth / 1024, " KiB more after ", jobs, " jobs"));
}

class Chance {
 public:
  explicit Chance(std::uint64_t seed) : source(seed) {}
  int Below(int limit) { return static_cast<int>(source() % static_cast<std::uint64_t>(limit)); }
  template <class T, std::size_t kSize>
  T Of(const std::array<T, kSize>& choices) {
    return choices[static_cast<std::size_t>(Below(static_cast<int>(kSize)))];
  }

 private:
  std::mt19937_64 source;
};

// Jobs of all layouts, rates, targets and lengths of units. What must hold for all is checked by
// ModuleInstance: codes, flags, releases, as many frames out as in.
void RunSeededJobs(TestRun& run, int jobs) {
  Chance chance(run.Seed());
  for (int job = 0; job < jobs; ++job) {
    JobTexts texts = TextsFor(run, "log", "job-" + std::to_string(job));
    const int groups = 1 + chance.Below(4);
    texts.numberOfPasses = std::to_string(1 + chance.Below(2));
    texts.numberOfGroups = std::to_string(groups);
    texts.formats.assign(4, "2");
    for (std::string& format : texts.formats) format = std::to_string(1 + chance.Below(8));
    texts.normalisationMode = std::to_string(chance.Below(2));
    texts.Loudness = std::to_string(-30 + chance.Below(19));
    texts.MaxTP = std::to_string(-chance.Below(13));
    texts.frameRate = chance.Of(std::array{"0", "23.976", "25", "59,94", "60"});
    const std::uint32_t rate = chance.Of(std::array{44100U, 48000U, 88200U, 96000U, 22050U});
    const auto channels = static_cast<std::uint32_t>(8 * groups);
    const auto frames = static_cast<std::size_t>(chance.Below(30000));
    const auto unit = static_cast<std::uint32_t>(1 + chance.Below(5000));
    const Samples input = Noise(run.Seed() + static_cast<std::uint64_t>(job), frames * channels,
                                100 << chance.Below(9));
    ModuleInstance instance(run);
    instance.Begin(texts, rate, channels);
    const Samples output = instance.Sequence(input, unit);
    instance.EndSequence();
    run.Require(output.size() == input.size(),
                Joined("job ", job, " of seed ", run.Seed(), " gives ", output.size(),
                       " samples for ", input.size()));
  }
}

// Documents with bytes changed, cut and doubled. The number of groups stays out of them, since
// some of its values end the process.
void ReadSeededDocuments(TestRun& run, int documents) {
  Chance chance(run.Seed());
  const std::string whole = DocumentOf(TextsFor(run, "log", "job"), "numberOfGroups");
  ModuleInstance job(run);
  for (int i = 0; i < documents; ++i) {
    std::string document = whole;
    for (int change = 1 + chance.Below(4); change > 0 && !document.empty(); --change) {
      const auto at = static_cast<std::size_t>(chance.Below(static_cast<int>(document.size())));
      const auto length = 1 + static_cast<std::size_t>(chance.Below(20));
      switch (chance.Below(3)) {
        case 0:
          document[at] = static_cast<char>(chance.Below(256));
          break;
        case 1:
          document.erase(at, length);
          break;
        default:
          document.insert(at, document.substr(at, length));
      }
    }
    const std::uint32_t code = job.SetParameter(document);
    run.Expect(code == 0 || code == 3 || code == 4,
               Joined("document ", i, " of seed ", run.Seed(), " answered ", code));
  }
  run.ExpectCode(0, job.SetParameter(whole), "xSetParameter of the whole document");
}

void OpenMany(TestRun& run) {
  constexpr std::size_t kInstances = 200;
  std::vector<void*> handles(kInstances);
  for (void*& handle : handles) run.RequireCode(0, run.Module().xOpen(&handle), "xOpen");
  std::vector<void*> sorted = handles;
  std::sort(sorted.begin(), sorted.end());
  run.Expect(std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end(),
             "two open instances have one handle");
  const std::string document = DocumentOf(JobTexts());
  for (void* const handle : handles) {
    run.ExpectCode(0, run.Module().xSetParameter(handle, document.c_str()), "xSetParameter");
  }
  for (void* const handle : handles) run.ExpectCode(0, run.Module().xClose(handle), "xClose");
}

}  // namespace

void AddEnduranceTests(std::vector<ValidationTest>* tests) {
  const TestGroup quick("Endurance.", kLimitSeconds, tests);
  const TestGroup slow("Endurance.", kLimitSeconds * 2, tests);
  const TestGroup slowest("Endurance.", kLimitSeconds * 3, tests);
  quick.Add("ManyInstancesAreOpenAtOnce", OpenMany);
  quick.Add("InstancesThatTakeTurnsDoNotMeet", TakeTurns);
  quick.Add("InstancesRunOnThreadsOfTheirOwn", RunOnThreads);
  quick.Add("MemoryDoesNotGrow", [](TestRun& run) { KeepMemory(run, 40); });
  quick.Add("JobsByChanceKeepTheRules", [](TestRun& run) { RunSeededJobs(run, 20); });
  quick.Add("DocumentsByChanceAreReadOrRefused",
            [](TestRun& run) { ReadSeededDocuments(run, 300); });
  slow.Add(
      "MoreJobsByChanceKeepTheRules", [](TestRun& run) { RunSeededJobs(run, 200); }, 2);
  slow.Add(
      "MoreDocumentsByChanceAreReadOrRefused",
      [](TestRun& run) { ReadSeededDocuments(run, 20000); }, 2);
  slowest.Add(
      "MemoryDoesNotGrowInThousandJobs", [](TestRun& run) { KeepMemory(run, 1000); }, 3);
  slowest.Add(
      "ManyMoreJobsByChanceKeepTheRules", [](TestRun& run) { RunSeededJobs(run, 2000); }, 3);
}

}  // namespace harvane
