#include <gtest/gtest.h>

#include <cstring>

#include "tests/delay_audio/HostRecordsInC.h"

namespace {

TEST(HostRecords, HaveOneLayoutInCAndInCpp) {
  const RecordLayout c = RecordLayoutInC();
  EXPECT_EQ(c.unitSize, sizeof(PcmUnit));
  EXPECT_EQ(c.unitRelease, offsetof(PcmUnit, release));
  EXPECT_EQ(c.unitData, offsetof(PcmUnit, data));
  EXPECT_EQ(c.unitStride, offsetof(PcmUnit, stride));
  EXPECT_EQ(c.unitSampleCount, offsetof(PcmUnit, sampleCount));
  EXPECT_EQ(c.unitReserved2, offsetof(PcmUnit, reserved2));
  EXPECT_EQ(c.infoSize, sizeof(InfoBuffer));
  EXPECT_EQ(c.infoRelease, offsetof(InfoBuffer, release));
  EXPECT_EQ(c.infoData, offsetof(InfoBuffer, data));
  EXPECT_EQ(c.infoByteCount, offsetof(InfoBuffer, size));
  EXPECT_EQ(c.infoReserved2, offsetof(InfoBuffer, reserved2));
}

TEST(HostRecords, AreTheWireFormatWherePointersHave32Bits) {
  const RecordLayout c = RecordLayoutInC();
  const bool is32 = sizeof(void*) == 4;
  EXPECT_EQ(c.unitSize, is32 ? 556U : 824U);
  EXPECT_EQ(c.unitData, is32 ? 24U : 32U);
  EXPECT_EQ(c.unitStride, is32 ? 280U : 544U);
  EXPECT_EQ(c.unitSampleCount, is32 ? 536U : 800U);
  EXPECT_EQ(c.infoSize, is32 ? 48U : 64U);
  EXPECT_EQ(c.infoData, is32 ? 24U : 32U);
  EXPECT_EQ(c.infoByteCount, is32 ? 28U : 40U);
}

TEST(HostRecords, WithoutPointersHaveTheirSizeEverywhere) {
  const RecordLayout c = RecordLayoutInC();
  EXPECT_EQ(c.chunkHeaderSize, 8U);
  EXPECT_EQ(c.videSize, 64U);
  EXPECT_EQ(c.lpcmSize, 40U);
  EXPECT_EQ(c.informationSize, 1424U);
  EXPECT_EQ(c.passArgumentSize, 4U);
}

TEST(HostRecords, TypeWordsAreZeroAndTwo) {
  const RecordLayout c = RecordLayoutInC();
  EXPECT_EQ(c.infoType, 0);
  EXPECT_EQ(c.unitType, 2);
}

TEST(HostRecords, TagsStandReversedInMemory) {
  const std::uint32_t vide = HARVANE_TAG_VIDE;
  const std::uint32_t lpcm = HARVANE_TAG_LPCM;
  EXPECT_EQ(std::memcmp(&vide, "EDIV", 4), 0);
  EXPECT_EQ(std::memcmp(&lpcm, "MCPL", 4), 0);
}

TEST(HostRecords, ExportsCanBeCalledFromC) { EXPECT_EQ(NoFrameThroughC(), 0U); }

}  // namespace
