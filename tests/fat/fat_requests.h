// Short ways to format a disk and to open what was made.
#pragma once

#include <gtest/gtest.h>

#include "fat/fat_format.h"
#include "fat/fat_table.h"
#include "fat/fat_volume.h"

namespace tallowin {

inline FormatWish wishFor(u16 type, u32 clusterBytes = 0) {
  FormatWish wish;
  wish.type = type;
  wish.clusterBytes = clusterBytes;
  wish.geometry = {1023, 254, 63};
  return wish;
}

inline Failure formatQuietly(const SectorRange& range, const FormatWish& wish) {
  SilentJob job;
  FormatReport report;
  return formatFat(range, wish, job, report);
}

// Fails the test, and stays empty, where there is no sound volume.
inline std::optional<FatVolume> opened(const SectorRange& range, u16 type = 0) {
  std::optional<FatVolume> volume;
  EXPECT_EQ(Error::none, openFat(range, type, volume));
  return volume;
}

inline bool isFat(const SectorRange& range, u16 type = 0) {
  std::optional<FatVolume> volume;
  return !openFat(range, type, volume);
}

inline FatVolume formatAndOpen(const SectorRange& range, u16 type, u32 clusterBytes = 0) {
  EXPECT_EQ(Error::none, formatQuietly(range, wishFor(type, clusterBytes)));
  return opened(range, type).value();
}

inline FatTable tableOf(const FatVolume& volume, const FatTable::Options& options = {}) {
  FatTable table(volume.range, volume.layout);
  EXPECT_EQ(Error::none, table.setUp(options));
  return table;
}

inline u32 entryOf(FatTable& table, u32 cluster) {
  u32 value = 1;
  EXPECT_EQ(Error::none, table.get(cluster, value)) << cluster;
  return value;
}

// An entry as it lies in a FAT, read without the window cache.
inline u32 rawEntry(const std::vector<u8>& fat, FatKind kind, u32 index) {
  const auto byte = [&](std::size_t at) { return u32{fat.at(at)}; };
  if (kind == FatKind::fat32)
    return byte(4 * index) | byte(4 * index + 1) << 8 | byte(4 * index + 2) << 16 |
           byte(4 * index + 3) << 24;
  if (kind == FatKind::fat16) return byte(2 * index) | byte(2 * index + 1) << 8;
  const u32 first = byte(index * 3 / 2), second = byte(index * 3 / 2 + 1);
  return index % 2 == 0 ? first | (second & 0xF) << 8 : first >> 4 | second << 4;
}

inline std::vector<u8> readAll(DiskDevice& disk, u64 lba, u64 count) {
  std::vector<u8> bytes(count * disk.sectorSize());
  EXPECT_EQ(disk.readSectors(lba, bytes.data(), count), Error::none);
  return bytes;
}

// Copy 0 or 1 of the FAT, as it lies on the disk.
inline std::vector<u8> fatCopy(const FatVolume& volume, u32 copy) {
  const FatLayout& layout = volume.layout;
  return readAll(volume.range.disk,
                 volume.range.firstSector + layout.reservedSectors + copy * layout.sectorsPerFat,
                 layout.sectorsPerFat);
}

}  // namespace tallowin
