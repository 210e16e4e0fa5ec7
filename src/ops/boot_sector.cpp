#include "ops/boot_sector.h"

#include <algorithm>

#include "base/text.h"
#include "disk/mbr_record.h"
#include "fat/fat_record.h"
#include "probe/content_record.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr std::size_t kHpfsNameOffset = 54;

VolumeBootRecord& bootIn(std::vector<u8>& sector) {
  return *recordAt<VolumeBootRecord>(std::span(sector));
}
const VolumeBootRecord& bootIn(const std::vector<u8>& sector) {
  return *recordAt<VolumeBootRecord>(std::span<const u8>(sector));
}

// Drive number, serial and names of FAT and HPFS.
std::size_t identityOffset(BootSectorKind kind) {
  return kind == BootSectorKind::fat32 ? kFat32IdentityOffset : kFat16IdentityOffset;
}
const FatIdentityRecord& identityIn(const std::vector<u8>& sector, BootSectorKind kind) {
  return *recordAt<FatIdentityRecord>(std::span<const u8>(sector), identityOffset(kind));
}

BootSectorKind kindOfSector(const std::vector<u8>& sector, u16 type) {
  const std::span<const u8> bytes(sector);
  if (types::isNtfs(type) && textAt(bytes, offsetof(VolumeBootRecord, oemName), "NTFS"))
    return BootSectorKind::ntfs;
  if (types::isNtfs(type) && textAt(bytes, kHpfsNameOffset, "HPFS")) return BootSectorKind::hpfs;
  if (bootIn(sector).sectorsPerFat != 0) {
    const u8 signature = identityIn(sector, BootSectorKind::fat16).extendedSignature;
    return isFatExtendedSignature(signature) ? BootSectorKind::fat16 : BootSectorKind::none;
  }
  const u8 signature = identityIn(sector, BootSectorKind::fat32).extendedSignature;
  return signature == kFatExtendedSignature ? BootSectorKind::fat32 : BootSectorKind::none;
}

std::string textOf(const char* field, std::size_t length) {
  return std::string(trimRight(printable({field, length})));
}

}  // namespace

Failure BootSector::read(const SectorRange& range, u16 type) {
  sector_.assign(range.disk.sectorSize(), 0);
  if (const Failure failed = range.disk.readSectors(range.firstSector, sector_.data(), 1))
    return failed.as(Error::read);
  asRead_ = sector_;
  hasSignature_ = recordAt<MbrRecord>(std::span(sector_))->signature.isValid();
  kind_ = hasSignature_ ? kindOfSector(sector_, type) : BootSectorKind::none;
  return {};
}

std::string BootSector::typeText() const {
  if (kind_ == BootSectorKind::none || kind_ == BootSectorKind::ntfs) return {};
  const FatIdentityRecord& identity = identityIn(sector_, kind_);
  return textOf(identity.typeText, sizeof identity.typeText);
}

std::string BootSector::label() const {
  if (kind_ == BootSectorKind::none || kind_ == BootSectorKind::ntfs) return {};
  const FatIdentityRecord& identity = identityIn(sector_, kind_);
  return textOf(identity.label, sizeof identity.label);
}

u64 BootSector::sectorCount() const {
  if (kind_ == BootSectorKind::none) return 0;
  const VolumeBootRecord& boot = bootIn(sector_);
  if (kind_ == BootSectorKind::ntfs) return boot.ntfsSectorCount;
  return boot.sectorCount16 != 0 ? u64{boot.sectorCount16} : u64{boot.sectorCount32};
}

u32 BootSector::sectorsPerCluster() const { return bootIn(sector_).sectorsPerCluster; }

u32 BootSector::clusterBytes() const {
  return sectorsPerCluster() * u32{bootIn(sector_).sectorSizeBytes};
}

bool BootSector::hasOtherGeometry(const Geometry& geometry) const {
  const VolumeBootRecord& boot = bootIn(sector_);
  return kind_ != BootSectorKind::none && (boot.headCount != geometry.maxHead + 1 ||
                                           boot.sectorsPerTrack != geometry.sectorsPerTrack);
}

bool BootSector::hasOtherDriveNumber(u8 number) const {
  return kind_ != BootSectorKind::none && kind_ != BootSectorKind::ntfs &&
         identityIn(sector_, kind_).driveNumber != number;
}

void BootSector::setGeometry(const Geometry& geometry) {
  VolumeBootRecord& boot = bootIn(sector_);
  boot.headCount = static_cast<u16>(geometry.maxHead + 1);
  boot.sectorsPerTrack = geometry.sectorsPerTrack;
  if (kind_ == BootSectorKind::ntfs) boot.ntfsChecksum = 0;
}

void BootSector::setDriveNumber(u8 number) {
  recordAt<FatIdentityRecord>(std::span(sector_), identityOffset(kind_))->driveNumber = number;
}

// FAT32 says where its copy is, that of NTFS follows the file system.
std::optional<u64> BootSector::copySector(const SectorRange& range) const {
  u64 relative = 0;
  if (kind_ == BootSectorKind::fat32)
    relative =
        recordAt<Fat32BpbRecord>(std::span<const u8>(sector_), kFat32BpbOffset)->backupBootSector;
  if (kind_ == BootSectorKind::ntfs) relative = sectorCount();
  if (relative == 0 || relative >= range.sectorCount) return std::nullopt;
  return range.firstSector + relative;
}

Failure BootSector::write(const SectorRange& range) const {
  DiskDevice& disk = range.disk;
  std::vector<u8> now(sector_.size());
  if (const Failure failed = disk.readSectors(range.firstSector, now.data(), 1))
    return failed.as(Error::read);
  if (now != asRead_) return Error::tableChangedMeanwhile;
  if (const auto copy = copySector(range)) {
    if (const Failure failed = disk.readSectors(*copy, now.data(), 1))
      return failed.as(Error::read);
    // One that differs is no copy of this boot sector, and is left to the check.
    if (now == asRead_) {
      if (const Failure failed = disk.writeSectors(*copy, sector_.data(), 1)) return failed;
      if (const Failure failed = disk.flush()) return failed;
    }
  }
  if (const Failure failed = disk.writeSectors(range.firstSector, sector_.data(), 1)) return failed;
  return disk.flush();
}

}  // namespace tallowin
