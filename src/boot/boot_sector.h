// What the boot sector of a partition says of the partition and the disk, and its repair.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/geometry.h"
#include "boot/sector_changes.h"
#include "disk/sector_range.h"

namespace tallowin {

enum class BootSectorKind : u8 { none, fat16, fat32, hpfs, ntfs };  // fat16: FAT12 too

// Which copy of a boot sector is written together with it.
enum class CopyRule : u8 {
  identical,  // one that differs is no copy of it, and is left to the check
  sameKind,   // one that is recognised as a boot sector of its kind
};

class BootSector {
 public:
  // `type` is that of the partition: NTFS and HPFS are looked for in the types that hold them.
  // read, outOfMemory.
  Failure read(const SectorRange& range, u16 type);
  // The same by the type alone: old FAT volumes have neither serial nor name.
  Failure readByType(const SectorRange& range, u16 type);
  // The same of one in memory; false: it is none.
  [[nodiscard]] bool takeByType(const std::vector<u8>& sector, u16 type);
  const std::vector<u8>& bytes() const { return sector_; }

  BootSectorKind kind() const { return kind_; }
  bool hasSignature() const { return hasSignature_; }
  // As it stands there: "FAT16   ", "HPFS    "; empty for NTFS and for none.
  std::string typeText() const;
  std::string label() const;
  // Of the file system; 0 for none. That of NTFS is without the copy behind it.
  u64 sectorCount() const;
  u32 sectorsPerCluster() const;
  u32 clusterBytes() const;

  bool hasOtherGeometry(const Geometry& geometry) const;
  // Of FAT and HPFS.
  bool hasOtherDriveNumber(u8 number) const;

  void setGeometry(const Geometry& geometry);
  void setPlace(u64 hiddenSectors, const Geometry& geometry) {
    setHiddenSectors(hiddenSectors);
    setGeometry(geometry);
  }
  // Where the record has a place for it.
  void setDriveNumber(u8 number);
  // 0 for those that the field cannot hold.
  void setHiddenSectors(u64 sectors);
  bool isChanged() const { return sector_ != asRead_; }
  // Writes what was set into the copy, where the file system has one that is identical, and then
  // into the boot sector. tableChangedMeanwhile: the boot sector is not the one that was read, and
  // nothing was written; read: nothing was written; write, flush.
  Failure write(const SectorRange& range) const;
  // The same as changes, the copy first, or without a copy. read.
  Failure addChanges(const SectorRange& range, CopyRule rule, SectorChanges& changes) const;
  Failure addChange(const SectorRange& range, SectorChanges& changes) const {
    return changes.change(range.firstSector, sector_);
  }

 private:
  Failure readSector(const SectorRange& range);
  std::vector<u64> copySectors(const SectorRange& range) const;
  bool isCopy(const std::vector<u8>& sector, CopyRule rule) const;

  BootSectorKind kind_ = BootSectorKind::none;
  bool hasSignature_ = false;
  std::vector<u8> sector_;
  std::vector<u8> asRead_;
};

}  // namespace tallowin
