#include "fat/fat_layout.h"

#include <bit>

#include "base/text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u64 kFat16FromSectors = 32718;  // smaller ones are FAT12, but for type 0x04
constexpr u64 kMostFat16Sectors = 8387840;
constexpr u64 kMostSmallFat16Sectors = 65535;
constexpr u64 kFirstTooSmallForFat32 = 1200;
constexpr u64 kLeastFat32Sectors = 66727;
constexpr u64 kFat32EndSectors = 0xFFFFFF81;
constexpr u32 kNtfsAlignmentBytes = 4096;
constexpr u32 kMostReservedSectors = 0xFFFF;
// Every system takes a volume with fewer clusters for the smaller kind.
constexpr u32 kFewestFat16Clusters = 4085;
constexpr u32 kFewestFat32Clusters = 65525;

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

// As computeFatLayout, for `kind`, whatever kind the size would choose.
bool layOutAs(FatKind kind, FatLayout& layout, i32 wanted, const FatMedia& media) {
  const bool keep = wanted < 0;
  i64 size = keep ? i64{layout.sectorsPerCluster} : wanted;
  if (!keep && !std::has_single_bit(static_cast<u32>(wanted))) size = 0;

  layout.kind = kind;
  const Room room{i64{layout.totalSectors} - layout.reservedSectors, layout.rootDirSectors()};
  if (kind == FatKind::fat16) {
    size = fat16ClusterSize(room, size);
  } else if (kind == FatKind::fat12) {
    size = fat12ClusterSize(room, size, media.driveNumber >= 0x80);
  } else {
    size = fat32ClusterSize(room, size, wanted > kKeepClusterSizeExactly);
  }
  const i64 fat = fatSectors(kind, layout.bytesPerSector, size, room.data(), layout.numberOfFats);
  if (!layout.isFat32() && fat > 0xFFFF) return false;
  layout.sectorsPerFat = static_cast<u32>(fat);
  layout.sectorsPerCluster = static_cast<u32>(size);
  return true;
}

bool hasTooFewClusters(const FatLayout& layout) {
  if (layout.kind == FatKind::fat12) return false;
  return layout.clusterCount() < (layout.isFat32() ? kFewestFat32Clusters : kFewestFat16Clusters);
}

bool growReserved(FatLayout& layout, u64 sectors) {
  if (sectors > kMostReservedSectors - layout.reservedSectors) return false;
  layout.reservedSectors += static_cast<u32>(sectors);
  return layout.firstDataSector() <= layout.totalSectors;
}

// A FAT12 or FAT16 with more clusters than its kind can have gives up the last few.
bool limitClusters(FatLayout& layout) {
  if (layout.isFat32()) return true;
  const u32 most =
      (layout.kind == FatKind::fat12 ? kFewestFat16Clusters : kFewestFat32Clusters) - 1;
  if (layout.clusterCount() <= most) return true;
  const u64 largest = (u64{most} + 1) * layout.sectorsPerCluster - 1;
  return growReserved(layout, layout.totalSectors - layout.firstDataSector() - largest);
}

bool alignDataArea(FatLayout& layout) {
  if (layout.bytesPerSector >= kNtfsAlignmentBytes) return true;
  const u64 unit = kNtfsAlignmentBytes / layout.bytesPerSector;
  const u64 excess = layout.firstDataSector() % unit;
  return excess == 0 || growReserved(layout, unit - excess);
}

}  // namespace

const char* fatKindName(FatKind kind) {
  switch (kind) {
    case FatKind::fat12:
      return "FAT12";
    case FatKind::fat16:
      return "FAT16";
    case FatKind::fat32:
      break;
  }
  return "FAT32";
}

FatKind fatKindOfType(u16 type) {
  if (types::unhide(type) == kFatTypeFat12) return FatKind::fat12;
  return types::isFat32(type) ? FatKind::fat32 : FatKind::fat16;
}

FatMedia fatMediaOf(u64 totalSectors) {
  constexpr u16 kFloppyRootEntries = 224;
  switch (totalSectors) {
    case 720:
      return {0xFD, kFloppyRootEntries, 0};
    case 1440:
    case 2400:
      return {0xF9, kFloppyRootEntries, 0};
    case 2880:
    case 5760:
      return {0xF0, kFloppyRootEntries, 0};
    default:
      return {};
  }
}

FatLayout emptyFatLayout(u16 type, u64 totalSectors, u32 bytesPerSector, const FatMedia& media) {
  FatLayout layout;
  layout.kind = fatKindOfType(type);
  layout.bytesPerSector = bytesPerSector;
  layout.reservedSectors = layout.isFat32() ? 32 : 1;
  layout.totalSectors = static_cast<u32>(totalSectors);
  // Whole sectors: programs disagree about a root directory that ends within one.
  const u32 perSector = bytesPerSector / u32{sizeof(FatDirectoryEntryRecord)};
  const u32 rootSectors = (media.rootEntries + perSector - 1) / perSector;
  layout.rootEntries = layout.isFat32() ? 0 : rootSectors * perSector;
  return layout;
}

bool isFatSizeValid(u16 type, u64 sectors) {
  const u16 plain = types::unhide(type);
  // Between the two a volume would have too many clusters for FAT16 and too few for FAT32.
  if (fatKindOfType(type) == FatKind::fat32)
    return (sectors < kFirstTooSmallForFat32 || sectors >= kLeastFat32Sectors) &&
           sectors < kFat32EndSectors;
  return sectors <= kMostFat16Sectors && (plain != kFatTypeFat12 || sectors < kFat16FromSectors) &&
         (plain != kFatTypeSmallFat16 || sectors <= kMostSmallFat16Sectors);
}

bool computeFatLayout(FatLayout& layout, u16 type, i32 sectorsPerCluster, const FatMedia& media) {
  const u64 total = layout.totalSectors;
  if (!isFatSizeValid(type, total)) return false;
  const bool largeEnough = total >= kFat16FromSectors || types::unhide(type) == kFatTypeSmallFat16;
  const FatKind kind = layout.isFat32() ? FatKind::fat32
                       : largeEnough    ? FatKind::fat16
                                        : FatKind::fat12;
  return layOutAs(kind, layout, sectorsPerCluster, media);
}

std::optional<FatLayout> newFatLayout(const FatLayoutWish& wish) {
  if (wish.totalSectors == 0 || wish.totalSectors >= kFat32EndSectors ||
      wish.bytesPerSector > kFatLongestSector)
    return std::nullopt;
  const FatMedia media = fatMediaOf(wish.totalSectors);
  FatLayout layout = emptyFatLayout(wish.type, wish.totalSectors, wish.bytesPerSector, media);
  const u32 reserved = layout.reservedSectors;
  const i32 wanted = static_cast<i32>(std::min(wish.sectorsPerCluster, u32{0x7FFFFFFF}));
  if (!computeFatLayout(layout, wish.type, wanted, media)) return std::nullopt;
  for (;;) {
    if (layout.firstDataSector() > layout.totalSectors || !limitClusters(layout) ||
        (wish.alignForNtfs && !alignDataArea(layout)))
      return std::nullopt;
    const u32 size = layout.sectorsPerCluster;
    // A FAT32 is told from a FAT16 by more than its clusters, so the smallest are left as such.
    if (!hasTooFewClusters(layout) || (layout.isFat32() && size == 1)) break;
    layout.reservedSectors = reserved;
    if (!(size > 1 ? layOutAs(layout.kind, layout, static_cast<i32>(size / 2), media)
                   : layOutAs(FatKind::fat12, layout, wanted, media)))
      return std::nullopt;
  }
  if (layout.clusterCount() == 0) return std::nullopt;
  return layout;
}

std::string whyNotFatOfSize(u16 type, u64 sectors, u32 sectorSizeBytes) {
  FatLayoutWish wish{.type = type, .totalSectors = sectors, .bytesPerSector = sectorSizeBytes};
  if (newFatLayout(wish)) return {};
  const auto sizeOf = [&](u64 count) {
    return format("%.1f MiB", static_cast<double>(count * sectorSizeBytes) / kMiB);
  };
  const u16 plain = types::unhide(type);
  const bool isFat32 = fatKindOfType(type) == FatKind::fat32;
  const u64 least = isFat32 ? kLeastFat32Sectors : 0;
  const u64 most = isFat32                       ? kFat32EndSectors - 1
                   : plain == kFatTypeFat12      ? kFat16FromSectors - 1
                   : plain == kFatTypeSmallFat16 ? kMostSmallFat16Sectors
                                                 : kMostFat16Sectors;
  const std::string what =
      format("A %s volume of %llu sectors (%s) is not possible", types::name(plain).c_str(),
             static_cast<unsigned long long>(sectors), sizeOf(sectors).c_str());
  if (sectors > most)
    return what + format(": it has at most %llu sectors (%s).",
                         static_cast<unsigned long long>(most), sizeOf(most).c_str());
  if (sectors < least)
    return what + format(": it has at least %llu sectors (%s).",
                         static_cast<unsigned long long>(least), sizeOf(least).c_str());
  return what + ": it is too small for a cluster.";
}

}  // namespace tallowin
