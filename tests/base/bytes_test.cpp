#include "base/bytes.h"

#include <gtest/gtest.h>

#include <vector>

#include "base/geometry.h"
#include "base/guid.h"
#include "base/text.h"

namespace tallowin {
namespace {

TEST(Bytes, FieldsLieOnTheDiskInTheirOwnOrder) {
  struct Record {
    Le32 little;
    Be16 big;
  };
  const std::vector<u8> bytes = {0x78, 0x56, 0x34, 0x12, 0xAB, 0xCD, 0x00};
  const auto* record = recordAt<Record>(std::span<const u8>(bytes), 0);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->little, 0x12345678U);
  EXPECT_EQ(record->big, 0xABCDU);
  Record changed = *record;
  changed.little = 0x80000001U;
  EXPECT_EQ(bytesOf(changed)[3], 0x80);
  EXPECT_EQ(recordAt<Record>(std::span<const u8>(bytes), 1) != nullptr, true);
  EXPECT_EQ(recordAt<Record>(std::span<const u8>(bytes), 2), nullptr);
  EXPECT_EQ(recordAt<Record>(std::span<const u8>(bytes), kAllOnes64), nullptr);
}

TEST(Text, WildcardsMatchOneCharacterOrAnyRun) {
  EXPECT_TRUE(matchesWildcard("sd?", "sda"));
  EXPECT_FALSE(matchesWildcard("sd?", "sdaa"));
  EXPECT_FALSE(matchesWildcard("sd?", "sd"));
  EXPECT_TRUE(matchesWildcard("nvme?n?", "nvme0n1"));
  EXPECT_TRUE(matchesWildcard("*", ""));
  EXPECT_TRUE(matchesWildcard("a*b*c", "aXbXbc"));
  EXPECT_FALSE(matchesWildcard("a*b*c", "aXbXb"));
}

TEST(Text, NumbersNeedTheWholeTextAndFollowTheirPrefix) {
  u64 value = 0;
  EXPECT_TRUE(parseNumber("131", value) && value == 131);
  EXPECT_TRUE(parseNumber("0x83", value) && value == 131);
  EXPECT_TRUE(parseNumber("0203", value) && value == 131);
  for (const char* bad : {"", "0x", "12x", "-1", " 1", "089", "99999999999999999999"})
    EXPECT_FALSE(parseNumber(bad, value)) << bad;
}

TEST(Text, SizesRoundHalfUp) {
  EXPECT_EQ(sizeText(0, 3071, 512), "2 MiB");
  EXPECT_EQ(sizeText(0, 818, 512), "< 1 MiB");
  EXPECT_EQ(sizeText(0, 1023, 512), "1 MiB");
  EXPECT_EQ(sizeText(1, 0, 512), "Invalid");
  EXPECT_EQ(sectorsToMiB(256, 4096), 1U);
}

TEST(Geometry, PackedAddressesHaveTenBitsForTheCylinder) {
  EXPECT_EQ(unpackedChs({0xFE, 0xFF, 0xFE}), (ChsAddress{1022, 254, 63}));
  EXPECT_EQ(unpackedChs({0x12, 0x81, 0x03}), (ChsAddress{0x203, 0x12, 1}));
}

TEST(Geometry, CutAddressesFollowTheFlags) {
  const Geometry geometry{1023, 254, 63};
  EXPECT_EQ(lbaToChs(63, geometry, 1), (ChsAddress{0, 1, 1}));
  EXPECT_EQ(lbaToChs(16064, geometry, 1), (ChsAddress{0, 254, 63}));
  const u64 beyond = 16065ULL * 1024;
  EXPECT_EQ(lbaToChs(beyond, geometry, kChsBeyondGeometry), (ChsAddress{1023, 0, 1}));
  EXPECT_EQ(lbaToChs(beyond, geometry, kChsBeyondGeometry | kChsEndIfTruncated),
            (ChsAddress{1023, 254, 63}));
  EXPECT_EQ(lbaToChs(63, geometry, kChsBeyondGeometry | kChsForceEnd), (ChsAddress{0, 254, 63}));
  const Geometry small{99, 15, 63};
  EXPECT_EQ(lbaToChs(1008 * 500, small, kChsBeyondGeometry).cylinder, 500);
  EXPECT_EQ(lbaToChs(1008 * 500, small, 0).cylinder, 99);
}

TEST(Guid, TextAndBytesFollowTheMixedLayout) {
  Guid guid;
  ASSERT_TRUE(parseGuid("c12a7328-f81f-11d2-ba4b-00a0c93ec93b", guid));
  EXPECT_EQ(guid.bytes[0], 0x28);
  EXPECT_EQ(guid.bytes[8], 0xBA);
  EXPECT_EQ(guidText(guid), "{C12A7328-F81F-11D2-BA4B-00A0C93EC93B}");
  EXPECT_FALSE(parseGuid("{C12A7328-F81F-11D2-BA4B-00A0C93EC93B", guid));
  EXPECT_FALSE(parseGuid("c12a7328xf81f-11d2-ba4b-00a0c93ec93b", guid));
}

}  // namespace
}  // namespace tallowin
