#include "fat/fat_layout.h"

#include <algorithm>
#include <bit>

#include "fat/fat_format.h"
#include "fat/new_boot_sector.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u8 kTypeFat12 = 0x01;
constexpr u8 kTypeSmallFat16 = 0x04;
constexpr u64 kFat16FromSectors = 32718;  // smaller ones are FAT12, but for type 0x04
constexpr u64 kFat32EndSectors = 0xFFFFFF81;

// What the choice of a cluster size goes by, in sectors. Signed: small volumes go below zero.
struct Room {
  i64 afterReserved = 0;
  i64 rootDir = 0;
  i64 data() const { return afterReserved - rootDir; }
};

// The automatic size is 0 in all three.

i64 fat16ClusterSize(const Room& room, i64 size) {
  if (size == 0) size = 4;
  while (size < 128 && room.data() - 512 > size * 65518) size *= 2;
  return std::min<i64>(size, 128);
}

i64 fat12ClusterSize(const Room& room, i64 size, bool isHardDisk) {
  if (size == 0) size = isHardDisk ? 8 : 1;
  while (size < 8 && room.data() - 24 > size * 4078) size *= 2;
  return size > 7 ? 8 : size;
}

i64 fat32ClusterSize(const Room& room, i64 size, bool mayGrow) {
  if (size == 0) size = 8;
  while (size > 1 && (room.afterReserved - 1024) / size <= 65526) size /= 2;
  // A FAT of at most 16320 sectors, as long as the cluster size can do that.
  while (mayGrow && size < 64 && room.afterReserved >= 32641 &&
         size * 0x1FE000 < room.afterReserved - 32640)
    size *= 2;
  return std::min<i64>(size, 64);
}

// The smallest FAT whose entries cover all clusters that are left beside its copies.
i64 fatSectors(FatKind kind, i64 sectorBytes, i64 clusterSize, i64 data, i64 copies) {
  const i64 perSector = kind == FatKind::fat12   ? sectorBytes * 2 / 3
                        : kind == FatKind::fat16 ? sectorBytes / 2
                                                 : sectorBytes / 4;
  if ((perSector - 2) * clusterSize >= data - copies) return 1;
  const i64 perFatSector = perSector * clusterSize + copies;
  return std::max<i64>(2, (data + 2 * clusterSize + perFatSector - 1) / perFatSector);
}

const char* typeTextOf(FatKind kind) {
  return kind == FatKind::fat12 ? "FAT12   " : kind == FatKind::fat16 ? "FAT16   " : "FAT32   ";
}

// --- buildBootSector

struct Media {
  u8 descriptor = 0xF8;
  u16 rootEntries = 512;
  u8 driveNumber = 0x80;
};

Media mediaFor(u64 length, u32 driveNumber) {
  Media media;
  const bool mayBeFloppy = driveNumber < 0x80 || driveNumber == kDriveNumberDefault;
  const u8 floppy = length == 720                      ? 0xFD
                    : length == 1440 || length == 2400 ? 0xF9
                    : length == 2880 || length == 5760 ? 0xF0
                                                       : 0;
  if (mayBeFloppy && floppy != 0) media = {floppy, 224, 0};
  if (driveNumber != kDriveNumberDefault) media.driveNumber = static_cast<u8>(driveNumber);
  return media;
}

void setTotalSectors(FatVolume& volume, u64 length) {
  const bool fits16 = length < 0x10000 && !volume.isFat32();
  volume.bpb().totalSectors16 = fits16 ? static_cast<u16>(length) : u16{0};
  volume.bpb().totalSectors32 = fits16 ? u32{0} : static_cast<u32>(length);
}

u32 hiddenSectorsOf(const FatVolume& volume) {
  const u32 gap = volume.placement().hiddenValue;
  return gap != 0 ? gap
                  : static_cast<u32>(volume.startSector() + volume.disk().traits().startOffset);
}

// What a volume keeps when its boot sector is rebuilt; its place depends on the kind.
struct Identity {
  u32 serial = 0;
  std::string label;
};

void fillFat32Fields(FatVolume& volume) {
  Fat32BpbRecord& fields = volume.bpb32();
  fields = {};
  fields.rootCluster = 2;
  fields.fsInfoSector = 1;
  fields.backupBootSector = 6;
}

void initialiseFsInfo(FatVolume& volume) {
  auto* info = recordAt<FatFsInfoRecord>(volume.bootAreaSector(1));
  if (info == nullptr) return;  // a boot area has three whole sectors
  std::copy_n(kFsInfoLeadSignature, sizeof(info->leadSignature), info->leadSignature);
  std::copy_n(kFsInfoStructSignature, sizeof(info->structSignature), info->structSignature);
  info->freeClusters = kFreeClustersUnknown;
  info->nextFreeCluster = 4;
  std::copy_n(kFatSectorTrail, sizeof(info->trailSignature), info->trailSignature);
}

void clearBehindBootSector(FatVolume& volume) {
  for (const u32 slot : {1U, 2U}) std::ranges::fill(volume.bootAreaSector(slot), u8{0});
}

}  // namespace

bool isSizeValidForType(u16 typeId, u64 sectors) { return types::sizeFits(typeId, sectors); }

bool layOutFat(FatVolume& volume, FatKind kind, i32 wanted) {
  const bool keep = wanted < 0;
  i64 size = keep ? i64{volume.sectorsPerCluster()} : wanted;
  if (!keep && !std::has_single_bit(static_cast<u32>(wanted))) size = 0;

  volume.setKind(kind);
  const Room room{i64{volume.totalSectors()} - volume.reservedSectors(), volume.rootDirSectors()};
  if (kind == FatKind::fat16) {
    size = fat16ClusterSize(room, size);
  } else if (kind == FatKind::fat12) {
    size = fat12ClusterSize(
        room, size, !volume.hasExtendedBootSignature() || volume.identity().driveNumber >= 0x80);
  } else {
    size = fat32ClusterSize(room, size, wanted > kKeepClusterSizeExactly);
  }
  if (volume.hasExtendedBootSignature()) volume.setTypeText(typeTextOf(kind));

  const i64 fat =
      fatSectors(kind, volume.disk().sectorSize(), size, room.data(), volume.numberOfFats());
  if (!volume.isFat32() && fat > 0xFFFF) return false;
  volume.bpb().sectorsPerFat16 = volume.isFat32() ? u16{0} : static_cast<u16>(fat);
  if (volume.isFat32()) volume.bpb32().sectorsPerFat = static_cast<u32>(fat);
  volume.bpb().sectorsPerCluster = static_cast<u8>(size);
  return true;
}

bool computeFatLayout(FatVolume& volume, i32 sectorsPerCluster) {
  const u64 total = volume.totalSectors();
  if (!isSizeValidForType(volume.typeId(), total)) return false;
  const bool largeEnough = total >= kFat16FromSectors || volume.typeId() == kTypeSmallFat16;
  const FatKind kind = volume.isFat32() ? FatKind::fat32
                       : largeEnough    ? FatKind::fat16
                                        : FatKind::fat12;
  return layOutFat(volume, kind, sectorsPerCluster);
}

bool buildBootSector(FatVolume& volume, BootSectorOrigin origin, u64 lengthSectors,
                     i32 sectorsPerCluster, u32 driveNumber, u32 newSerial) {
  const bool fresh = origin == BootSectorOrigin::fresh;
  Identity identity{newSerial, kFatNoName};
  if (fresh) {
    std::ranges::fill(volume.bootArea(), u8{0});
    std::ranges::copy(tallowinNewFatBootSector, volume.bootArea().begin());
  } else {
    identity = {volume.identity().serial, std::string(volume.label())};
  }
  const bool wasFat32 = !fresh && volume.isFat32();
  volume.setKind(volume.typeId() == kTypeFat12     ? FatKind::fat12
                 : types::isFat32(volume.typeId()) ? FatKind::fat32
                                                   : FatKind::fat16);
  if (volume.isFat32() && !wasFat32) clearBehindBootSector(volume);

  FatBpbRecord& bpb = volume.bpb();
  bpb.bytesPerSector = static_cast<u16>(volume.disk().sectorSize());
  bpb.reservedSectors = volume.isFat32() ? 32 : 1;
  bpb.numberOfFats = 2;
  setTotalSectors(volume, lengthSectors);
  const Media media = mediaFor(lengthSectors, driveNumber);
  bpb.media = media.descriptor;
  // Whole sectors: programs disagree about a root directory that ends within one.
  const u32 entriesPerSector = volume.disk().sectorSize() / u32{sizeof(FatDirectoryEntryRecord)};
  const u32 rootSectors = (media.rootEntries + entriesPerSector - 1) / entriesPerSector;
  bpb.rootEntries = volume.isFat32() ? u16{0} : static_cast<u16>(rootSectors * entriesPerSector);
  bpb.sectorsPerTrack = volume.placement().geometry.sectorsPerTrack;
  bpb.heads = static_cast<u16>(volume.placement().geometry.maxHead + 1);
  bpb.hiddenSectors = hiddenSectorsOf(volume);
  if (volume.isFat32()) {
    fillFat32Fields(volume);
    initialiseFsInfo(volume);
  }
  volume.identity().driveNumber = media.driveNumber;
  volume.identity().reserved = 0;
  volume.identity().extendedSignature = kFatExtendedSignature;
  volume.identity().serial = identity.serial;
  volume.setLabel(identity.label);

  const bool ok = lengthSectors < kFat32EndSectors && computeFatLayout(volume, sectorsPerCluster);
  volume.setLengthSectors(lengthSectors);
  volume.classify();
  return ok;
}

}  // namespace tallowin
