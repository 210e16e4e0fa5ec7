#include <map>
#include <random>
#include <tuple>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "fat/fat_requests.h"
#include "fat/fat_volume.h"

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
  auto volume = formatAndOpen(disk, 100, kind.sectors, kind.type);
  ASSERT_TRUE(volume->setupFatCache(windowSectors, savedWindows));
  const u32 highest = volume->highestCluster();
  std::mt19937 generator(windowSectors * 100 + savedWindows);
  const auto random = [&] { return static_cast<u32>(generator()); };
  std::map<u32, u32> expected;
  for (u32 i = 0; i < 3000; ++i) {
    // Some near the last one, as chains are, and some anywhere.
    const u32 near = expected.empty() ? 2 : expected.rbegin()->first;
    const u32 cluster = 2 + (random() % 4 != 0 ? near + random() % 9 : random()) % (highest - 1);
    if (random() % 3 == 0) {
      const auto known = expected.find(cluster);
      const u32 untouched = cluster == 2 && volume->isFat32() ? 0x0FFFFFFF : 0;
      ASSERT_EQ(known == expected.end() ? untouched : known->second, volume->getFat(cluster))
          << cluster;
    } else {
      volume->setFat(cluster, expected[cluster] = random() & kind.mask);
    }
    if (random() % 500 == 0) {
      ASSERT_TRUE(volume->flushFat());
    }
  }
  ASSERT_FALSE(volume->hasError());
  ASSERT_TRUE(volume->flushFat());
  for (u32 copy = 0; copy < 2; ++copy) {
    const std::vector<u8> fat = readAll(
        disk, volume->fatStartLba() + copy * volume->sectorsPerFat(), volume->sectorsPerFat());
    for (const auto& [cluster, value] : expected)
      ASSERT_EQ(value, rawEntry(fat, volume->kind(), cluster))
          << "copy " << copy << ", " << cluster;
    EXPECT_EQ(0xF8U, rawEntry(fat, volume->kind(), 0) & 0xFF);
  }
}

INSTANTIATE_TEST_SUITE_P(Caches, FatTableModelTest,
                         testing::Combine(testing::Values(kFat12, kFat16, kFat32),
                                          testing::Values(1U, 3U, 24U),
                                          testing::Values(0U, 1U, 32U)));

class FatTableTest : public testing::Test {
 protected:
  std::unique_ptr<FatVolume> openOn(DiskDevice& disk, u32 windowSectors = 1, u32 saved = 2) {
    auto volume = openVolume(disk, 0, kFat32.sectors, 0x0B);
    EXPECT_TRUE(volume->setupFatCache(windowSectors, saved));
    return volume;
  }

  MemoryDisk disk_{80000};
};

TEST_F(FatTableTest, EntriesKeepTheBitsTheyShareWithOthers) {
  auto fat12 = formatAndOpen(disk_, 0, kFat12.sectors, kFat12.type);
  ASSERT_TRUE(fat12->setupFatCache(24, 32));
  fat12->setFat(4, 0x123);
  fat12->setFat(2, 0xABC);
  fat12->setFat(3, 0xDEF);
  fat12->setFat(2, 0x456);
  ASSERT_TRUE(fat12->flushFat());
  const std::vector<u8> sector = readAll(disk_, fat12->fatStartLba(), 1);
  EXPECT_EQ((std::vector<u8>{0xF8, 0xFF, 0xFF, 0x56, 0xF4, 0xDE, 0x23, 0x01, 0x00}),
            std::vector<u8>(sector.begin(), sector.begin() + 9));

  auto fat32 = formatAndOpen(disk_, 0, kFat32.sectors, kFat32.type);
  std::vector<u8> fat = readAll(disk_, fat32->fatStartLba(), 1);
  fat[4 * 9 + 3] = 0xA0;
  disk_.setSector(fat32->fatStartLba(), fat);
  ASSERT_TRUE(fat32->setupFatCache(24, 32));
  fat32->setFat(9, 0x01234567);
  EXPECT_EQ(0x01234567U, fat32->getFat(9));
  fat32->setFat(10, kAllOnes32);
  EXPECT_EQ(0x0FFFFFFFU, fat32->getFat(10));
  ASSERT_TRUE(fat32->flushFat());
  fat = readAll(disk_, fat32->fatStartLba(), 1);
  EXPECT_EQ(0xA1234567U, rawEntry(fat, FatKind::fat32, 9));
  EXPECT_EQ(0xFFFFFFFFU, rawEntry(fat, FatKind::fat32, 10));
}

TEST_F(FatTableTest, WritesOnlyTheChangedSectorsAndOnlyWhenItMust) {
  const u64 fatStart = formatAndOpen(disk_, 0, kFat32.sectors, kFat32.type)->fatStartLba();
  FaultyDisk counted(disk_);
  auto volume = openOn(counted, 4, 2);
  volume->setFat(128, 1);  // sectors 1 and 3 of the first window
  volume->setFat(3 * 128, 1);
  volume->setFat(4 * 128, 1);  // the first sector of the second window: touches the first range
  EXPECT_EQ(1U, volume->getFat(128));
  EXPECT_EQ(0U, counted.writes()) << "there is room for both windows";
  EXPECT_EQ(0U, volume->getFat(100 * 128));
  EXPECT_EQ(2U, counted.writes()) << "one write to each copy before a window is given up";
  EXPECT_EQ(1U, rawEntry(readAll(disk_, fatStart, 1 + 4), FatKind::fat32, 4 * 128));
  ASSERT_TRUE(volume->flushFat());
  EXPECT_EQ(2U, counted.writes());
}

TEST_F(FatTableTest, AFatElsewhereIsReadAndWrittenThereAlone) {
  formatAndOpen(disk_, 0, kFat32.sectors, kFat32.type);
  auto volume = openOn(disk_);
  volume->setFatStartOverride(75000);
  volume->setNewFatMode(true);
  disk_.setSector(75000, std::vector<u8>(512, 0x77));
  volume->setFat(5, 6);
  ASSERT_TRUE(volume->flushFat());
  const std::vector<u8> there = readAll(disk_, 75000, 1);
  EXPECT_EQ(6U, rawEntry(there, FatKind::fat32, 5));
  EXPECT_EQ(0U, rawEntry(there, FatKind::fat32, 6)) << "a new FAT begins with zeros";
  EXPECT_EQ(std::vector<u8>(512), readAll(disk_, 75000 + volume->sectorsPerFat(), 1));
  volume->setFatStartOverride(0);
  ASSERT_TRUE(volume->resetFatCache(1, 0));
  volume->setNewFatMode(false);
  EXPECT_EQ(0U, volume->getFat(5));
}

TEST_F(FatTableTest, AReadErrorStopsAllChangesUnlessErrorsAreIgnored) {
  const u32 perFat = formatAndOpen(disk_, 0, kFat32.sectors, kFat32.type)->sectorsPerFat();
  {
    auto volume = openOn(disk_);
    volume->setFat(256, 77);
  }  // the destructor flushes
  FaultyDisk faulty(disk_);
  faulty.failReadsOf({32 + 2, 32 + 2});
  auto volume = openOn(faulty);
  EXPECT_EQ(0U, volume->getFat(3));
  EXPECT_EQ(1U, volume->getFat(256));
  EXPECT_TRUE(volume->hasError());
  volume->setFat(3, 9);
  EXPECT_EQ(0U, volume->getFat(3)) << "set after an error";

  volume = openOn(faulty);
  volume->setIgnoreErrors(true);
  EXPECT_EQ(77U, volume->getFat(256)) << "the second copy has it";
  faulty.failReadsOf({32 + perFat + 2, 32 + perFat + 2});
  volume = openOn(faulty);
  volume->setIgnoreErrors(true);
  EXPECT_EQ(0U, volume->getFat(256));
  EXPECT_FALSE(volume->hasError());
}

TEST_F(FatTableTest, AFailedFlushLosesNothing) {
  formatAndOpen(disk_, 0, kFat32.sectors, kFat32.type);
  FaultyDisk faulty(disk_);
  auto volume = openOn(faulty, 1, 0);
  volume->setFat(5, 6);
  faulty.failWrite(1);
  EXPECT_FALSE(volume->flushFat());
  EXPECT_TRUE(volume->flushFat());
  EXPECT_EQ(6U, openOn(disk_)->getFat(5));
  volume->setFat(5, 7);
  faulty.failWrite(0);
  EXPECT_EQ(1U, volume->getFat(128)) << "the only window could not be given up";
  EXPECT_TRUE(volume->hasError());
  volume->clearError();
  EXPECT_EQ(7U, volume->getFat(5));
}

TEST_F(FatTableTest, WhatLiesBehindTheFatIsNoEntry) {
  auto volume = formatAndOpen(disk_, 0, kFat12.sectors, kFat12.type);
  ASSERT_TRUE(volume->setupFatCache(1, 0));
  const u32 entries = volume->sectorsPerFat() * 512 * 2 / 3;
  volume->setFat(entries - 1, 5);
  EXPECT_EQ(5U, volume->getFat(entries - 1));
  EXPECT_FALSE(volume->hasError());
  EXPECT_EQ(1U, volume->getFat(entries));
  EXPECT_TRUE(volume->hasError());

  volume = formatAndOpen(disk_, 0, kFat16.sectors, kFat16.type);
  EXPECT_FALSE(volume->setupFatCache(24, kAllOnes32)) << "so much memory is not there";
  EXPECT_EQ(1U, volume->getFat(2)) << "without a cache nothing can be read";
}

// Reading on from window to window asks for 256 KiB at a time, and still sees what was written.
TEST_F(FatTableTest, ReadsAheadWhenWindowsFollowOneAnother) {
  auto made = formatAndOpen(disk_, 0, kFat32.sectors, kFat32.type);
  FaultyDisk counted(disk_);
  auto volume = openOn(counted, 1, 0);
  for (u32 sector = 0; sector < made->sectorsPerFat(); ++sector) {
    ASSERT_EQ(sector == 0 ? 0xFFFFFF8U : 0U, volume->getFat(sector * 128)) << sector;
    volume->setFat(sector * 128 + 1, sector);
  }
  EXPECT_LE(counted.reads(), 1U + made->sectorsPerFat()) << "boot area, and at most one a window";
  ASSERT_TRUE(volume->flushFat());
  const u64 before = counted.reads();
  for (u32 sector = 0; sector < made->sectorsPerFat(); ++sector)
    ASSERT_EQ(sector, volume->getFat(sector * 128 + 1));
  EXPECT_LE(counted.reads() - before, 5U);
}

}  // namespace
}  // namespace tallowin
