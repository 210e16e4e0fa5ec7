// Volumes that begin with a boot sector: FAT, NTFS, HPFS, exFAT.
#include <array>

#include "probe/content_record.h"
#include "probe/type_catalogue.h"
#include "probe/volume_forms.h"
#include "probe/volume_times.h"

namespace tallowin {
namespace {

using namespace std::string_view_literals;

// A boot sector that names another place is a copy, unless all that it leads to is there.
std::optional<Confidence> confidenceOf(bool isPlaced, bool isConfirmed) {
  if (isPlaced) return isConfirmed ? Confidence::sure : Confidence::likely;
  return isConfirmed ? std::optional(Confidence::doubtful) : std::nullopt;
}

bool startsWithWord(const VolumeBootRecord& boot, std::string_view word) {
  return startsWithIgnoreCase({boot.oemName.data(), boot.oemName.size()}, word);
}

u64 sectorsIn(const VolumeBootRecord& boot) {
  return boot.sectorCount16 != 0 ? u64{boot.sectorCount16} : u64{boot.sectorCount32};
}

// The places of the FATs, in sectors of the volume.
struct FatAreas {
  u64 sectorsPerFat = 0;
  u64 firstData = 0;
};
std::optional<FatAreas> fatAreas(const VolumeBootRecord& boot) {
  constexpr u32 kMostFats = 4;
  constexpr u64 kEntryBytes = 32;
  FatAreas areas;
  areas.sectorsPerFat =
      boot.sectorsPerFat != 0 ? u64{boot.sectorsPerFat} : u64{boot.sectorsPerFat32};
  const bool isSane = isPowerOfTwo(boot.sectorsPerCluster) && boot.reservedSectors != 0 &&
                      boot.fatCount != 0 && boot.fatCount <= kMostFats && boot.media >= 0xF0 &&
                      areas.sectorsPerFat != 0;
  if (!isSane) return std::nullopt;
  const u64 rootBytes = boot.rootEntries * kEntryBytes;
  areas.firstData = boot.reservedSectors + boot.fatCount * areas.sectorsPerFat +
                    (rootBytes + boot.sectorSizeBytes - 1) / boot.sectorSizeBytes;
  return areas.firstData < sectorsIn(boot) ? std::optional(areas) : std::nullopt;
}

// Each FAT begins with the media byte and bits that are all set.
bool hasFats(SuspectedVolume& volume, const VolumeBootRecord& boot, const FatAreas& areas) {
  for (u64 copy = 0; copy < boot.fatCount; ++copy) {
    const u64 sector = boot.reservedSectors + copy * areas.sectorsPerFat;
    const auto start = volume.at<std::array<u8, 3>>(sector * boot.sectorSizeBytes);
    if (start != std::array<u8, 3>{boot.media, 0xFF, 0xFF}) return false;
  }
  return true;
}

std::string fatKind(const VolumeBootRecord& boot, const FatAreas& areas) {
  constexpr u64 kFirstFat16 = 4085;
  const u64 clusters = (sectorsIn(boot) - areas.firstData) / boot.sectorsPerCluster;
  if (boot.sectorsPerFat == 0) return "FAT32";
  return clusters < kFirstFat16 ? "FAT12" : "FAT16";
}

// Where NTFS keeps half of the number of its sectors.
u32 rootClusterIn(const VolumeBootRecord& boot) {
  return static_cast<u32>(boot.ntfsSectorCount >> 32);
}

u64 rootByte(const VolumeBootRecord& boot, const FatAreas& areas) {
  const u64 bytes = boot.sectorSizeBytes;
  if (boot.sectorsPerFat == 0) {
    constexpr u64 kFirstCluster = 2;
    const u64 cluster = std::max<u64>(rootClusterIn(boot), kFirstCluster);
    return (areas.firstData + (cluster - kFirstCluster) * boot.sectorsPerCluster) * bytes;
  }
  return (boot.reservedSectors + boot.fatCount * areas.sectorsPerFat) * bytes;
}

std::optional<LostVolume> fat(SuspectedVolume& volume, const VolumeBootRecord& boot) {
  const auto areas = fatAreas(boot);
  if (!areas) return std::nullopt;
  const auto confidence =
      confidenceOf(volume.isPlacedBy(boot.hiddenSectors), hasFats(volume, boot, *areas));
  if (!confidence) return std::nullopt;
  const u16 type = boot.sectorsPerFat != 0 ? 0x06 : 0x0B;
  return LostVolume{.kind = fatKind(boot, *areas),
                    .type = type,
                    .sectorCount = sectorsIn(boot),
                    .confidence = *confidence,
                    .namesItsPlace = boot.hiddenSectors == volume.startSector(),
                    .usedAt = fatUsedAt(volume, rootByte(boot, *areas))};
}

std::optional<LostVolume> ntfs(SuspectedVolume& volume, const VolumeBootRecord& boot) {
  constexpr u64 kLargestClusterSectors = 4096;
  const u64 bytes = boot.sectorSizeBytes;
  // Large clusters are stored as the negative of a power of two.
  const u64 cluster = boot.sectorsPerCluster <= 128
                          ? u64{boot.sectorsPerCluster}
                          : u64{1} << std::min(256 - boot.sectorsPerCluster, 63);
  const u64 sectors = boot.ntfsSectorCount;
  if (!isPowerOfTwo(cluster) || cluster > kLargestClusterSectors || sectors == 0 ||
      sectors >= kAllOnes64 / bytes || boot.ntfsMftCluster >= sectors / cluster)
    return std::nullopt;
  constexpr u64 kRootRecord = 5;
  const u64 table = boot.ntfsMftCluster * cluster * bytes;
  const u8 records = boot.ntfsRecordClusters;
  const u64 recordBytes =
      records < 128 ? records * cluster * bytes : u64{1} << std::min(256 - records, 31);
  const bool hasTable = volume.hasText(table, "FILE");
  const bool hasCopy = volume.hasText(sectors * bytes + 3, "NTFS");
  const auto confidence = confidenceOf(volume.isPlacedBy(boot.hiddenSectors), hasTable && hasCopy);
  if (!confidence) return std::nullopt;
  return LostVolume{.kind = "NTFS",
                    .type = types::kNtfs,
                    .sectorCount = sectors + 1,
                    .confidence = *confidence,
                    .namesItsPlace = boot.hiddenSectors == volume.startSector(),
                    .usedAt = ntfsUsedAt(volume, table + kRootRecord * recordBytes)};
}

std::optional<LostVolume> hpfs(SuspectedVolume& volume, const VolumeBootRecord& boot) {
  constexpr u64 kNameOffset = 54;
  if (!volume.isPlacedBy(boot.hiddenSectors) || sectorsIn(boot) == 0) return std::nullopt;
  return LostVolume{
      .kind = "HPFS",
      .type = types::kNtfs,
      .sectorCount = sectorsIn(boot),
      .confidence = volume.hasText(kNameOffset, "HPFS") ? Confidence::sure : Confidence::likely,
      .namesItsPlace = boot.hiddenSectors == volume.startSector()};
}

std::optional<LostVolume> exFat(SuspectedVolume& volume) {
  const auto boot = volume.at<ExFatBootRecord>(0);
  if (!boot || boot->sectorShift >= 32 || u64{1} << boot->sectorShift != volume.sectorSize() ||
      boot->sectorCount == 0 || boot->fatSector >= boot->sectorCount)
    return std::nullopt;
  // A copy of the boot sector does not find the start of the FAT from where it lies.
  if (!volume.hasText(boot->fatSector * u64{volume.sectorSize()},
                      "\xF8\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv))
    return std::nullopt;
  const bool isPlaced = boot->partitionSector == 0 || boot->partitionSector == volume.startSector();
  return LostVolume{.kind = "exFAT",
                    .type = types::kNtfs,
                    .sectorCount = boot->sectorCount,
                    .confidence = isPlaced ? Confidence::sure : Confidence::doubtful,
                    .namesItsPlace = boot->partitionSector == volume.startSector()};
}

std::optional<LostVolume> bootSector(SuspectedVolume& volume, u64) {
  const auto boot = volume.at<VolumeBootRecord>(0);
  if (!boot) return std::nullopt;
  if (startsWithWord(*boot, "EXFAT   ")) return exFat(volume);
  if (boot->sectorSizeBytes != volume.sectorSize()) return std::nullopt;
  if (startsWithWord(*boot, "NTFS")) return ntfs(volume, *boot);
  if (textAt(bytesOf(boot->oemName), 0, "OS")) return hpfs(volume, *boot);
  return fat(volume, *boot);
}

}  // namespace

std::span<const VolumeForm> bootSectorForms() {
  static constexpr VolumeForm kForms[] = {
      {.magicOffset = 510, .magic = "\x55\xAA"sv, .examine = bootSector}};
  return kForms;
}

}  // namespace tallowin
