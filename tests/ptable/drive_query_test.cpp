// What flows ask of a drive.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "ptable/table_bench.h"

namespace tallowin {
namespace {

constexpr const char* kScript =
    "label: dos\n1:start=2048,size=4096,type=83\n2:start=20480,size=102400,type=f\n"
    "5:start=22528,size=8192,type=83\n6:start=61440,size=8192,type=b\n";

TEST(DriveQuery, AlignmentIsAPowerOfTwoBelowTheDisk) {
  TableBench bench{MemoryDisk(204800)};
  Drive& drive = bench.drive();
  EXPECT_EQ(alignmentUnit(drive.alignment()), 16065U);
  EXPECT_EQ(firstAlignedSector(drive.alignment()), 63U);
  EXPECT_TRUE(drive.setAlignment(-4096));
  EXPECT_EQ(alignmentUnit(drive.alignment()), 8U);
  for (const i64 bad : {i64{-3000}, i64{3}, i64{262144}, std::numeric_limits<i64>::min()})
    EXPECT_FALSE(drive.setAlignment(bad)) << bad;
  EXPECT_EQ(alignmentUnit(drive.alignment()), 8U);
  EXPECT_TRUE(drive.setAlignment(AlignmentRules::kDefaultUnit));
  EXPECT_TRUE(drive.setGeometry({99, 15, 0}));
  EXPECT_FALSE(drive.setGeometry({99, 15, 63}));
  EXPECT_EQ(drive.lastChsSector(), 100U * 16 * 63 - 1);
  EXPECT_EQ(alignUp(drive.alignment(), kAllOnes64), kAllOnes64 - kAllOnes64 % 1008);

  const AlignmentRules gpt{.isGpt = true, .firstUsableSector = 34, .geometry = {1023, 254, 63}};
  EXPECT_EQ(alignmentUnit(gpt), 2048U);
  EXPECT_EQ(firstAlignedSector(gpt), 2048U);
}

TEST(DriveQuery, RegionsIdsAndContainers) {
  TableBench bench(diskFromScript(204800, kScript), alignedTo(2048));
  Drive& drive = bench.drive();
  EXPECT_NE(drive.flags() & kDriveAligned1MiB, 0U);
  const SectorRegion used = *drive.usedRegion();
  EXPECT_EQ(used.first, 2048U);
  EXPECT_EQ(used.last, 122879U);

  const auto regionIs = [&](const PartitionEntry& entry, u64 first, u64 last) {
    const SectorRegion region = drive.freeRegionAround(entry);
    EXPECT_EQ(region.first, first);
    EXPECT_EQ(region.last, last);
  };
  regionIs(*drive.findByKernelNumber(1), 1, 20479);
  regionIs(*drive.findByKernelNumber(2), 6144, 204799);
  const auto& sixth = dynamic_cast<VolumeEntry&>(*drive.findByKernelNumber(6));
  regionIs(sixth, 30720, 122879);
  regionIs(*drive.findByKernelNumber(5), 20480, 20480 + sixth.ebr - 1);
  EXPECT_EQ(drive.volumeGap(*drive.findByKernelNumber(5)), 2048U);
  EXPECT_EQ(drive.volumeGap(*drive.findByKernelNumber(1)), 0U);
  EXPECT_EQ(drive.containerOf(sixth), drive.findByKernelNumber(2));
  EXPECT_EQ(drive.containerOf(*drive.findByKernelNumber(1)), nullptr);

  std::vector<PartitionId> ids;
  for (const auto& entry : drive.table().entries) {
    ids.push_back(entry->id);
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries) ids.push_back(volume->id);
  }
  std::ranges::sort(ids);
  EXPECT_EQ(std::ranges::adjacent_find(ids), ids.end());
}

TEST(DriveQuery, TypesFollowTheEndOfTheChsArea) {
  TableBench bench{MemoryDisk(u64{40} * 1024 * 2048)};
  Drive& drive = bench.drive();
  const u64 inside = drive.lastChsSector();
  struct Variant {
    u16 type;
    u16 inside;
    u16 beyond;
  };
  for (const Variant& v :
       {Variant{0x01, 0x01, 0x01}, Variant{0x04, 0x04, 0x0E}, Variant{0x0E, 0x06, 0x0E},
        Variant{0x0B, 0x0B, 0x0C}, Variant{0x0C, 0x0B, 0x0C}, Variant{0x05, 0x05, 0x0F},
        Variant{0x0F, 0x05, 0x0F}, Variant{0x16, 0x16, 0x1E}, Variant{0x83, 0x83, 0x83}}) {
    EXPECT_EQ(drive.typeForEnd(v.type, inside), v.inside) << v.type;
    EXPECT_EQ(drive.typeForEnd(v.type, inside + 1), v.beyond) << v.type;
  }
}

}  // namespace
}  // namespace tallowin
