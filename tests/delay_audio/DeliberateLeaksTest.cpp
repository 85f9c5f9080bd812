// What an instance leaves behind when it is closed: nothing, or, where its sequence was not ended,
// the objects of its tracks and the peak scratch, and nothing else. To tell these from any other
// leak, the test keeps their addresses, frees them itself, and then nothing may be missing.
//
// This program counts the blocks of the whole process, so it is one of its own. Where malloc can
// be replaced, that is what counts, libraries included; elsewhere operator new.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/Exports.h"
#include "delay_audio/PassObserver.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/TemporaryFolder.h"

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define HARVANE_COUNTS_MALLOC
#endif

namespace {

constexpr long kNever = -1;

std::atomic<long> liveBlocks{0};
thread_local long blocksUntilFailure = kNever;  // at 0 one allocation of this thread fails

bool MustFail() {
  if (blocksUntilFailure < 0) return false;
  return blocksUntilFailure-- == 0;
}

void* Counted(void* memory) {
  if (memory != nullptr) liveBlocks.fetch_add(1, std::memory_order_relaxed);
  return memory;
}

void Uncount(const void* memory) {
  if (memory != nullptr) liveBlocks.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace

#ifdef HARVANE_COUNTS_MALLOC

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) noexcept {
  return MustFail() ? nullptr : Counted(__libc_malloc(size));
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  return MustFail() ? nullptr : Counted(__libc_calloc(count, size));
}
void* realloc(void* memory, std::size_t size) noexcept {
  if (MustFail()) return nullptr;
  void* const moved = __libc_realloc(memory, size);
  if (memory == nullptr) return Counted(moved);
  if (size == 0) Uncount(memory);
  return moved;
}
void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return MustFail() ? nullptr : Counted(__libc_memalign(alignment, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
  *memory = memalign(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}
void free(void* memory) noexcept {
  Uncount(memory);
  __libc_free(memory);
}
}

#else

namespace {

void* Allocate(std::size_t size) {
  void* const memory = MustFail() ? nullptr : std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return Counted(memory);
}

void Free(void* memory) noexcept {
  Uncount(memory);
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { Free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { Free(memory); }

#endif

namespace harvane {
namespace {

constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kStereo = 2;

// What xClose leaves behind on purpose: addresses, taken while the instance was there.
class LeftBehind {
 public:
  explicit LeftBehind(DelayAudio* job) {
    for (LoudnessMeter* meter : DelayAudioProbe::Meters(*job)) meters.at(meterCount++) = meter;
    for (TruePeakMeter* meter : DelayAudioProbe::TruePeakMeters(*job)) {
      peakMeters.at(peakMeterCount++) = meter;
    }
    for (TruePeakLimiter* limiter : DelayAudioProbe::Limiters(*job)) {
      limiters.at(limiterCount++) = limiter;
    }
    scratch = DelayAudioProbe::TruePeakScratch(*job);
  }
  // Frees it. Once.
  void Free() const {
    for (std::size_t i = 0; i < meterCount; ++i) delete meters[i];
    for (std::size_t i = 0; i < peakMeterCount; ++i) delete peakMeters[i];
    for (std::size_t i = 0; i < limiterCount; ++i) delete limiters[i];
    delete[] scratch;
  }
  bool IsNothing() const {
    return meterCount + peakMeterCount + limiterCount == 0 && scratch == nullptr;
  }
  std::size_t Objects() const { return meterCount + peakMeterCount + limiterCount; }

 private:
  static constexpr std::size_t kMostTracks = 32;
  std::array<LoudnessMeter*, kMostTracks> meters{};
  std::array<TruePeakMeter*, kMostTracks> peakMeters{};
  std::array<TruePeakLimiter*, kMostTracks> limiters{};
  std::size_t meterCount = 0;
  std::size_t peakMeterCount = 0;
  std::size_t limiterCount = 0;
  const float* scratch = nullptr;
};

// The host's side of a job, step by step.
class Job {
 public:
  explicit Job(support::ParameterTexts texts, std::uint32_t channels = kStereo,
               std::uint32_t rate = kRate)
      : xml(support::ParameterDocument(texts)), channels(channels), rate(rate) {
    EXPECT_EQ(0U, xOpen(&handle));
  }
  DelayAudio* Instance() const { return static_cast<DelayAudio*>(handle); }
  void* Handle() const { return handle; }

  void SetParameter() { EXPECT_EQ(0U, xSetParameter(handle, xml.c_str())); }
  void SetFormat() {
    support::CountedInfo info(support::FormatBlob(rate, channels));
    EXPECT_EQ(0U, xSetInputInfo(handle, info.Record()));
  }
  void Configure() {
    SetParameter();
    SetFormat();
  }
  void Start() {
    Configure();
    EXPECT_EQ(0U, xStartSequenceEx(handle, nullptr));
  }
  void StartPass(std::uint32_t number) {
    const PassArgument pass = {number};
    EXPECT_EQ(0U, xStartPassEx(handle, &pass));
  }
  std::uint32_t Deliver(std::uint32_t frames) {
    const std::vector<std::int16_t> samples(std::size_t{frames} * channels, 12000);
    support::CountedUnit unit(samples.data(), frames, channels, support::Arrangement::kInterleaved);
    std::uint32_t flag = 0;
    EXPECT_EQ(0U, xDeliverPcmUnit(handle, 0, unit.Record(), &flag));
    return flag;
  }
  void Fetch() {
    PcmUnit* unit = nullptr;
    std::uint32_t flag = 0;
    EXPECT_EQ(0U, xFetchPcmUnit(handle, 0, &unit, &flag));
    EXPECT_EQ(0U, unit->release(unit));
  }
  void EndPass() {
    EXPECT_EQ(0U, xEndPass(handle));
    WriteWaitingLogRows();
  }
  void EndSequence() { EXPECT_EQ(0U, xEndSequence(handle)); }
  // A whole pass.
  void Pass(std::uint32_t number, std::uint32_t frames = 2000) {
    StartPass(number);
    if (Deliver(frames) != 0) Fetch();
    EndPass();
  }
  void Close() { EXPECT_EQ(0U, xClose(handle)); }

 private:
  std::string xml;
  std::uint32_t channels;
  std::uint32_t rate;
  void* handle = nullptr;
};

support::ParameterTexts Texts(const support::TemporaryFolder& folder, const char* passes = "2") {
  support::ParameterTexts texts;
  texts.numberOfPasses = passes;
  texts.logPath = folder.Text();
  texts.logFileName = "log";
  texts.logEntryName = std::string(100, 'n');
  return texts;
}

struct State {
  const char* name;
  bool leaves;  // whether a close in this state leaves a sequence behind
  std::function<void(Job*)> reach;
};

void PrintTo(const State& state, std::ostream* out) { *out << state.name; }

const std::vector<State>& States() {
  static const std::vector<State> kStates = {
      {"Opened", false, [](Job*) {}},
      {"WithParameters", false, [](Job* job) { job->SetParameter(); }},
      {"WithParametersTwice", false,
       [](Job* job) {
         job->SetParameter();
         job->SetParameter();
       }},
      {"WithADocumentRefused", false,
       [](Job* job) {
         EXPECT_EQ(3U, xSetParameter(job->Handle(), "<parameter>"));
         EXPECT_EQ(4U, xSetParameter(job->Handle(), "<parameter/>"));
       }},
      {"WithAFormat", false, [](Job* job) { job->Configure(); }},
      {"WithTheOutputFormatRefused", false,
       [](Job* job) {
         job->Configure();
         support::CountedInfo other(support::FormatBlob(96000, 2));
         EXPECT_EQ(3U, xSetOutputInfo(job->Handle(), other.Record()));
       }},
      {"WithASequenceRefused", false,
       [](Job* job) {
         job->Configure();
         DelayAudioProbe::TrackCount(*job->Instance()) = -1;
         EXPECT_EQ(3U, xStartSequenceEx(job->Handle(), nullptr));
       }},
      {"Started", true, [](Job* job) { job->Start(); }},
      {"StartedTwice", true,
       [](Job* job) {
         job->Start();
         job->Start();
       }},
      {"StartedWithAnotherRateSince", true,
       [](Job* job) {
         job->Start();
         support::CountedInfo info(support::FormatBlob(192000, 2));
         EXPECT_EQ(0U, xSetInputInfo(job->Handle(), info.Record()));
       }},
      {"InAPass", true,
       [](Job* job) {
         job->Start();
         job->StartPass(0);
         job->Deliver(100);
         job->Deliver(3000);
       }},
      {"AfterTheFirstPass", true,
       [](Job* job) {
         job->Start();
         job->Pass(0);
       }},
      {"WithOutputThatNobodyFetched", true,
       [](Job* job) {
         job->Start();
         job->Pass(0);
         job->StartPass(1);
         job->Deliver(3000);
       }},
      {"AfterBothPasses", true,
       [](Job* job) {
         job->Start();
         job->Pass(0);
         job->Pass(1);
       }},
      {"AfterASequenceRefusedInASequence", false,
       [](Job* job) {
         job->Start();
         job->Pass(0);
         DelayAudioProbe::TrackCount(*job->Instance()) = -1;
         EXPECT_EQ(3U, xStartSequenceEx(job->Handle(), nullptr));
       }},
      {"Ended", false,
       [](Job* job) {
         job->Start();
         job->Pass(0, kRate / 2);  // fills the first windows
         job->Pass(1, kRate / 2);
         job->EndSequence();
       }},
      {"EndedInAPass", false,
       [](Job* job) {
         job->Start();
         job->StartPass(0);
         job->Deliver(100);
         job->EndSequence();
       }},
      {"EndedTwice", false,
       [](Job* job) {
         job->Start();
         job->EndSequence();
         job->EndSequence();
       }},
      {"StartedAgain", true,
       [](Job* job) {
         job->Start();
         job->Pass(0);
         job->EndSequence();
         job->Start();
       }},
  };
  return kStates;
}

// What is made once in a process is made before anything is counted.
void WarmUp() {
  static bool isWarm = false;
  if (isWarm) return;
  isWarm = true;
  const support::TemporaryFolder folder;
  support::ParameterTexts texts = Texts(folder);
  texts.formats = {"5"};  // four tracks, the most: the log keeps what its longest queue took
  for (int i = 0; i < 2; ++i) {
    Job job(texts, 8);
    EXPECT_EQ(3U, xSetParameter(job.Handle(), "<parameter>"));
    job.Start();
    job.Pass(0);
    job.Pass(1);
    job.EndSequence();
    job.Close();
  }
}

// Blocks that a job leaves when it is closed in a state, all of them and without what it leaves on
// purpose.
struct Leak {
  long all;
  long others;
};

Leak LeakOf(const State& state, const support::ParameterTexts& texts,
            std::uint32_t channels = kStereo, std::uint32_t rate = kRate) {
  WarmUp();
  const long before = liveBlocks;
  Leak leak{};
  {
    Job job(texts, channels, rate);
    state.reach(&job);
    const LeftBehind leftBehind(job.Instance());
    EXPECT_EQ(leftBehind.IsNothing(), !state.leaves);
    const long withInstance = liveBlocks;
    job.Close();
    EXPECT_LT(liveBlocks, withInstance) << "the instance itself goes";
    leak.all = liveBlocks;
    leftBehind.Free();
    leak.all -= liveBlocks;
  }
  leak.others = liveBlocks - before;
  return leak;
}

class DeliberateLeaks : public testing::TestWithParam<State> {
 protected:
  support::TemporaryFolder folder;
};

TEST(DeliberateLeaksCount, EveryBlockIsSeenUntilItIsFreed) {
  const long before = liveBlocks;
  int* const one = new int(1);
  EXPECT_EQ(before + 1, liveBlocks);
  auto* const many = new std::string[3];
  EXPECT_EQ(before + 2, liveBlocks);
  delete one;
  delete[] many;
  EXPECT_EQ(before, liveBlocks);
#ifdef HARVANE_COUNTS_MALLOC
  void* volatile block = std::malloc(10);
  EXPECT_EQ(before + 1, liveBlocks);
  block = std::realloc(block, 100000);
  EXPECT_EQ(before + 1, liveBlocks);
  std::free(block);
  EXPECT_EQ(before, liveBlocks);
#endif
}

TEST(DeliberateLeaksCount, RecordThatNobodyReleasesIsTwoBlocks) {
  WarmUp();
  void* handle = nullptr;
  ASSERT_EQ(0U, xOpen(&handle));
  const long before = liveBlocks;
  InfoBuffer* scheme = nullptr;
  ASSERT_EQ(0U, xGetParameterScheme(handle, &scheme));
  EXPECT_EQ(before + 2, liveBlocks);
  EXPECT_EQ(0U, scheme->release(scheme));
  EXPECT_EQ(before, liveBlocks);
  EXPECT_EQ(0U, xClose(handle));
}

TEST_P(DeliberateLeaks, CloseLeavesTheSequenceAndNothingElse) {
  const Leak leak = LeakOf(GetParam(), Texts(folder));
  EXPECT_EQ(GetParam().leaves, leak.all > 0) << leak.all;
  EXPECT_EQ(0, leak.others);
}

// A second leak of the same size would be another instance's.
TEST_P(DeliberateLeaks, EachInstanceLeavesTheSame) {
  constexpr int kInstances = 3;
  const Leak one = LeakOf(GetParam(), Texts(folder));
  const long before = liveBlocks;
  std::vector<LeftBehind> leftBehind;
  leftBehind.reserve(kInstances);
  for (int i = 0; i < kInstances; ++i) {
    Job job(Texts(folder));
    GetParam().reach(&job);
    leftBehind.emplace_back(job.Instance());
    job.Close();
  }
  const long leaked = liveBlocks - before - 1;  // the list
  EXPECT_EQ(kInstances * one.all, leaked);
  for (const LeftBehind& ofInstance : leftBehind) ofInstance.Free();
  EXPECT_EQ(before + 1, liveBlocks);
}

INSTANTIATE_TEST_SUITE_P(States, DeliberateLeaks, testing::ValuesIn(States()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DeliberateLeaksOfLayouts, CloseLeavesThreeObjectsForEachTrack) {
  WarmUp();
  const support::TemporaryFolder folder;
  // Tracks of a group of each format.
  constexpr std::array<std::size_t, 8> kTracks = {1, 1, 2, 3, 4, 1, 2, 2};
  for (std::size_t format = 1; format <= kTracks.size(); ++format) {
    for (const std::uint32_t rate : {44100U, 192000U}) {
      SCOPED_TRACE(format);
      support::ParameterTexts texts = Texts(folder);
      texts.formats = {std::to_string(format)};
      const long before = liveBlocks;
      {
        Job job(texts, 8, rate);
        job.Start();
        job.Pass(0);
        const LeftBehind leftBehind(job.Instance());
        job.Close();
        EXPECT_EQ(3 * kTracks[format - 1], leftBehind.Objects());
        leftBehind.Free();
      }
      // The texts of this test were there before.
      EXPECT_EQ(before, liveBlocks);
    }
  }
}

// Wherever the memory ends, what the sequence has made by then is all that stays.
TEST(DeliberateLeaksWithoutMemory, CloseAfterAFailedStartLeavesItsObjectsOnly) {
  WarmUp();
  const support::TemporaryFolder folder;
  const support::ParameterTexts texts = Texts(folder);
  int failures = 0;
  for (bool hasSucceeded = false; !hasSucceeded; ++failures) {
    ASSERT_LT(failures, 2000);
    const long before = liveBlocks;
    {
      Job job(texts);
      job.Configure();
      blocksUntilFailure = failures;
      const std::uint32_t code = xStartSequenceEx(job.Handle(), nullptr);
      blocksUntilFailure = kNever;
      hasSucceeded = code == 0;
      const LeftBehind leftBehind(job.Instance());
      job.Close();
      leftBehind.Free();
      ASSERT_TRUE(code == 0 || code == 2) << code;
    }
    ASSERT_EQ(before, liveBlocks) << "allocation " << failures;
  }
  EXPECT_GE(failures, 10);
}

#ifdef __SANITIZE_ADDRESS__

// This build's programs end with a failure where anything is left that nobody knows of, so what
// this program leaves out is seen by all the others.
TEST(LeakCheckDeathTest, ForgottenBlockFailsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        // By a thread, whose stack and registers go with it.
        std::thread([] { static_cast<void>(new std::string(1000, '1')); }).join();
        std::exit(0);
      },
      [](int status) { return status != 0; }, "LeakSanitizer: detected memory leaks");
}

#endif

}  // namespace
}  // namespace harvane
