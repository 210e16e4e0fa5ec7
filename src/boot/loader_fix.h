// The boot loaders that look for what they load by sector numbers.
#pragma once

#include "boot/boot_fix.h"

namespace tallowin {

// An address on the disk, as a loader keeps it, when it lies in the partition.
class MovedSectors {
 public:
  explicit MovedSectors(const BootMove& move) : move_(move) {}

  bool wereAt(u64 sector) const {
    return sector >= move_.oldStart && sector - move_.oldStart < move_.sectorCount;
  }
  u64 nowAt(u64 sector) const { return sector - move_.oldStart + move_.newStart; }
  // Whether the code of a drive means the one that the partition was on.
  bool wereOnDrive(u8 drive) const;

 private:
  const BootMove& move_;
};

// The boot sector of GRUB at `lba`, of either kind, and the list in the sector that it leads to;
// nothing is changed unless that lay in the partition. read.
Failure planGrubFix(u64 lba, const BootMove& move, SectorChanges& changes);

bool isLilo(const std::vector<u8>& sector);
// A boot sector that says that LILO has to be installed again.
std::vector<u8> loaderIsGone(const std::vector<u8>& sector);

}  // namespace tallowin
