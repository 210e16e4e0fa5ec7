// Short ways to format a disk and to open what was made.
#pragma once

#include <gtest/gtest.h>

#include "fat/fat_format.h"

namespace tallowin {

inline FatFormatRequest formatRequest(DiskDevice& disk, u64 start, u32 length, u16 type,
                                      u32 sectorsPerCluster = 0, u32 options = 0) {
  FatFormatRequest request;
  request.device = &disk;
  request.startSector = start;
  request.lengthSectors = length;
  request.typeId = type;
  request.sectorsPerCluster = sectorsPerCluster;
  request.options = options;
  request.geometry = {1023, 254, 63};
  return request;
}

inline std::unique_ptr<FatVolume> openVolume(DiskDevice& disk, u64 start, u64 length, u8 type = 0) {
  FatPlacement placement;
  placement.startSector = start;
  placement.lengthSectors = length;
  placement.typeId = type;
  return FatVolume::open(disk, placement);
}

// Formats and opens; the volume's FAT cache is not set up yet.
inline std::unique_ptr<FatVolume> formatAndOpen(DiskDevice& disk, u64 start, u32 length, u16 type,
                                                u32 sectorsPerCluster = 0) {
  FatFormatRequest request = formatRequest(disk, start, length, type, sectorsPerCluster);
  EXPECT_EQ(Error::none, formatFat(request));
  auto volume = openVolume(disk, start, length, static_cast<u8>(type));
  EXPECT_TRUE(volume->isValid());
  return volume;
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

}  // namespace tallowin
