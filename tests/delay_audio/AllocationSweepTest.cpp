// Lets the n-th allocation of each guarded export fail, n = 0, 1, 2 ... until the call succeeds.
// This program replaces the allocation functions, so it is one of its own.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "delay_audio/Exports.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/TemporaryFolder.h"

namespace {

constexpr long kNever = -1;

// Counts down on the thread that set it; at 0 the allocation fails.
thread_local long allocationsUntilFailure = kNever;
thread_local long liveAllocations = 0;

void* Allocate(std::size_t size) {
  if (allocationsUntilFailure == 0) throw std::bad_alloc();
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
std::uint32_t CallFailingAt(int n, Call call, bool* hasFailed) {
  allocationsUntilFailure = n;
  const std::uint32_t code = call();
  *hasFailed = allocationsUntilFailure == 0 && code != 0;
  allocationsUntilFailure = kNever;
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
  allocationsUntilFailure = kNever;
  EXPECT_EQ(liveAllocations, before + 1);
  delete first;
  EXPECT_EQ(liveAllocations, before);
}

TEST_F(AllocationSweep, Open) {
  void* another = nullptr;
  EXPECT_GE(Sweep([&] { return xOpen(&another); }), 1);
  EXPECT_EQ(xClose(another), 0U);
}

TEST_F(AllocationSweep, RecordsOfTheModule) {
  SetParameter();
  SetFormat();
  for (const auto call : {xGetParameterScheme, xEnumInputInfo, xEnumOutputInfo, xGetErrorMessage}) {
    InfoBuffer* info = nullptr;
    EXPECT_GE(Sweep([&] { return call(handle, &info); }), 2) << "a record and its blob";
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
  int failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 2000);
    allocationsUntilFailure = failures;
    const std::uint32_t code = xStartSequenceEx(handle, nullptr);
    allocationsUntilFailure = kNever;
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
  int failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 2000);
    support::CountedUnit unit(samples.data(), 300, 2, support::Arrangement::kPlanar);
    std::uint32_t flag = 9;
    allocationsUntilFailure = failures;
    const std::uint32_t code = xDeliverPcmUnit(handle, 0, unit.Record(), &flag);
    allocationsUntilFailure = kNever;
    EXPECT_EQ(unit.Releases(), code == 0 ? 1 : 0) << failures;
    EXPECT_EQ(flag, code == 0 ? 1U : 9U) << failures;
    if (code == 0) break;
    ASSERT_EQ(code, 2U) << failures;
  }
  EXPECT_GE(failures, 1);
}

TEST_F(AllocationSweep, FetchReleasesTheUnitUnderConstruction) {
  SetParameter();
  SetFormat();
  ASSERT_EQ(xStartSequenceEx(handle, nullptr), 0U);
  PcmUnit* unit = nullptr;
  std::uint32_t flag = 0;
  EXPECT_EQ(Sweep([&] { return xFetchPcmUnit(handle, 0, &unit, &flag); }), 3)
      << "a unit and two channels";
  ASSERT_NE(unit, nullptr);
  EXPECT_EQ(unit->release(unit), 0U);
}

TEST_F(AllocationSweep, EndPass) {
  SetParameter();
  SetFormat();
  ASSERT_EQ(xStartSequenceEx(handle, nullptr), 0U);
  const PassArgument pass = {0};
  int failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 2000);
    ASSERT_EQ(xStartPassEx(handle, &pass), 0U);
    allocationsUntilFailure = failures;
    const std::uint32_t code = xEndPass(handle);
    allocationsUntilFailure = kNever;
    if (code == 0) break;
    ASSERT_EQ(code, 2U) << failures;
  }
  EXPECT_GE(failures, 1);
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

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { Free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { Free(memory); }
