#include "boot/boot_sector.h"

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

BootSectorKind kindOfType(const std::vector<u8>& sector, u16 type) {
  const BootSectorKind kind = kindOfSector(sector, type);
  if (kind == BootSectorKind::ntfs || kind == BootSectorKind::hpfs) return kind;
  if (!types::isFat(type)) return BootSectorKind::none;
  return bootIn(sector).sectorsPerFat != 0 ? BootSectorKind::fat16 : BootSectorKind::fat32;
}

}  // namespace

Failure BootSector::readSector(const SectorRange& range) {
  sector_.assign(range.disk.sectorSize(), 0);
  if (const Failure failed = range.disk.readSectors(range.firstSector, sector_.data(), 1))
    return failed.as(Error::read);
  asRead_ = sector_;
  hasSignature_ = recordAt<MbrRecord>(std::span(sector_))->signature.isValid();
  return {};
}

Failure BootSector::read(const SectorRange& range, u16 type) {
  if (const Failure failed = readSector(range)) return failed;
  kind_ = hasSignature_ ? kindOfSector(sector_, type) : BootSectorKind::none;
  return {};
}

Failure BootSector::readByType(const SectorRange& range, u16 type) {
  if (const Failure failed = readSector(range)) return failed;
  kind_ = hasSignature_ ? kindOfType(sector_, type) : BootSectorKind::none;
  return {};
}

bool BootSector::takeByType(const std::vector<u8>& sector, u16 type) {
  sector_ = asRead_ = sector;
  const auto* record = recordAt<MbrRecord>(std::span<const u8>(sector_));
  hasSignature_ = record != nullptr && record->signature.isValid();
  kind_ = hasSignature_ ? kindOfType(sector_, type) : BootSectorKind::none;
  return kind_ != BootSectorKind::none;
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
  if (kind_ == BootSectorKind::none || kind_ == BootSectorKind::ntfs) return;
  auto& identity = *recordAt<FatIdentityRecord>(std::span(sector_), identityOffset(kind_));
  if (kind_ != BootSectorKind::hpfs && !isFatExtendedSignature(identity.extendedSignature)) return;
  identity.driveNumber = number;
}

void BootSector::setHiddenSectors(u64 sectors) {
  bootIn(sector_).hiddenSectors = sectors <= kAllOnes32 ? static_cast<u32>(sectors) : 0;
}

// FAT32 says where its copy is; that of NTFS follows the file system, is the last sector of the
// partition, or lies in its middle.
std::vector<u64> BootSector::copySectors(const SectorRange& range) const {
  std::vector<u64> places;
  if (kind_ == BootSectorKind::fat32) {
    const auto& bpb = *recordAt<Fat32BpbRecord>(std::span<const u8>(sector_), kFat32BpbOffset);
    if (bpb.backupBootSector < bootIn(sector_).reservedSectors) places = {bpb.backupBootSector};
  }
  if (kind_ == BootSectorKind::ntfs)
    places = {sectorCount(), range.sectorCount - 1, range.sectorCount / 2};
  const auto isOutside = [&](u64 place) { return place == 0 || place >= range.sectorCount; };
  std::erase_if(places, isOutside);
  for (u64& place : places) place += range.firstSector;
  return places;
}

bool BootSector::isCopy(const std::vector<u8>& sector, CopyRule rule) const {
  if (rule == CopyRule::identical) return sector == asRead_;
  if (kind_ == BootSectorKind::fat32) return sector[0] == 0xE9 || sector[0] == 0xEB;
  constexpr std::size_t kJumpAndName = 11;
  return std::equal(sector.begin(), sector.begin() + kJumpAndName, asRead_.begin());
}

Failure BootSector::addChanges(const SectorRange& range, CopyRule rule,
                               SectorChanges& changes) const {
  for (const u64 place : copySectors(range)) {
    std::vector<u8> found;
    if (const Failure failed = changes.read(place, found)) return failed;
    if (!isCopy(found, rule)) continue;
    if (const Failure failed = changes.change(place, sector_)) return failed;
    break;
  }
  return changes.change(range.firstSector, sector_);
}

Failure BootSector::write(const SectorRange& range) const {
  SectorChanges changes(range.disk);
  std::vector<u8> now;
  if (const Failure failed = changes.read(range.firstSector, now)) return failed;
  if (now != asRead_) return Error::tableChangedMeanwhile;
  if (const Failure failed = addChanges(range, CopyRule::identical, changes)) return failed;
  return changes.apply();
}

}  // namespace tallowin
