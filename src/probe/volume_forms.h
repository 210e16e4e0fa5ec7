// The forms of headers by which lost volumes are recognised. Used by lost_volume.cpp alone.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/text.h"
#include "disk/disk_device.h"
#include "probe/lost_volume.h"

namespace tallowin {

// Reads parts of what may be a volume. Sectors that cannot be read, or do not exist, hold nothing.
class SuspectedVolume {
 public:
  SuspectedVolume(DiskDevice& disk, u64 diskSectors, u64 startSector, const VolumePlace& place)
      : disk_(disk), diskSectors_(diskSectors), startSector_(startSector), place_(place) {}

  u64 startSector() const { return startSector_; }
  u32 sectorSize() const { return disk_.sectorSize(); }

  // `offset` in bytes from the start of the volume.
  template <DiskRecord Record>
  std::optional<Record> at(u64 offset) {
    Record record;
    if (!read(offset, {reinterpret_cast<u8*>(&record), sizeof record})) return std::nullopt;
    return record;
  }
  bool hasText(u64 offset, std::string_view text);

  // Whether a boot sector that counts so many sectors before it lies where it was made for.
  bool isPlacedBy(u64 sectorsBefore) const {
    return sectorsBefore == startSector_ ||
           (place_.isInsideExtended && sectorsBefore == place_.volumeGap);
  }
  // Rounded up; all ones when the number is too large.
  u64 sectorsOf(u64 count, u64 unitBytes) const;

 private:
  bool read(u64 offset, std::span<u8> bytes);

  DiskDevice& disk_;
  u64 diskSectors_;
  u64 startSector_;
  VolumePlace place_;
  std::vector<u8> sectors_;
};

// The volume with the header at `offset`; nothing when it is none of this form. The caller fills
// in where it starts, and drops what leaves the disk.
using ExamineVolume = std::optional<LostVolume> (*)(SuspectedVolume& volume, u64 offset);

struct VolumeForm {
  u64 headerOffset = 0;  // in bytes from the start of the volume, or in sectors
  bool inSectors = false;
  u64 magicOffset = 0;          // in bytes from the start of the header
  std::string_view magic = {};  // at most eight bytes, of one sector
  ExamineVolume examine = nullptr;

  u64 headerByte(u32 sectorSize) const { return headerOffset * (inSectors ? sectorSize : 1); }
  u64 magicByte(u32 sectorSize) const { return headerByte(sectorSize) + magicOffset; }
};

std::span<const VolumeForm> bootSectorForms();
std::span<const VolumeForm> superblockForms();
std::span<const VolumeForm> containerForms();

inline bool isPowerOfTwo(u64 value) { return value != 0 && (value & (value - 1)) == 0; }

// The text up to the first NUL.
inline std::string fieldText(std::span<const char> field) {
  const std::string_view all(field.data(), field.size());
  return std::string(trimRight(printableFromUtf8(all.substr(0, all.find('\0')))));
}

}  // namespace tallowin
