// Where the parts of a FAT file system lie, and how large they are: arithmetic on a boot sector's
// numbers, without a disk.
#pragma once

#include <algorithm>
#include <optional>
#include <string>

#include "base/types.h"
#include "fat/fat_record.h"

namespace tallowin {

enum class FatKind : u8 { fat12, fat16, fat32 };

const char* fatKindName(FatKind kind);  // "FAT32"
FatKind fatKindOfType(u16 type);        // what a partition type calls for
inline constexpr u16 kFatTypeFat12 = 0x01;
inline constexpr u16 kFatTypeSmallFat16 = 0x04;

// Sector numbers are relative to the volume's first sector.
struct FatLayout {
  FatKind kind = FatKind::fat16;
  u32 bytesPerSector = 512;
  u32 sectorsPerCluster = 0;
  u32 reservedSectors = 1;
  u32 numberOfFats = 2;
  u32 sectorsPerFat = 0;
  u32 rootEntries = 0;  // 0 on FAT32
  u32 totalSectors = 0;

  constexpr bool isFat32() const { return kind == FatKind::fat32; }
  constexpr u32 clusterBytes() const { return sectorsPerCluster * bytesPerSector; }
  constexpr u32 rootDirSectors() const {
    const u32 perSector = bytesPerSector / u32{sizeof(FatDirectoryEntryRecord)};
    return isFat32() || perSector == 0 ? 0 : (rootEntries + perSector - 1) / perSector;
  }
  // FAT12/16: the first sector behind the FATs.
  constexpr u64 rootDirSector() const {
    return reservedSectors + u64{numberOfFats} * sectorsPerFat;
  }
  constexpr u64 firstDataSector() const { return rootDirSector() + rootDirSectors(); }
  // 0 when the metadata leaves no room for a cluster; never more than the FAT has entries, but for
  // FAT12, whose table is not held against it.
  constexpr u32 clusterCount() const {
    if (sectorsPerCluster == 0 || firstDataSector() >= totalSectors) return 0;
    const u64 count = (totalSectors - firstDataSector()) / sectorsPerCluster;
    if (kind == FatKind::fat12) return static_cast<u32>(count);
    const u64 entries = u64{sectorsPerFat} * (bytesPerSector / (isFat32() ? 4 : 2));
    return entries < 2 ? 0 : static_cast<u32>(std::min(count, entries - 2));
  }
  constexpr u32 highestCluster() const { return clusterCount() + 1; }
  // `cluster` from 2 up.
  constexpr u64 clusterToSector(u32 cluster) const {
    return firstDataSector() + (u64{cluster} - 2) * sectorsPerCluster;
  }
  // `sector` in the data area.
  constexpr u32 sectorToCluster(u64 sector) const {
    return static_cast<u32>((sector - firstDataSector()) / sectorsPerCluster) + 2;
  }

  constexpr u32 badMark() const {
    return kind == FatKind::fat12 ? 0xFF7 : kind == FatKind::fat16 ? 0xFFF7 : 0x0FFFFFF7;
  }
  constexpr u32 endMark() const { return badMark() + 8; }

  friend bool operator==(const FatLayout&, const FatLayout&) = default;
};

// --- Choosing a layout

// The media byte, and what goes with it.
struct FatMedia {
  u8 descriptor = 0xF8;
  u16 rootEntries = 512;
  u8 driveNumber = 0x80;

  constexpr bool isFloppy() const { return descriptor != 0xF8; }
};
// By the size: floppies have sizes of their own.
FatMedia fatMediaOf(u64 totalSectors);

// How a cluster size may be asked for, in sectors per cluster: 0 automatic, or
inline constexpr i32 kKeepClusterSize = -1;
inline constexpr i32 kKeepClusterSizeExactly = -2;  // FAT32 does not raise it either

// The kind and size of a volume of that type before its clusters are chosen. Total sectors of more
// than 32 bits are cut: see computeFatLayout.
FatLayout emptyFatLayout(u16 type, u64 totalSectors, u32 bytesPerSector, const FatMedia& media);

// Whether the type may have so many sectors at all.
bool isFatSizeValid(u16 type, u64 sectors);

// Chooses kind, sectors per cluster and sectors per FAT for the total sectors of `layout`. False
// when no volume of the type can have that size, or the FAT would not fit its field.
[[nodiscard]] bool computeFatLayout(FatLayout& layout, u16 type, i32 sectorsPerCluster,
                                    const FatMedia& media);

struct FatLayoutWish {
  u16 type = 0;
  u64 totalSectors = 0;
  u32 bytesPerSector = 512;
  u32 sectorsPerCluster = 0;  // 0 automatic
  bool alignForNtfs = false;  // the data area begins on a multiple of 4 KiB
};

// What formatting settles on. Nothing when it is not possible.
//
// A new volume always has as many clusters as its kind calls for, since other systems tell FAT12
// from FAT16 by that number alone: clusters are made smaller, or a few sectors reserved, until it
// fits.
std::optional<FatLayout> newFatLayout(const FatLayoutWish& wish);

// Why newFatLayout has none for this size whatever the clusters; empty when it has one.
std::string whyNotFatOfSize(u16 type, u64 sectors, u32 sectorSizeBytes);

}  // namespace tallowin
