// A run of sectors of a disk: what an engine for file systems is given to work on.
#pragma once

#include "disk/disk_device.h"

namespace tallowin {

struct SectorRange {
  DiskDevice& disk;  // borrowed
  u64 firstSector = 0;
  u64 sectorCount = 0;

  u64 endSector() const { return firstSector + sectorCount; }  // one past the last
  u64 bytes() const { return sectorCount * disk.sectorSize(); }
};

}  // namespace tallowin
