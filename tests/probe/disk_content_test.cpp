// What a disk without partitions holds is named before it is given up.
#include "probe/disk_content.h"

#include <gtest/gtest.h>

#include "base/bytes.h"
#include "disk/memory_disk.h"

namespace tallowin {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kRaid = "\xFC\x4E\x2B\xA9"sv;
constexpr std::string_view kUberblock = "\x0C\xB1\xBA\x00\x00\x00\x00\x00"sv;
constexpr u64 kBytes = 10 * kMiB + 52 * kKiB;  // no multiple of 64 KiB

void put(MemoryDisk& disk, u64 offset, std::string_view bytes) {
  const u64 lba = offset / disk.sectorSize();
  std::vector<u8> sector = disk.sector(lba);
  std::ranges::copy(bytes, sector.begin() + static_cast<i64>(offset % disk.sectorSize()));
  disk.setSector(lba, sector);
}

class DiskContentTest : public testing::TestWithParam<u32> {};

TEST_P(DiskContentTest, WhatStandsFarFromTheFirstSectorIsFound) {
  const u64 sector = GetParam();
  const struct {
    u64 offset;
    std::string_view bytes;
    const char* named;
  } cases[] = {
      {200 * kKiB, kUberblock, "a ZFS pool"},
      {kBytes / (64 * kKiB) * 64 * kKiB - 64 * kKiB, kRaid, "a member of a RAID"},
      {kBytes - 8 * kKiB, kRaid, "a member of a RAID"},
      {32 * kKiB + 1, "CD001"sv, "an ISO 9660 file system"},
      {sector, "EFI PART"sv, "a GPT that its first sector does not tell of"},
      {kBytes - sector, "EFI PART"sv, "a GPT that its first sector does not tell of"},
      {100, "Z"sv, "data of another program"},
  };
  for (const auto& [offset, bytes, named] : cases) {
    SCOPED_TRACE(named + std::string(" at ") + std::to_string(offset));
    MemoryDisk disk(kBytes / sector, GetParam());
    put(disk, offset, bytes);
    EXPECT_EQ(namedDiskContent(disk), named);
  }
}

TEST_P(DiskContentTest, ABlankDiskAndATableWithoutPartitionsMayGo) {
  MemoryDisk disk(kBytes / GetParam(), GetParam());
  EXPECT_EQ(namedDiskContent(disk), std::nullopt);
  put(disk, 440, "\x01\x02\x03\x04"sv);
  EXPECT_EQ(namedDiskContent(disk), std::nullopt);
  put(disk, 0, "\xEB\x63\x90"sv);
  put(disk, 510, "\x55\xAA"sv);
  EXPECT_EQ(namedDiskContent(disk), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(SectorSizes, DiskContentTest, testing::Values(512, 4096));

}  // namespace
}  // namespace tallowin
