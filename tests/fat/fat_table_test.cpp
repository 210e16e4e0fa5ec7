#include "fat/fat_table.h"

#include <map>
#include <random>
#include <tuple>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "fat/fat_requests.h"

namespace tallowin {
namespace {

struct Kind {
  u16 type;
  u32 sectors;
  u32 mask;  // of an entry
};
constexpr Kind kFat12{0x01, 4000, 0xFFF};
constexpr Kind kFat16{0x06, 40000, 0xFFFF};
constexpr Kind kFat32{0x0B, 70000, 0x0FFFFFFF};

using CacheCase = std::tuple<Kind, u32 /*window sectors*/, u32 /*saved windows*/>;

class FatTableModelTest : public testing::TestWithParam<CacheCase> {};

// Random entries through windows of every size, against a plain map; then both FAT copies are
// looked at as they lie on the disk.
TEST_P(FatTableModelTest, KeepsEveryEntryThroughEveryWindow) {
  const auto& [kind, windowSectors, savedWindows] = GetParam();
  MemoryDisk disk(80000);
  const FatVolume volume = formatAndOpen({disk, 100, kind.sectors}, kind.type);
  FatTable table = tableOf(volume, {.windowSectors = windowSectors, .savedWindows = savedWindows});
  const u32 highest = volume.layout.highestCluster();
  std::mt19937 generator(windowSectors * 100 + savedWindows);
  const auto random = [&] { return static_cast<u32>(generator()); };
  std::map<u32, u32> expected;
  for (u32 i = 0; i < 3000; ++i) {
    // Some near the last one, as chains are, and some anywhere.
    const u32 near = expected.empty() ? 2 : expected.rbegin()->first;
    const u32 cluster = 2 + (random() % 4 != 0 ? near + random() % 9 : random()) % (highest - 1);
    if (random() % 3 == 0) {
      const auto known = expected.find(cluster);
      const u32 untouched = cluster == 2 && volume.layout.isFat32() ? 0x0FFFFFFF : 0;
      ASSERT_EQ(known == expected.end() ? untouched : known->second, entryOf(table, cluster))
          << cluster;
    } else {
      ASSERT_EQ(Error::none, table.set(cluster, expected[cluster] = random() & kind.mask));
    }
    if (random() % 500 == 0) {
      ASSERT_EQ(Error::none, table.flush());
    }
  }
  ASSERT_EQ(Error::none, table.flush());
  for (u32 copy = 0; copy < 2; ++copy) {
    const std::vector<u8> fat = fatCopy(volume, copy);
    for (const auto& [cluster, value] : expected)
      ASSERT_EQ(value, rawEntry(fat, volume.layout.kind, cluster))
          << "copy " << copy << ", " << cluster;
    EXPECT_EQ(0xF8U, rawEntry(fat, volume.layout.kind, 0) & 0xFF);
  }
}

INSTANTIATE_TEST_SUITE_P(Caches, FatTableModelTest,
                         testing::Combine(testing::Values(kFat12, kFat16, kFat32),
                                          testing::Values(1U, 3U, 24U),
                                          testing::Values(0U, 1U, 32U)));

class FatTableTest : public testing::Test {
 protected:
  FatVolume make(const Kind& kind) { return formatAndOpen({disk_, 0, kind.sectors}, kind.type); }
  // The FAT32 of the test on another device.
  FatTable tableOn(DiskDevice& disk,
                   FatTable::Options options = {.windowSectors = 1, .savedWindows = 2}) {
    return tableOf(opened({disk, 0, kFat32.sectors}).value(), options);
  }

  MemoryDisk disk_{80000};
};

TEST_F(FatTableTest, TheUpperBitsOfAnEntryStay) {
  const FatVolume fat32 = make(kFat32);
  const u64 fatStart = fat32.layout.reservedSectors;
  std::vector<u8> fat = disk_.sector(fatStart);
  fat[4 * 9 + 3] = 0xA0;
  disk_.setSector(fatStart, fat);
  FatTable wide = tableOf(fat32);
  ASSERT_EQ(Error::none, wide.set(9, 0x01234567));
  EXPECT_EQ(0x01234567U, entryOf(wide, 9));
  ASSERT_EQ(Error::none, wide.set(10, kAllOnes32));
  EXPECT_EQ(0x0FFFFFFFU, entryOf(wide, 10));
  ASSERT_EQ(Error::none, wide.flush());
  fat = fatCopy(fat32, 0);
  EXPECT_EQ(0xA1234567U, rawEntry(fat, FatKind::fat32, 9));
  EXPECT_EQ(0xFFFFFFFFU, rawEntry(fat, FatKind::fat32, 10));
}

TEST_F(FatTableTest, WritesOnlyTheChangedSectorsAndOnlyWhenItMust) {
  const FatVolume made = make(kFat32);
  FaultyDisk counted(disk_);
  FatTable table = tableOn(counted, {.windowSectors = 4, .savedWindows = 2});
  // Sectors 1 and 3 of the first window, and the first of the second: it touches the first range.
  for (const u32 cluster : {128U, 3 * 128U, 4 * 128U})
    ASSERT_EQ(Error::none, table.set(cluster, 1));
  EXPECT_EQ(1U, entryOf(table, 128));
  EXPECT_EQ(0U, counted.writes()) << "there is room for both windows";
  EXPECT_EQ(0U, entryOf(table, 100 * 128));
  EXPECT_EQ(2U, counted.writes()) << "one write to each copy before a window is given up";
  EXPECT_EQ(1U, rawEntry(fatCopy(made, 0), FatKind::fat32, 4 * 128));
  ASSERT_EQ(Error::none, table.flush());
  EXPECT_EQ(2U, counted.writes());
}

TEST_F(FatTableTest, AFatElsewhereIsReadAndWrittenThereAlone) {
  const FatVolume made = make(kFat32);
  disk_.setSector(75000, std::vector<u8>(512, 0x77));
  FatTable table =
      tableOn(disk_, {.windowSectors = 1, .savedWindows = 2, .elsewhereLba = 75000, .isNew = true});
  ASSERT_EQ(Error::none, table.set(5, 6));
  ASSERT_EQ(Error::none, table.flush());
  const std::vector<u8> there = disk_.sector(75000);
  EXPECT_EQ(6U, rawEntry(there, FatKind::fat32, 5));
  EXPECT_EQ(0U, rawEntry(there, FatKind::fat32, 6)) << "a new FAT begins with zeros";
  EXPECT_EQ(std::vector<u8>(512), disk_.sector(75000 + made.layout.sectorsPerFat));
  ASSERT_EQ(Error::none, table.setUp());
  EXPECT_EQ(0U, entryOf(table, 5));
}

TEST_F(FatTableTest, AReadErrorNamesItsSectorAndTheSecondCopyRescues) {
  const FatVolume made = make(kFat32);
  const u32 perFat = made.layout.sectorsPerFat;
  FatTable first = tableOn(disk_);
  ASSERT_EQ(Error::none, first.set(256, 77));
  ASSERT_EQ(Error::none, first.flush());
  FaultyDisk faulty(disk_);
  faulty.failReadsOf({32 + 2, 32 + 2});
  FatTable table = tableOn(faulty);
  u32 value = 1;
  const Failure failed = table.get(256, value);
  EXPECT_EQ(Error::read, failed);
  EXPECT_EQ(32U + 2, failed.lba);
  EXPECT_EQ(Error::read, table.set(256, 9));
  EXPECT_EQ(0U, entryOf(table, 3)) << "the others are still there";

  const FatTable::Options rescuing{.windowSectors = 1, .savedWindows = 2, .rescues = true};
  FatTable rescued = tableOn(faulty, rescuing);
  EXPECT_EQ(77U, entryOf(rescued, 256)) << "the second copy has it";
  faulty.failReadsOf({32 + perFat + 2, 32 + perFat + 2});
  FatTable lost = tableOn(faulty, rescuing);
  EXPECT_EQ(0U, entryOf(lost, 256));
}

TEST_F(FatTableTest, AFailedFlushLosesNothing) {
  make(kFat32);
  FaultyDisk faulty(disk_);
  FatTable table = tableOn(faulty, {.windowSectors = 1, .savedWindows = 0});
  ASSERT_EQ(Error::none, table.set(5, 6));
  faulty.failWrite(1);
  EXPECT_EQ(Error::write, table.flush());
  EXPECT_EQ(Error::none, table.flush());
  FatTable again = tableOn(disk_);
  EXPECT_EQ(6U, entryOf(again, 5));
  ASSERT_EQ(Error::none, table.set(5, 7));
  faulty.failWrite(0);
  u32 value = 1;
  EXPECT_EQ(Error::write, table.get(128, value)) << "the only window could not be given up";
  EXPECT_EQ(7U, entryOf(table, 5));
}

TEST_F(FatTableTest, WhatLiesBehindTheFatIsNoEntry) {
  const FatVolume fat12 = make(kFat12);
  FatTable table = tableOf(fat12);
  const u32 entries = fat12.layout.sectorsPerFat * 512 * 2 / 3;
  ASSERT_EQ(Error::none, table.set(entries - 1, 5));
  EXPECT_EQ(5U, entryOf(table, entries - 1));
  u32 value = 1;
  EXPECT_EQ(Error::corrupt, table.get(entries, value));
  EXPECT_EQ(Error::corrupt, table.set(entries, 5));

  const FatVolume fat16 = make(kFat16);
  FatTable without(fat16.range, fat16.layout);
  EXPECT_EQ(Error::outOfMemory, without.setUp({.savedWindows = kAllOnes32}));
  EXPECT_EQ(Error::outOfMemory, without.get(2, value)) << "without a cache nothing can be read";
}

// Reading on from window to window asks for 256 KiB at a time, and still sees what was written.
TEST_F(FatTableTest, ReadsAheadWhenWindowsFollowOneAnother) {
  const u32 perFat = make(kFat32).layout.sectorsPerFat;
  FaultyDisk counted(disk_);
  FatTable table = tableOn(counted, {.windowSectors = 1, .savedWindows = 0});
  for (u32 sector = 0; sector < perFat; ++sector) {
    ASSERT_EQ(sector == 0 ? 0xFFFFFF8U : 0U, entryOf(table, sector * 128)) << sector;
    ASSERT_EQ(Error::none, table.set(sector * 128 + 1, sector));
  }
  EXPECT_LE(counted.reads(), 1U + perFat) << "boot area, and at most one a window";
  ASSERT_EQ(Error::none, table.flush());
  const u64 before = counted.reads();
  for (u32 sector = 0; sector < perFat; ++sector)
    ASSERT_EQ(sector, entryOf(table, sector * 128 + 1));
  EXPECT_LE(counted.reads() - before, 5U);
}

}  // namespace
}  // namespace tallowin
