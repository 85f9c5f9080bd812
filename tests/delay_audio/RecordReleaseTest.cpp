#include "delay_audio/RecordRelease.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace harvane {
namespace {

int countedReleases = 0;
std::uint32_t HARVANE_CALL CountRelease(void* /*record*/) {
  ++countedReleases;
  return 0;
}

bool IsZero(const std::uint8_t (&bytes)[16]) {
  return std::all_of(std::begin(bytes), std::end(bytes), [](std::uint8_t b) { return b == 0; });
}

TEST(RecordRelease, GuardCallsTheRecordsOwnRelease) {
  countedReleases = 0;
  InfoBuffer record{};
  record.release = CountRelease;
  { const OwnedInfoBuffer guard(&record); }
  EXPECT_EQ(countedReleases, 1);
}

TEST(RecordRelease, HandingOverEndsTheGuard) {
  countedReleases = 0;
  PcmUnit record{};
  record.release = CountRelease;
  {
    OwnedPcmUnit guard(&record);
    EXPECT_EQ(guard.release(), &record);
  }
  EXPECT_EQ(countedReleases, 0);
}

TEST(MakePcmUnit, GivesAZeroedUnitOfTypeTwo) {
  const OwnedPcmUnit unit = MakePcmUnit();
  EXPECT_EQ(unit->type, 2U);
  EXPECT_TRUE(unit->release == ReleasePcmUnit);
  EXPECT_TRUE(IsZero(unit->reserved1));
  EXPECT_TRUE(IsZero(unit->reserved2));
  EXPECT_EQ(unit->sampleCount, 0U);
  for (std::size_t c = 0; c < 64; ++c) {
    EXPECT_EQ(unit->data[c], nullptr) << c;
    EXPECT_EQ(unit->stride[c], 0U) << c;
  }
}

TEST(MakeInfoBuffer, CopiesTheBytes) {
  char text[] = "scheme";
  const OwnedInfoBuffer info = MakeInfoBuffer(text, sizeof text);
  std::memset(text, 'x', sizeof text - 1);
  EXPECT_EQ(info->type, 0U);
  EXPECT_TRUE(info->release == ReleaseInfoBuffer);
  EXPECT_TRUE(IsZero(info->reserved1));
  EXPECT_TRUE(IsZero(info->reserved2));
  EXPECT_EQ(info->size, 7U);
  EXPECT_STREQ(static_cast<const char*>(info->data), "scheme");
}

// What follows relies on the leak checker of the sanitize build for the freeing itself.

TEST(ReleaseInfoBuffer, FreesARecordWithAndWithoutABlob) {
  InfoBuffer* const empty = new InfoBuffer();
  EXPECT_EQ(ReleaseInfoBuffer(empty), 0U);
  EXPECT_EQ(ReleaseInfoBuffer(MakeInfoBuffer("", 0).release()), 0U);
  EXPECT_EQ(ReleaseInfoBuffer(MakeInfoBuffer("abc", 4).release()), 0U);
}

TEST(ReleasePcmUnit, FreesAllSixtyFourEntriesWhateverTheSampleCount) {
  PcmUnit* const unit = MakePcmUnit().release();
  for (auto& data : unit->data) data = new std::int16_t[3]();
  unit->sampleCount = 0;
  EXPECT_EQ(ReleasePcmUnit(unit), 0U);
}

TEST(ReleasePcmUnit, SkipsNullEntriesAndFreesThoseBehind) {
  PcmUnit* const unit = MakePcmUnit().release();
  unit->data[63] = new std::int16_t[0];
  EXPECT_EQ(ReleasePcmUnit(unit), 0U);
}

}  // namespace
}  // namespace harvane
