#include "fat/fat_volume.h"

#include <algorithm>
#include <cstring>

#include "fat/boot_code.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u32 kLongestSector = 4096;
constexpr u32 kMostSectorsPerCluster = 128;
constexpr u32 kNtThirdSector = 12;  // where NT-style boot code continues

}  // namespace

FatVolume::FatVolume(DiskDevice& disk, const FatPlacement& placement)
    : disk_(disk),
      placement_(placement),
      bootArea_(std::size_t{kBootAreaSectors} * std::max(disk.sectorSize(), u32{512})) {}

FatVolume::~FatVolume() { static_cast<void>(flushFat()); }

std::unique_ptr<FatVolume> FatVolume::createEmpty(DiskDevice& disk, const FatPlacement& placement) {
  return std::unique_ptr<FatVolume>(new FatVolume(disk, placement));
}

std::unique_ptr<FatVolume> FatVolume::open(DiskDevice& disk, const FatPlacement& placement) {
  auto volume = createEmpty(disk, placement);
  static_cast<void>(volume->readBootArea());  // what is unreadable stays invalid
  return volume;
}

// --- Kind and validity

std::optional<FatKind> FatVolume::kindFromBootSector() const {
  const auto& identity16 = *recordAt<FatIdentityRecord>(bootArea(), kFat16IdentityOffset);
  const auto& identity32 = *recordAt<FatIdentityRecord>(bootArea(), kFat32IdentityOffset);
  if (bpb().sectorsPerFat16 == 0) {
    if (!isFatExtendedSignature(identity32.extendedSignature) || bpb32().sectorsPerFat == 0)
      return std::nullopt;
    return FatKind::fat32;
  }
  if (!isFatExtendedSignature(identity16.extendedSignature)) return std::nullopt;
  // "FAT12", "FAT16", or the digits one place later.
  const char fifth = identity16.typeText[4];
  const char sixth = identity16.typeText[5];
  if (fifth == '6' || sixth == '6') return FatKind::fat16;
  const bool says12 = fifth == '2' || sixth == '2' || typeId() == 0x01;
  return says12 ? FatKind::fat12 : FatKind::fat16;
}

void FatVolume::classify() {
  const FatKind byType = typeId() == 0x01           ? FatKind::fat12
                         : types::isFat32(typeId()) ? FatKind::fat32
                                                    : FatKind::fat16;
  kind_ = kindFromBootSector().value_or(byType);
  valid_ = isSound();
}

bool FatVolume::isSound() const {
  const u64 total = totalSectors();
  return std::equal(std::begin(kBootSignature), std::end(kBootSignature),
                    bootArea_.begin() + kBootSignatureOffset) &&
         lengthSectors() <= kAllOnes32 && total != 0 && total <= lengthSectors() &&
         sectorsPerFat() != 0 && numberOfFats() != 0 && sectorsPerCluster() != 0 &&
         sectorsPerCluster() <= kMostSectorsPerCluster && bytesPerSector() == disk_.sectorSize() &&
         bytesPerSector() <= kLongestSector &&
         // Else a change of the FAT would land in the boot sector, or behind the partition.
         reservedSectors() != 0 && firstDataSector() <= total;
}

// --- Layout

u32 FatVolume::totalSectors() const {
  return bpb().totalSectors16 != 0 ? u32{bpb().totalSectors16} : u32{bpb().totalSectors32};
}

u32 FatVolume::sectorsPerFat() const {
  return isFat32() ? u32{bpb32().sectorsPerFat} : u32{bpb().sectorsPerFat16};
}

u64 FatVolume::fatStartLba() const {
  return fatStartOverride_ != 0 ? fatStartOverride_ : startSector() + reservedSectors();
}

u32 FatVolume::rootDirSectors() const {
  const u32 entriesPerSector = bytesPerSector() / u32{sizeof(FatDirectoryEntryRecord)};
  if (isFat32() || entriesPerSector == 0) return 0;
  return (bpb().rootEntries + entriesPerSector - 1) / entriesPerSector;
}

u64 FatVolume::rootDirSector() const {
  return reservedSectors() + u64{numberOfFats()} * sectorsPerFat();
}

u64 FatVolume::firstDataSector() const { return rootDirSector() + rootDirSectors(); }

u32 FatVolume::clusterCount() const {
  const u64 total = totalSectors();
  const u64 firstData = firstDataSector();
  if (sectorsPerCluster() == 0 || firstData >= total) return 0;
  const u64 count = (total - firstData) / sectorsPerCluster();
  if (kind_ == FatKind::fat12) return static_cast<u32>(count);
  const u64 entries = u64{sectorsPerFat()} * (bytesPerSector() / (isFat32() ? 4 : 2));
  return entries < 2 ? 0 : static_cast<u32>(std::min(count, entries - 2));
}

u64 FatVolume::clusterToLba(u32 cluster) const {
  return dataStartLba() + (u64{cluster} - 2) * sectorsPerCluster();
}

u32 FatVolume::lbaToCluster(u64 lba) const {
  return static_cast<u32>((lba - dataStartLba()) / sectorsPerCluster()) + 2;
}

// --- The boot area

bool FatVolume::readBootArea() {
  valid_ = false;
  const u64 sectors = std::min<u64>(kBootAreaSectors, lengthSectors());
  if (sectors == 0 || disk_.readSectors(startSector(), bootArea_.data(), sectors) != Error::none)
    return false;
  if (hasNtStyleCode(bootSector()) && reservedSectors() > kNtThirdSector &&
      lengthSectors() > kNtThirdSector &&
      disk_.readSectors(startSector() + kNtThirdSector, bootAreaSector(2).data(), 1) != Error::none)
    return false;
  classify();
  return true;
}

bool FatVolume::writeBootArea() {
  if (!isFat32()) return disk_.writeSectors(startSector(), bootArea_.data(), 1) == Error::none;

  const bool ntStyle = hasNtStyleCode(bootSector());
  const u32 reserved = reservedSectors();
  const u32 count = std::min(ntStyle ? u32{2} : kBootAreaSectors, reserved);
  const u32 backup = bpb32().backupBootSector;
  if (disk_.writeSectors(startSector(), bootArea_.data(), count) != Error::none) return false;
  // A backup that would lie over the original is none.
  if (backup >= count && backup + count < reserved &&
      disk_.writeSectors(startSector() + backup, bootArea_.data(), count) != Error::none)
    return false;
  if (ntStyle && reserved > kNtThirdSector &&
      disk_.writeSectors(startSector() + kNtThirdSector, bootAreaSector(2).data(), 1) !=
          Error::none)
    return false;
  return reserved <= 2 || stampSectorTwo();
}

// Sector 2 alone, not its backup, ends with a signature whatever else it holds.
bool FatVolume::stampSectorTwo() {
  std::vector<u8> sector(disk_.sectorSize());
  if (disk_.readSectors(startSector() + 2, sector.data(), 1) != Error::none) return false;
  std::copy(std::begin(kFatSectorTrail), std::end(kFatSectorTrail),
            sector.end() - sizeof(kFatSectorTrail));
  return disk_.writeSectors(startSector() + 2, sector.data(), 1) == Error::none;
}

std::span<u8> FatVolume::bootAreaSector(u32 slot) {
  const std::size_t bytes = bootArea_.size() / kBootAreaSectors;
  return bootArea().subspan(bytes * std::min(slot, kBootAreaSectors - 1), bytes);
}

std::span<const u8> FatVolume::bootSector() const {
  return bootArea().first(bootArea_.size() / kBootAreaSectors);
}

FatIdentityRecord& FatVolume::identity() {
  return *recordAt<FatIdentityRecord>(bootArea(),
                                      isFat32() ? kFat32IdentityOffset : kFat16IdentityOffset);
}

const FatIdentityRecord& FatVolume::identity() const {
  return const_cast<FatVolume*>(this)->identity();
}

void FatVolume::setLabel(std::string_view elevenBytes) {
  std::memcpy(identity().label, elevenBytes.data(),
              std::min(elevenBytes.size(), sizeof(identity().label)));
}

void FatVolume::setTypeText(std::string_view eightBytes) {
  std::memcpy(identity().typeText, eightBytes.data(),
              std::min(eightBytes.size(), sizeof(identity().typeText)));
}

void FatVolume::setRootEntries(u16 entries) {
  if (!isFat32()) bpb().rootEntries = entries;
}

FatFsInfoRecord* FatVolume::fsInfo() {
  const bool found =
      isFat32() &&
      textAt(bootAreaSector(1), offsetof(FatFsInfoRecord, structSignature), kFsInfoStructSignature);
  return found ? recordAt<FatFsInfoRecord>(bootAreaSector(1)) : nullptr;
}

}  // namespace tallowin
