#include "disk/firmware_geometry.h"

#include <algorithm>

#include "base/bytes.h"
#include "base/text.h"
#include "disk/mbr_record.h"

namespace tallowin {
namespace {

constexpr Geometry kDefault{1023, 254, 63};

// Raw values as the sources give them, before the final corrections.
struct FoundGeometry {
  u64 maxCylinder = 0;
  u64 maxHead = 0;
  u64 sectorsPerTrack = 0;
};

Geometry corrected(const FoundGeometry& found) {
  const auto orElse = [](u64 value, u64 highest, u64 otherwise) {
    return value == 0 || value > highest ? otherwise : value;
  };
  return {.maxCylinder = static_cast<u16>(orElse(found.maxCylinder, 1023, 1023)),
          .maxHead = static_cast<u8>(orElse(found.maxHead, 255, 254)),
          .sectorsPerTrack = static_cast<u8>(orElse(found.sectorsPerTrack, 63, 63))};
}

// What the firmware calls the disk: the first EDD entry with its size and signature.
std::optional<u32> findEddNumber(Host& host, u64 totalSectors, u32 signature) {
  // Firmware may leave out the last cylinder, of 255 x 63 sectors, less one.
  constexpr u64 kMaxShortfall = 16064;
  for (u32 number = 0x80; number <= 0x9F; ++number) {
    const std::string folder = format("/sys/firmware/edd/int13_dev%X", number);
    const u64 sectors = host.number(folder + "/sectors");
    if (sectors > totalSectors || totalSectors - sectors > kMaxShortfall) continue;
    const u64 found = host.number(folder + "/mbr_signature");
    if ((found == kAllOnes64 ? 0 : found) == signature) return number;
  }
  return std::nullopt;
}

std::optional<FoundGeometry> eddGeometry(Host& host, u32 number) {
  const std::string folder = format("/sys/firmware/edd/int13_dev%X", number);
  const FoundGeometry found{host.number(folder + "/legacy_max_cylinder"),
                            host.number(folder + "/legacy_max_head"),
                            host.number(folder + "/legacy_sectors_per_track")};
  if (found.maxCylinder == kAllOnes64 || found.maxHead == kAllOnes64 ||
      found.sectorsPerTrack == kAllOnes64)
    return std::nullopt;
  return found;
}

// Whoever made the table wrote the ends of its entries by the geometry in force then.
std::optional<FoundGeometry> geometryOfEntries(const MbrRecord& mbr, u64 totalSectors) {
  constexpr u8 kProtective = 0xEE;
  for (const MbrSlotRecord& entry : mbr.slots) {
    const u64 start = entry.startLba;
    const u64 size = entry.sectorCount;
    const bool isBeyond = start >= totalSectors || start + size > totalSectors;
    if ((entry.bootIndicator & 0x7F) != 0 || (entry.type != kProtective && isBeyond)) break;
    if (entry.type == 0) continue;
    FoundGeometry found;
    found.maxHead = entry.endChs[0];
    found.sectorsPerTrack = entry.endChs[1] & 0x3F;
    if (found.sectorsPerTrack != 0) {
      const u64 cylinders = totalSectors / ((found.maxHead + 1) * found.sectorsPerTrack);
      found.maxCylinder = cylinders == 0 ? 0 : cylinders - 1;
    }
    return found;
  }
  return std::nullopt;
}

// 255 heads make the highest index 254, and so does the 256 that some answer.
FoundGeometry fromCounts(const KernelGeometry& counts) {
  const u8 maxHead = static_cast<u8>(counts.heads - 1);
  return {.maxCylinder = static_cast<u16>(counts.cylinders - 1),
          .maxHead = maxHead == 255 ? u8{254} : maxHead,
          .sectorsPerTrack = counts.sectorsPerTrack};
}

struct FirstSector {
  std::vector<u8> bytes;
  u64 totalSectors = 0;
  const MbrRecord& mbr() const { return *recordAt<MbrRecord>(std::span(bytes)); }
};

std::optional<FirstSector> readFirstSector(DiskDevice& disk) {
  FirstSector first;
  first.bytes.resize(disk.sectorSize());
  if (disk.traits().deviceKind != kHardDiskKind || first.bytes.size() < sizeof(MbrRecord))
    return std::nullopt;
  if (disk.readSectors(0, first.bytes.data(), 1) != Error::none) return std::nullopt;
  first.totalSectors = disk.sectorCount().value_or(0);
  return first;
}

FirmwareDisk determined(const FoundGeometry& found, u32 biosNumber) {
  return {.geometry = corrected(found), .determined = true, .biosNumber = biosNumber};
}

}  // namespace

FirmwareDisk findFirmwareDisk(Host& host, DiskDevice& disk, const KernelGeometryQuery& kernel) {
  u32 biosNumber = kBiosNumberNoMatch;
  if (const auto first = readFirstSector(disk)) {
    if (const auto number = findEddNumber(host, first->totalSectors, first->mbr().diskSignature)) {
      biosNumber = *number;
      if (const auto found = eddGeometry(host, *number)) return determined(*found, biosNumber);
    }
    if (const auto found = geometryOfEntries(first->mbr(), first->totalSectors))
      return determined(*found, biosNumber);
  }
  if (const auto counts = kernel()) return determined(fromCounts(*counts), biosNumber);
  return {.geometry = kDefault, .determined = false, .biosNumber = biosNumber};
}

FirmwareDisk imageFirmwareDisk(DiskDevice& disk) {
  if (const auto first = readFirstSector(disk)) {
    if (const auto found = geometryOfEntries(first->mbr(), first->totalSectors))
      return determined(*found, kBiosNumberNoMatch);
  }
  return {.geometry = kDefault, .determined = false, .biosNumber = kBiosNumberNoMatch};
}

}  // namespace tallowin
