#include "ptable/alignment.h"

#include <gtest/gtest.h>

#include <random>

namespace tallowin {
namespace {

AlignmentRules rulesOf(i64 unit, bool isGpt, u32 sectorBytes, u64 firstUsable) {
  AlignmentRules rules;
  rules.explicitUnit = unit;
  rules.isGpt = isGpt;
  rules.sectorSizeBytes = sectorBytes;
  rules.firstUsableSector = firstUsable;
  rules.geometry = {1023, 254, 63};
  return rules;
}

TEST(Alignment, UnitsAndFirstSectors) {
  struct Case {
    const char* name;
    AlignmentRules rules;
    u64 unit, track, first;
  };
  constexpr i64 kDefault = AlignmentRules::kDefaultUnit;
  const Case cases[] = {
      {"MBR on cylinders", rulesOf(kDefault, false, 512, 1), 16065, 63, 63},
      {"GPT", rulesOf(kDefault, true, 512, 34), 2048, 2048, 2048},
      {"GPT of 4 KiB sectors", rulesOf(kDefault, true, 4096, 6), 256, 256, 256},
      {"GPT on cylinders", rulesOf(0, true, 512, 34), 16065, 63, 63},
      {"4 KiB", rulesOf(8, false, 512, 1), 8, 8, 8},
      {"4 KiB on GPT", rulesOf(8, true, 512, 34), 8, 8, 40},
      {"1 MiB", rulesOf(2048, false, 512, 1), 2048, 2048, 2048},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(alignmentUnit(c.rules), c.unit) << c.name;
    EXPECT_EQ(trackUnit(c.rules), c.track) << c.name;
    EXPECT_EQ(firstAlignedSector(c.rules), c.first) << c.name;
  }
  AlignmentRules whole = rulesOf(kDefault, false, 512, 0);
  whole.hasTable = false;
  EXPECT_EQ(firstAlignedSector(whole), 0u);
}

// By stepping, sector by sector.
u64 nextMultiple(u64 lba, u64 unit) {
  while (lba % unit != 0) ++lba;
  return lba;
}
u64 lastMultiple(u64 lba, u64 unit) {
  while (lba % unit != 0) --lba;
  return lba;
}

TEST(AlignmentProperties, RoundingIsWhatSteppingFinds) {
  std::mt19937_64 random{20261124};
  const auto upTo = [&](u64 largest) {
    return std::uniform_int_distribution<u64>(0, largest)(random);
  };
  constexpr i64 kUnits[] = {AlignmentRules::kDefaultUnit, 0, 1, 8, 256, 2048};
  for (int i = 0; i < 4000; ++i) {
    AlignmentRules rules = rulesOf(kUnits[upTo(5)], upTo(1) == 0, upTo(1) == 0 ? 512 : 4096, 34);
    // A drive's geometry is never empty, but nothing may divide by zero when it is.
    rules.geometry = {static_cast<u16>(upTo(1023)), static_cast<u8>(upTo(255)),
                      static_cast<u8>(upTo(63))};
    const u64 unit = alignmentUnit(rules);
    ASSERT_GE(unit, 1u);
    const u64 lba = upTo(1) == 0 ? upTo(100000) : upTo(u64{1} << 50);
    ASSERT_EQ(alignUp(rules, lba), nextMultiple(lba, unit)) << lba << " by " << unit;
    ASSERT_EQ(alignDown(rules, lba), lastMultiple(lba, unit)) << lba << " by " << unit;
    const u64 end = kAllOnes64 - upTo(unit);
    ASSERT_EQ(alignUp(rules, end) % unit, 0u);
    ASSERT_GE(alignUp(rules, end), end - unit) << "it does not wrap";
  }
}

}  // namespace
}  // namespace tallowin
