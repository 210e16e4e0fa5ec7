// The boot sector of a FAT volume and what belongs to it, as records in memory.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "base/geometry.h"
#include "disk/sector_range.h"
#include "fat/fat_layout.h"
#include "fat/fat_record.h"

namespace tallowin {

// What a boot sector says beside the layout.
struct FatPlace {
  FatMedia media;
  Geometry geometry;
  u32 hiddenSectors = 0;
};

// FAT12/16: the boot sector. FAT32: boot sector, FSInfo, and a third sector that boot code may
// continue in. Nothing it says is to be believed before layoutIn() has found it sound.
class FatBootArea {
 public:
  static constexpr u32 kSectors = 3;

  // All zeros.
  explicit FatBootArea(u32 sectorBytes);
  // With the boot code of a new volume.
  static FatBootArea fresh(u32 sectorBytes, u32 serial);

  // Nothing changes in memory when it fails.
  Failure read(const SectorRange& range);
  // All but the boot sector itself: what is to be on the medium before that. FAT32: FSInfo and the
  // third sector at their places, and the three with the boot sector at the backup's.
  Failure writeBehindBootSector(const SectorRange& range) const;
  Failure writeBootSector(const SectorRange& range) const;
  // Where the volume has an FSInfo sector; nothing is written where it has none.
  Failure writeFsInfo(const SectorRange& range, u32 freeClusters, u32 nextFree);

  // From the boot sector, and where it does not say from the type of the partition.
  FatKind kind(u16 type) const;
  // Nothing for a boot sector that is not sound. Else reserved area, FATs and root directory all
  // lie inside the range.
  std::optional<FatLayout> layoutIn(const SectorRange& range, u16 type) const;
  // Fills everything but boot code, serial and label, which stay.
  void setLayout(const FatLayout& layout, const FatPlace& place);

  FatBpbRecord& bpb() { return *recordAt<FatBpbRecord>(bytes()); }
  const FatBpbRecord& bpb() const { return *recordAt<FatBpbRecord>(bytes()); }
  Fat32BpbRecord& bpb32() { return *recordAt<Fat32BpbRecord>(bytes(), kFat32BpbOffset); }
  const Fat32BpbRecord& bpb32() const {
    return *recordAt<Fat32BpbRecord>(bytes(), kFat32BpbOffset);
  }
  // Drive number, serial and names, where a boot sector without a 16-bit FAT size has them, or one
  // with it.
  FatIdentityRecord& identity() { return *recordAt<FatIdentityRecord>(bytes(), identityOffset()); }
  const FatIdentityRecord& identity() const {
    return *recordAt<FatIdentityRecord>(bytes(), identityOffset());
  }
  bool hasExtendedSignature() const { return isFatExtendedSignature(identity().extendedSignature); }
  std::string_view label() const { return {identity().label, sizeof(identity().label)}; }
  void setLabel(std::string_view elevenBytes);
  std::string_view typeText() const { return {identity().typeText, sizeof(identity().typeText)}; }
  // Null when the second sector is none, or the volume no FAT32.
  FatFsInfoRecord* fsInfo();
  // Whether there is a place for one, whatever it holds.
  bool hasFsInfoSector() const;
  // Makes the second sector one, whose numbers are not known; what it holds beside them stays.
  void renewFsInfo();
  // Of a FAT32, relative; 0 when it has none.
  u32 backupBootSector() const;

  std::span<u8> bytes() { return bytes_; }
  std::span<const u8> bytes() const { return bytes_; }
  // Sector 0, 1, or the third: sector 2, with NT-style boot code sector 12.
  std::span<u8> sector(u32 slot) { return bytes().subspan(sectorBytes() * slot, sectorBytes()); }
  std::span<const u8> sector(u32 slot) const {
    return bytes().subspan(sectorBytes() * slot, sectorBytes());
  }

 private:
  std::size_t sectorBytes() const { return bytes_.size() / kSectors; }
  bool isFat32() const { return bpb().sectorsPerFat16 == 0; }
  std::size_t identityOffset() const {
    return isFat32() ? kFat32IdentityOffset : kFat16IdentityOffset;
  }
  Failure stampSectorTwo(const SectorRange& range) const;

  std::vector<u8> bytes_;
};

}  // namespace tallowin
