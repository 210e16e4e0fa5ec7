// What the boot records of a partition have to say when it came to lie elsewhere.
#pragma once

#include <optional>

#include "base/geometry.h"
#include "boot/sector_changes.h"

namespace tallowin {

enum BootFixFlags : u32 {
  kFixBackup = 0x0002,       // the backup of the boot sector too
  kFixDriveNumber = 0x0004,  // the number of the drive, where the record has one
  kFixFirstSector = 0x0100,  // a boot loader in the first sector of the disk that leads there
};

// Sectors of the whole disk. The data lies at its new place already.
struct BootMove {
  u32 flags = kFixBackup;
  u16 type = 0;  // of the partition
  u64 oldStart = 0;
  u64 newStart = 0;
  u64 sectorCount = 0;
  // What lies before a partition of the disk, or between a volume and its EBR.
  u64 hiddenSectors = 0;
  Geometry geometry;      // of the drive that it lies on now
  u8 driveNumber = 0x80;  // to be written with kFixDriveNumber
  // Of the firmware, of the drive that it was on and of the one that it is on; without them the
  // first disk is meant.
  std::optional<u8> oldBiosNumber;
  std::optional<u8> newBiosNumber;
};

struct BootFixReport {
  // The boot loader looks for its files by sector numbers that nobody could put right: its boot
  // sector says from now on that it has to be installed again.
  bool mustReinstallLoader = false;
};

// Adds what has to be changed; nothing is written. Nothing to do is no failure. read.
Failure planBootFix(DiskDevice& disk, const BootMove& move, SectorChanges& changes,
                    BootFixReport& report);

}  // namespace tallowin
