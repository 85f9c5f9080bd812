#include "delay_audio/Exports.h"

#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <stdexcept>

#include "delay_audio/PluginException.h"
#include "tests/delay_audio/Jobs.h"

namespace harvane {
namespace {

// What is a failure of the module and exhausted memory as well.
class FailureOfBothKinds : public PluginException, public std::bad_alloc {
 public:
  explicit FailureOfBothKinds(std::uint32_t code) : PluginException("both", code) {}
  const char* what() const noexcept override { return PluginException::what(); }
};

// A record whose release, which is called inside the guard, throws.
template <class Record>
Record RecordThatThrows(ReleaseFunction release) {
  Record record{};
  record.release = release;
  return record;
}

// The guard around the exports, by what leaves a unit's release.
class ExportsGuard : public testing::Test {
 protected:
  ExportsGuard() : job(TextsOfPasses(1)) {
    job->StartSequence();
    job->StartPass(0);
  }
  std::uint32_t Deliver(ReleaseFunction release) {
    auto unit = RecordThatThrows<PcmUnit>(release);
    return xDeliverPcmUnit(&*job, 0, &unit, &flag);
  }

  TestJob job;
  std::uint32_t flag = 9;
};

std::uint32_t HARVANE_CALL ReleasesQuietly(void* /*record*/) { return 5; }
std::uint32_t HARVANE_CALL ThrowsPluginException(void* /*record*/) {
  throw PluginException("told", 4711);
}
std::uint32_t HARVANE_CALL ThrowsBadAlloc(void* /*record*/) { throw std::bad_alloc(); }
std::uint32_t HARVANE_CALL ThrowsBadArrayLength(void* /*record*/) {
  throw std::bad_array_new_length();  // a std::bad_alloc
}
std::uint32_t HARVANE_CALL ThrowsBothKinds(void* /*record*/) { throw FailureOfBothKinds(4712); }
std::uint32_t HARVANE_CALL ThrowsException(void* /*record*/) { throw std::exception(); }
std::uint32_t HARVANE_CALL ThrowsLogicError(void* /*record*/) { throw std::logic_error("told"); }
std::uint32_t HARVANE_CALL ThrowsRuntimeError(void* /*record*/) {
  throw std::runtime_error("told");
}
std::uint32_t HARVANE_CALL ThrowsInt(void* /*record*/) { throw 4713; }
std::uint32_t HARVANE_CALL ThrowsText(void* /*record*/) { throw "told"; }

TEST_F(ExportsGuard, ReturnsZeroWhereNothingIsThrown) {
  EXPECT_EQ(Deliver(ReleasesQuietly), 0U);
  EXPECT_EQ(flag, 1U);
}

TEST_F(ExportsGuard, ReturnsTheCodeOfAPluginException) {
  EXPECT_EQ(Deliver(ThrowsPluginException), 4711U);
  EXPECT_EQ(flag, 9U) << "what comes behind the release is not reached";
}

TEST_F(ExportsGuard, ReturnsTwoForExhaustedMemory) {
  EXPECT_EQ(Deliver(ThrowsBadAlloc), 2U);
  EXPECT_EQ(Deliver(ThrowsBadArrayLength), 2U);
}

TEST_F(ExportsGuard, LooksForAPluginExceptionFirst) { EXPECT_EQ(Deliver(ThrowsBothKinds), 4712U); }

TEST_F(ExportsGuard, ReturnsThreeForAnyOtherStandardException) {
  EXPECT_EQ(Deliver(ThrowsException), 3U);
  EXPECT_EQ(Deliver(ThrowsLogicError), 3U);
  EXPECT_EQ(Deliver(ThrowsRuntimeError), 3U);
}

TEST_F(ExportsGuard, LetsAnyOtherTypePassIntoTheHost) {
  try {
    Deliver(ThrowsInt);
    FAIL() << "nothing was thrown";
  } catch (const int number) {
    EXPECT_EQ(number, 4713);
  }
  EXPECT_THROW(Deliver(ThrowsText), const char*);
}

TEST_F(ExportsGuard, KeepsNoTextOfAnException) {
  for (const ReleaseFunction release : {ThrowsPluginException, ThrowsLogicError}) {
    Deliver(release);
    InfoBuffer* message = nullptr;
    ASSERT_EQ(xGetErrorMessage(&*job, &message), 0U);
    EXPECT_EQ(message->size, 1U);
    message->release(message);
  }
}

TEST_F(ExportsGuard, StandsAroundTheFormatCallsAsWell) {
  const support::Blob blob = support::FormatBlob(48000, 2);
  for (const auto call : {xSetInputInfo, xSetOutputInfo}) {
    auto info = RecordThatThrows<InfoBuffer>(ThrowsPluginException);
    info.data = const_cast<unsigned char*>(blob.data());
    info.size = static_cast<std::uint32_t>(blob.size());
    EXPECT_EQ(call(&*job, &info), 4711U);
    info.release = ThrowsBadAlloc;
    EXPECT_EQ(call(&*job, &info), 2U);
    info.release = ThrowsLogicError;
    EXPECT_EQ(call(&*job, &info), 3U);
    info.release = ThrowsInt;
    EXPECT_THROW(call(&*job, &info), int);
  }
}

}  // namespace
}  // namespace harvane
