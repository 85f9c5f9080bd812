// Lets the n-th allocation of each guarded export fail, n = 0, 1, 2 ... until the call succeeds.
// This program replaces the allocation functions, so it is one of its own.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "delay_audio/Exports.h"
#include "logging/OrvelSingletonLoudnessLogger.h"
#include "tests/delay_audio/Jobs.h"
#include "tests/support/Bits.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/Signals.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

constexpr long kNever = -1;

enum class Shortage {
  kOnce,     // one allocation fails
  kLasting,  // and all later ones
};

// Counts down on the thread that set it; at 0 the allocation fails.
thread_local long allocationsUntilFailure = kNever;
thread_local Shortage shortage = Shortage::kLasting;
thread_local bool hasAllocationFailed = false;
thread_local long liveAllocations = 0;

void* Allocate(std::size_t size) {
  if (allocationsUntilFailure == 0) {
    hasAllocationFailed = true;
    if (shortage == Shortage::kOnce) allocationsUntilFailure = kNever;
    throw std::bad_alloc();
  }
  if (allocationsUntilFailure > 0) --allocationsUntilFailure;
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  ++liveAllocations;
  return memory;
}

void Free(void* memory) noexcept {
  if (memory == nullptr) return;
  --liveAllocations;
  std::free(memory);
}

// The code of a call whose n-th allocation fails; `hasFailed` says whether it came to that.
template <class Call>
std::uint32_t CallFailingAt(int n, Call call, bool* hasFailed, Shortage kind = Shortage::kLasting) {
  hasAllocationFailed = false;
  shortage = kind;
  allocationsUntilFailure = n;
  const std::uint32_t code = call();
  allocationsUntilFailure = kNever;
  *hasFailed = hasAllocationFailed;
  return code;
}

// Runs `call` with its n-th allocation failing, for a rising n, until it succeeds. Every failure
// must answer 2; a second failure at the same place must leave nothing more allocated, where the
// first may have stored a value that stays. The success must answer 0. Gives the number of places.
template <class Call>
int Sweep(Call call) {
  constexpr int kLimit = 2000;
  for (int n = 0; n < kLimit; ++n) {
    bool hasFailed = false;
    const std::uint32_t code = CallFailingAt(n, call, &hasFailed);
    if (!hasFailed) {
      EXPECT_EQ(code, 0U);
      return n;
    }
    EXPECT_EQ(code, 2U) << "allocation " << n;
    const long before = liveAllocations;
    EXPECT_EQ(CallFailingAt(n, call, &hasFailed), 2U) << "again at allocation " << n;
    const long after = liveAllocations;
    EXPECT_EQ(after, before) << "allocation " << n << " left something behind";
  }
  ADD_FAILURE() << "the call never succeeded";
  return kLimit;
}

class AllocationSweep : public testing::Test {
 protected:
  AllocationSweep() {
    texts.logPath = folder.Text();
    texts.logFileName = "log";
    texts.numberOfPasses = "1";
    EXPECT_EQ(xOpen(&handle), 0U);
  }
  ~AllocationSweep() override {
    EXPECT_EQ(xEndSequence(handle), 0U);
    EXPECT_EQ(xClose(handle), 0U);
  }
  void SetParameter() {
    ASSERT_EQ(xSetParameter(handle, support::ParameterDocument(texts).c_str()), 0U);
  }
  void SetFormat() {
    support::CountedInfo info(support::FormatBlob(48000, 2));
    ASSERT_EQ(xSetInputInfo(handle, info.Record()), 0U);
  }

  support::TemporaryFolder folder;
  support::ParameterTexts texts;
  void* handle = nullptr;
};

TEST(FailingAllocator, FailsAtItsTurnAndCountsWhatLives) {
  const long before = liveAllocations;
  allocationsUntilFailure = 1;
  int* const first = new int(1);
  EXPECT_THROW(static_cast<void>(new int(2)), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(new int(3)), std::bad_alloc) << "a lasting shortage";
  allocationsUntilFailure = kNever;
  EXPECT_EQ(liveAllocations, before + 1);
  delete first;
  EXPECT_EQ(liveAllocations, before);
}

TEST(FailingAllocator, FailsOnceWhereTheShortagePasses) {
  bool hasFailed = false;
  const auto call = [] {
    EXPECT_THROW(static_cast<void>(new int(1)), std::bad_alloc);
    delete new int(2);
    return 7U;
  };
  EXPECT_EQ(CallFailingAt(0, call, &hasFailed, Shortage::kOnce), 7U);
  EXPECT_TRUE(hasFailed);
  EXPECT_EQ(CallFailingAt(
                1, [] { return 0U; }, &hasFailed),
            0U);
  EXPECT_FALSE(hasFailed);
}

TEST_F(AllocationSweep, Open) {
  int untouched = 0;
  void* another = &untouched;
  const auto checked = [&] {
    const std::uint32_t code = xOpen(&another);
    EXPECT_EQ(another == &untouched, code != 0);
    return code;
  };
  EXPECT_GE(Sweep(checked), 1);
  EXPECT_EQ(xClose(another), 0U);
}

TEST_F(AllocationSweep, RecordsOfTheModule) {
  SetParameter();
  SetFormat();
  for (const auto call : {xGetParameterScheme, xEnumInputInfo, xEnumOutputInfo, xGetErrorMessage}) {
    InfoBuffer untouched;
    InfoBuffer* info = &untouched;
    const auto checked = [&] {
      const std::uint32_t code = call(handle, &info);
      EXPECT_EQ(info == &untouched, code != 0) << "stored on success only";
      return code;
    };
    EXPECT_GE(Sweep(checked), 2) << "a record and its blob";
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->release(info), 0U);
  }
}

TEST_F(AllocationSweep, SetParameter) {
  texts.logEntryName = std::string(100, 'n');
  const std::string xml = support::ParameterDocument(texts);
  EXPECT_GE(Sweep([&] { return xSetParameter(handle, xml.c_str()); }), 5);
}

TEST_F(AllocationSweep, StartSequence) {
  SetParameter();
  SetFormat();
  // What a failed start had made goes with the next one, not with the failure.
  bool hasFailed = false;
  int failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 2000);
    const std::uint32_t code = CallFailingAt(
        failures, [&] { return xStartSequenceEx(handle, nullptr); }, &hasFailed);
    if (code == 0) break;
    ASSERT_EQ(code, 2U) << failures;
  }
  EXPECT_GE(failures, 10);
}

TEST_F(AllocationSweep, DeliverLeavesTheUnitWithItsHostUntilItSucceeds) {
  SetParameter();
  SetFormat();
  ASSERT_EQ(xStartSequenceEx(handle, nullptr), 0U);
  const PassArgument pass = {0};
  ASSERT_EQ(xStartPassEx(handle, &pass), 0U);
  const std::vector<std::int16_t> samples(2 * 300, 1000);
  bool hasFailed = false;
  int failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 2000);
    support::CountedUnit unit(samples.data(), 300, 2, support::Arrangement::kPlanar);
    std::uint32_t flag = 9;
    const auto deliver = [&] { return xDeliverPcmUnit(handle, 0, unit.Record(), &flag); };
    const std::uint32_t code = CallFailingAt(failures, deliver, &hasFailed);
    EXPECT_EQ(unit.Releases(), code == 0 ? 1 : 0) << failures;
    EXPECT_EQ(flag, code == 0 ? 1U : 9U) << failures;
    if (code == 0) break;
    ASSERT_EQ(code, 2U) << failures;
  }
  EXPECT_GE(failures, 1);
}

TEST_F(AllocationSweep, FailedDeliverOfTheFirstPassOfTwoHasSetTheFlag) {
  texts.numberOfPasses = "2";
  SetParameter();
  SetFormat();
  ASSERT_EQ(xStartSequenceEx(handle, nullptr), 0U);
  const PassArgument pass = {0};
  ASSERT_EQ(xStartPassEx(handle, &pass), 0U);
  support::CountedUnit unit(std::vector<std::int16_t>(2 * 300, 1000).data(), 300, 2,
                            support::Arrangement::kPlanar);
  std::uint32_t flag = 9;
  bool hasFailed = false;
  const auto deliver = [&] { return xDeliverPcmUnit(handle, 0, unit.Record(), &flag); };
  EXPECT_EQ(CallFailingAt(0, deliver, &hasFailed), 2U);
  EXPECT_EQ(flag, 0U);
  EXPECT_EQ(unit.Releases(), 0);
}

// ---- what a failed delivery leaves

enum class Pass { kFirstOfTwo, kSecondOfTwo, kSingle };

class FailedDeliver : public testing::TestWithParam<Pass> {
 protected:
  static constexpr std::uint32_t kChannels = 3;  // a stereo track and a channel without one
  static constexpr std::uint32_t kFrames = 24000;
  static constexpr std::uint32_t kFirstUnit = 2000;  // several chunks, and the lists grow

  FailedDeliver() : signal(support::Programme(11, 48000, kChannels, kFrames)) {}

  bool GivesOutput() const { return GetParam() != Pass::kFirstOfTwo; }

  void Begin(TestJob* job) const {
    (*job)->StartSequence();
    if (GetParam() == Pass::kSecondOfTwo) {
      Probe::TrackGains(**job).Clear();
      Probe::LimiterNeeded(**job).Clear();
      Probe::TrackGains(**job).Append(4.0F);
      Probe::LimiterNeeded(**job).Append(true);
    }
    (*job)->StartPass(GetParam() == Pass::kSecondOfTwo ? 1 : 0);
  }
  void DeliverFrom(TestJob* job, int first, std::uint32_t end) const {
    const auto at = [this](std::uint32_t frame) { return signal.begin() + kChannels * frame; };
    job->Deliver({at(static_cast<std::uint32_t>(first)), at(end)});
  }
  // The first unit with the n-th allocation failing; false where it came to no failure.
  bool FailAt(int n, TestJob* job) const {
    support::CountedUnit unit(signal.data(), kFirstUnit, kChannels,
                              support::Arrangement::kInterleaved);
    std::uint32_t flag = 0;
    bool hasFailed = false;
    const auto deliver = [&] { return xDeliverPcmUnit(&**job, 0, unit.Record(), &flag); };
    const std::uint32_t code = CallFailingAt(n, deliver, &hasFailed, Shortage::kOnce);
    EXPECT_EQ(code, hasFailed ? 2U : 0U) << n;
    return hasFailed;
  }
  // All that the pass gave: the maxima as floats, and the output.
  std::vector<float> Given(TestJob* job) const {
    const TrackMeasurement& result = (*job)->Results()[0];
    std::vector<float> given = {result.maxMomentary, result.integratedLoudness, result.maxTruePeak,
                                static_cast<float>(result.maxMomentaryPosition),
                                static_cast<float>(result.maxTruePeakPosition)};
    for (const CheckedList<float>& list : Probe::OutputAccumulators(**job)) {
      given.insert(given.end(), list.begin(), list.end());
    }
    return given;
  }

  std::vector<std::int16_t> signal;
};

TEST_P(FailedDeliver, LeavesAllChannelsAtTheSameFrameAndTheRestIsAsWithoutIt) {
  const auto texts = TextsOfPasses(GetParam() == Pass::kSingle ? 1 : 2);
  TestJob whole(texts, 48000, kChannels);
  Begin(&whole);
  DeliverFrom(&whole, 0, kFrames);
  const std::vector<float> wanted = Given(&whole);
  ASSERT_GT(whole->Results()[0].maxMomentary, -70.0F) << "the signal is long enough";

  int failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 2000);
    TestJob job(texts, 48000, kChannels);
    Begin(&job);
    if (!FailAt(failures, &job)) break;
    const int taken = Probe::SampleCounter(*job);
    const auto& inputs = Probe::InputAccumulators(*job);
    for (std::size_t c = 0; c < 2; ++c) {
      EXPECT_EQ(inputs[c].Size(), static_cast<std::size_t>(taken % 239)) << failures;
    }
    for (const CheckedList<float>& output : Probe::OutputAccumulators(*job)) {
      EXPECT_EQ(output.Size(), static_cast<std::size_t>(GivesOutput() ? taken : 0)) << failures;
    }
    DeliverFrom(&job, taken, kFrames);
    ASSERT_TRUE(support::SameLists(wanted, Given(&job))) << "allocation " << failures;
  }
  EXPECT_GE(failures, GivesOutput() ? 5 : 2);
}

INSTANTIATE_TEST_SUITE_P(Each, FailedDeliver,
                         testing::Values(Pass::kFirstOfTwo, Pass::kSecondOfTwo, Pass::kSingle),
                         [](const auto& info) {
                           if (info.param == Pass::kSingle) return "Single";
                           return info.param == Pass::kFirstOfTwo ? "FirstOfTwo" : "SecondOfTwo";
                         });

TEST_F(AllocationSweep, FetchReleasesTheUnitUnderConstruction) {
  SetParameter();
  SetFormat();
  ASSERT_EQ(xStartSequenceEx(handle, nullptr), 0U);
  PcmUnit untouched;
  PcmUnit* unit = &untouched;
  std::uint32_t flag = 9;
  const auto checked = [&] {
    const std::uint32_t code = xFetchPcmUnit(handle, 0, &unit, &flag);
    EXPECT_EQ(unit == &untouched, code != 0);
    EXPECT_EQ(flag, code != 0 ? 9U : 0U);
    return code;
  };
  EXPECT_EQ(Sweep(checked), 3) << "a unit and two channels";
  ASSERT_NE(unit, nullptr);
  EXPECT_EQ(unit->release(unit), 0U);
}

// ---- the end of a pass

struct PassEnd {
  std::uint32_t code;
  bool hasFailed;
};

class AllocationSweepPassEnd : public AllocationSweep {
 protected:
  // Ends the first pass of a job with `passes` passes, the n-th allocation failing. Leaves the
  // sequence under way.
  PassEnd EndFirstPass(int passes, int n, Shortage kind) {
    texts.numberOfPasses = std::to_string(passes);
    texts.logEntryName = "a name that no string holds without an allocation";
    SetParameter();
    SetFormat();
    EXPECT_EQ(xStartSequenceEx(handle, nullptr), 0U);
    const PassArgument pass = {0};
    EXPECT_EQ(xStartPassEx(handle, &pass), 0U);
    PassEnd end{};
    const auto endPass = [&] { return xEndPass(handle); };
    end.code = CallFailingAt(n, endPass, &end.hasFailed, kind);
    return end;
  }
  // What the decision keeps for the next sequence would serve it without an allocation.
  void StartOver() {
    EXPECT_EQ(xEndSequence(handle), 0U);
    EXPECT_EQ(xClose(handle), 0U);
    EXPECT_EQ(xOpen(&handle), 0U);
  }
  void ExpectTheSecondPassWorks() {
    const PassArgument pass = {1};
    ASSERT_EQ(xStartPassEx(handle, &pass), 0U);
    support::CountedUnit unit(std::vector<std::int16_t>(2 * 300, 1000).data(), 300, 2,
                              support::Arrangement::kPlanar);
    std::uint32_t flag = 9;
    ASSERT_EQ(xDeliverPcmUnit(handle, 0, unit.Record(), &flag), 0U);
    EXPECT_EQ(flag, 1U);
    EXPECT_EQ(xEndPass(handle), 0U);
  }
};

TEST_F(AllocationSweepPassEnd, LosesARowAndNeverFailsWhereNothingIsDecided) {
  for (const Shortage kind : {Shortage::kOnce, Shortage::kLasting}) {
    int failures = 0;
    for (;; ++failures) {
      ASSERT_LT(failures, 2000);
      const PassEnd end = EndFirstPass(1, failures, kind);
      ASSERT_EQ(end.code, 0U) << failures;
      if (!end.hasFailed) break;
      StartOver();
    }
    EXPECT_GE(failures, 5);
  }
}

TEST_F(AllocationSweepPassEnd, DecidesTheGainsAfterALostRow) {
  int lostRows = 0;
  int failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 2000);
    const PassEnd end = EndFirstPass(2, failures, Shortage::kOnce);
    if (end.code == 0) ExpectTheSecondPassWorks();
    if (!end.hasFailed) break;
    if (end.code == 0) {
      ASSERT_EQ(lostRows, failures) << "rows come before the decision";
      ++lostRows;
    } else {
      ASSERT_EQ(end.code, 2U) << failures;
    }
    StartOver();
  }
  EXPECT_GE(lostRows, 5);
  EXPECT_GE(failures - lostRows, 2) << "gains and flags";
}

TEST(AllocationSweepLogger, EntryThatMemoryIsLackingForIsLostWhole) {
  constexpr int kNeverMs = 3600000;
  const support::TemporaryFolder folder;
  const LogMeasurement measurement = {"Analysis", 0,      1,  -23.5F, 6.25F, -1.75F,
                                      {},         -18.0F, {}, -14.0F, {}};
  OrvelSingletonLoudnessLogger logger(OrvelSingletonLoudnessLogger::SystemClock, kNeverMs);
  const std::string path = folder.Text();
  const std::string file = "rows that no string holds without an allocation";
  for (const std::string& name : {std::string(), std::string(100, 'n')}) {
    for (const Shortage kind : {Shortage::kOnce, Shortage::kLasting}) {
      const auto add = [&] {
        logger.AddEntry(measurement, file, path, name, 25);
        return 0U;
      };
      bool hasFailed = true;
      int failures = 0;
      for (;; ++failures) {
        ASSERT_LT(failures, 2000);
        const long before = liveAllocations;
        CallFailingAt(failures, add, &hasFailed, kind);
        if (!hasFailed) break;
        const long after = liveAllocations;
        EXPECT_EQ(after, before) << "allocation " << failures << " left something behind";
        ASSERT_EQ(logger.WaitingEntries(), 0) << failures;
      }
      EXPECT_GE(failures, 5);
      ASSERT_EQ(logger.WaitingEntries(), 1);
      logger.DrainQueue();
    }
  }
  const std::string bytes = support::ReadBytes(folder.FileIn(file + ".csv"));
  const std::string row =
      ",Analysis,0,1,Stereo,-23.5,6.3,-1.7,00:00:00:00,-18.0,00:00:00:00,-14.0,00:00:00:00\n";
  int rows = 0;
  for (std::size_t at = bytes.find(row); at != std::string::npos; at = bytes.find(row, at + 1)) {
    ++rows;
  }
  EXPECT_EQ(rows, 4) << bytes;
}

TEST_F(AllocationSweep, CallsWithoutAllocations) {
  SetParameter();
  support::CountedInfo echo(support::FormatBlob(48000, 2));
  InstanceInformation information;
  const PassArgument pass = {0};
  EXPECT_EQ(Sweep([&] { return xGetInstanceInformation(handle, &information); }), 0);
  EXPECT_EQ(Sweep([&] { return xStartPassEx(handle, &pass); }), 0);
  SetFormat();
  EXPECT_EQ(Sweep([&] { return xSetOutputInfo(handle, echo.Record()); }), 0);
  EXPECT_EQ(Sweep([&] { return xEndSequence(handle); }), 0);
}

}  // namespace
}  // namespace harvane

void* operator new(std::size_t size) { return harvane::Allocate(size); }
void* operator new[](std::size_t size) { return harvane::Allocate(size); }
void operator delete(void* memory) noexcept { harvane::Free(memory); }
void operator delete[](void* memory) noexcept { harvane::Free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { harvane::Free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { harvane::Free(memory); }
