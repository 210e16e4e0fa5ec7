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

inline std::vector<u8> readAll(DiskDevice& disk, u64 lba, u64 count) {
  std::vector<u8> bytes(count * disk.sectorSize());
  EXPECT_TRUE(disk.readSectors(lba, bytes.data(), count));
  return bytes;
}

}  // namespace tallowin
