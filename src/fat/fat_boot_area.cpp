#include "fat/fat_boot_area.h"

#include <algorithm>
#include <cstring>

#include "fat/boot_code.h"
#include "fat/new_boot_sector.h"

namespace tallowin {
namespace {

constexpr u32 kMostSectorsPerCluster = 128;
constexpr u32 kNtThirdSector = 12;  // where NT-style boot code continues
constexpr u16 kRootCluster = 2;
constexpr u16 kFsInfoSector = 1;
constexpr u16 kBackupBootSector = 6;

}  // namespace

FatBootArea::FatBootArea(u32 sectorBytes)
    : bytes_(std::size_t{kSectors} * std::max(sectorBytes, u32{512})) {}

FatBootArea FatBootArea::fresh(u32 sectorBytes, u32 serial) {
  FatBootArea area(sectorBytes);
  std::ranges::copy(tallowinNewFatBootSector, area.bytes_.begin());
  area.identity().serial = serial;
  area.setLabel(kFatNoName);
  return area;
}

// --- What it says

FatKind FatBootArea::kind(u16 type) const {
  if (!hasExtendedSignature() || (isFat32() && bpb32().sectorsPerFat == 0))
    return fatKindOfType(type);
  if (isFat32()) return FatKind::fat32;
  // "FAT12", "FAT16", or the digits one place later.
  const char fifth = identity().typeText[4];
  const char sixth = identity().typeText[5];
  if (fifth == '6' || sixth == '6') return FatKind::fat16;
  const bool says12 = fifth == '2' || sixth == '2' || fatKindOfType(type) == FatKind::fat12;
  return says12 ? FatKind::fat12 : FatKind::fat16;
}

std::optional<FatLayout> FatBootArea::layoutIn(const SectorRange& range, u16 type) const {
  FatLayout layout;
  layout.kind = kind(type);
  layout.bytesPerSector = bpb().bytesPerSector;
  layout.sectorsPerCluster = bpb().sectorsPerCluster;
  layout.reservedSectors = bpb().reservedSectors;
  layout.numberOfFats = bpb().numberOfFats;
  layout.sectorsPerFat = layout.isFat32() ? u32{bpb32().sectorsPerFat} : u32{bpb().sectorsPerFat16};
  layout.rootEntries = bpb().rootEntries;
  layout.totalSectors =
      bpb().totalSectors16 != 0 ? u32{bpb().totalSectors16} : u32{bpb().totalSectors32};
  const bool isSound =
      std::equal(std::begin(kBootSignature), std::end(kBootSignature),
                 bytes_.begin() + kBootSignatureOffset) &&
      range.sectorCount <= kAllOnes32 && layout.totalSectors != 0 &&
      layout.totalSectors <= range.sectorCount && layout.sectorsPerFat != 0 &&
      layout.numberOfFats != 0 && layout.sectorsPerCluster != 0 &&
      layout.sectorsPerCluster <= kMostSectorsPerCluster &&
      layout.bytesPerSector == range.disk.sectorSize() &&
      layout.bytesPerSector <= kFatLongestSector &&
      // Else a change of the FAT would land in the boot sector, or behind the partition.
      layout.reservedSectors != 0 && layout.firstDataSector() <= layout.totalSectors;
  return isSound ? std::optional(layout) : std::nullopt;
}

u32 FatBootArea::backupBootSector() const {
  return kind(0) == FatKind::fat32 ? u32{bpb32().backupBootSector} : 0;
}

FatFsInfoRecord* FatBootArea::fsInfo() {
  const bool found = isFat32() && textAt(sector(1), offsetof(FatFsInfoRecord, structSignature),
                                         kFsInfoStructSignature);
  return found ? recordAt<FatFsInfoRecord>(sector(1)) : nullptr;
}

bool FatBootArea::hasFsInfoSector() const {
  return isFat32() && bpb32().fsInfoSector == kFsInfoSector &&
         bpb().reservedSectors > kFsInfoSector;
}

// --- Changing it

void FatBootArea::renewFsInfo() {
  auto* info = recordAt<FatFsInfoRecord>(sector(1));
  if (info == nullptr) return;
  std::copy_n(kFsInfoLeadSignature, sizeof(info->leadSignature), info->leadSignature);
  std::copy_n(kFsInfoStructSignature, sizeof(info->structSignature), info->structSignature);
  info->freeClusters = kFreeClustersUnknown;
  info->nextFreeCluster = 4;
  std::copy_n(kFatSectorTrail, sizeof(info->trailSignature), info->trailSignature);
}

void FatBootArea::setLabel(std::string_view elevenBytes) {
  std::memcpy(identity().label, elevenBytes.data(),
              std::min(elevenBytes.size(), sizeof(identity().label)));
}

void FatBootArea::setLayout(const FatLayout& layout, const FatPlace& place) {
  // The place of these depends on the kind.
  FatIdentityRecord kept = identity();
  const bool becomesFat32 = layout.isFat32() && fsInfo() == nullptr;
  identity() = {};
  if (isFat32()) bpb32() = {};

  FatBpbRecord& common = bpb();
  common.bytesPerSector = static_cast<u16>(layout.bytesPerSector);
  common.sectorsPerCluster = static_cast<u8>(layout.sectorsPerCluster);
  common.reservedSectors = static_cast<u16>(layout.reservedSectors);
  common.numberOfFats = static_cast<u8>(layout.numberOfFats);
  common.rootEntries = static_cast<u16>(layout.rootEntries);
  const bool fits16 = layout.totalSectors < 0x10000 && !layout.isFat32();
  common.totalSectors16 = fits16 ? static_cast<u16>(layout.totalSectors) : u16{0};
  common.totalSectors32 = fits16 ? u32{0} : layout.totalSectors;
  common.media = place.media.descriptor;
  common.sectorsPerFat16 = layout.isFat32() ? u16{0} : static_cast<u16>(layout.sectorsPerFat);
  common.sectorsPerTrack = place.geometry.sectorsPerTrack;
  common.heads = static_cast<u16>(place.geometry.maxHead + 1);
  common.hiddenSectors = place.hiddenSectors;
  if (layout.isFat32()) {
    if (becomesFat32) std::ranges::fill(bytes().subspan(sectorBytes()), u8{0});
    Fat32BpbRecord& fields = bpb32();
    fields = {};
    fields.sectorsPerFat = layout.sectorsPerFat;
    fields.rootCluster = kRootCluster;
    fields.fsInfoSector = kFsInfoSector;
    fields.backupBootSector = kBackupBootSector;
    renewFsInfo();
  }
  kept.driveNumber = place.media.driveNumber;
  kept.reserved = 0;
  kept.extendedSignature = kFatExtendedSignature;
  const std::string_view text = fatKindName(layout.kind);
  std::ranges::fill(kept.typeText, ' ');
  text.copy(kept.typeText, sizeof(kept.typeText));
  identity() = kept;
}

// --- On the disk

Failure FatBootArea::read(const SectorRange& range) {
  FatBootArea found(range.disk.sectorSize());
  const u64 sectors = std::min<u64>(kSectors, range.sectorCount);
  if (sectors == 0) return Error::invalidVolume;
  if (const Failure failed =
          range.disk.readSectors(range.firstSector, found.bytes_.data(), sectors))
    return failed;
  if (hasNtStyleCode(found.sector(0)) && found.bpb().reservedSectors > kNtThirdSector &&
      range.sectorCount > kNtThirdSector)
    if (const Failure failed =
            range.disk.readSectors(range.firstSector + kNtThirdSector, found.sector(2).data(), 1))
      return failed;
  *this = std::move(found);
  return {};
}

Failure FatBootArea::writeBootSector(const SectorRange& range) const {
  return range.disk.writeSectors(range.firstSector, bytes_.data(), 1);
}

Failure FatBootArea::writeFsInfo(const SectorRange& range, u32 freeClusters, u32 nextFree) {
  FatFsInfoRecord* info = fsInfo();
  if (info == nullptr || !hasFsInfoSector()) return {};
  info->freeClusters = freeClusters;
  info->nextFreeCluster = nextFree;
  return range.disk.writeSectors(range.firstSector + kFsInfoSector, sector(1).data(), 1);
}

Failure FatBootArea::writeBehindBootSector(const SectorRange& range) const {
  if (!isFat32()) return {};
  DiskDevice& disk = range.disk;
  const bool ntStyle = hasNtStyleCode(sector(0));
  const u32 reserved = bpb().reservedSectors;
  const u32 count = std::min(ntStyle ? u32{2} : kSectors, reserved);
  const u32 backup = bpb32().backupBootSector;
  if (count > 1)
    if (const Failure failed =
            disk.writeSectors(range.firstSector + 1, sector(1).data(), count - 1))
      return failed;
  // A backup that would lie over the original is none.
  if (backup >= count && backup + count < reserved)
    if (const Failure failed = disk.writeSectors(range.firstSector + backup, bytes_.data(), count))
      return failed;
  if (ntStyle && reserved > kNtThirdSector)
    if (const Failure failed =
            disk.writeSectors(range.firstSector + kNtThirdSector, sector(2).data(), 1))
      return failed;
  return reserved <= 2 ? Failure{} : stampSectorTwo(range);
}

// Sector 2 alone, not its backup, ends with a signature whatever else it holds.
Failure FatBootArea::stampSectorTwo(const SectorRange& range) const {
  std::vector<u8> second(range.disk.sectorSize());
  if (const Failure failed = range.disk.readSectors(range.firstSector + 2, second.data(), 1))
    return failed;
  std::copy(std::begin(kFatSectorTrail), std::end(kFatSectorTrail),
            second.end() - sizeof(kFatSectorTrail));
  return range.disk.writeSectors(range.firstSector + 2, second.data(), 1);
}

}  // namespace tallowin
