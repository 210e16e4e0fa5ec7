// A FAT volume that lies on a disk: its boot area, and the layout that follows from that.
#pragma once

#include <optional>

#include "fat/fat_boot_area.h"

namespace tallowin {

struct FatVolume {
  SectorRange range;
  FatBootArea boot;
  FatLayout layout;

  // FAT32: the cluster that the root directory begins in; else 0.
  u32 rootCluster() const { return layout.isFat32() ? u32{boot.bpb32().rootCluster} : 0; }
};

// Whether the copies of the FAT lie where the boot sector says: all of them begin alike, and what
// lies behind the last one does not. Where a number of the boot sector is wrong a write would land
// in files. read.
Failure beginsWithItsFats(const FatVolume& volume, bool& does);

// `type` is that of the partition. invalidVolume: no FAT, or one whose boot sector cannot be right;
// read. `volume` is set only on success.
Failure openFat(const SectorRange& range, u16 type, std::optional<FatVolume>& volume);

}  // namespace tallowin
