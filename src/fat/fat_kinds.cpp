#include "fat/fat_kinds.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "fat/fat_file_system.h"
#include "fat/fat_format.h"
#include "fat/fat_repair.h"
#include "fat/fat_resize.h"
#include "fat/fat_table.h"
#include "fat/fat_used_extents.h"
#include "fat/fat_volume.h"
#include "probe/gpt_type_guids.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

// 256 KiB of the FAT in a read.
constexpr u32 kCountWindowSectors = 512;

Failure countClusters(const FatVolume& volume, FileSystemFacts& facts) {
  FatTable table(volume.range, volume.layout);
  if (const Failure failed = table.setUp({.windowSectors = kCountWindowSectors, .savedWindows = 1}))
    return failed;
  const u32 bad = volume.layout.badMark();
  for (u32 cluster = 2; cluster <= volume.layout.highestCluster(); ++cluster) {
    u32 value = 0;
    if (const Failure failed = table.get(cluster, value)) return failed;
    if (value == 0) ++facts.freeClusters;
    if (value == bad) ++facts.badClusters;
  }
  return {};
}

Failure readFacts(const SectorRange& range, u16 type, CountClusters count, FileSystemFacts& facts) {
  std::optional<FatVolume> volume;
  if (const Failure failed = openFat(range, type, volume)) return failed;
  const FatBootArea& boot = volume->boot;
  const FatLayout& layout = volume->layout;
  facts = {};
  facts.name = fatKindName(layout.kind);
  if (boot.hasExtendedSignature()) {
    facts.storedTypeText = boot.typeText();
    facts.serial = boot.identity().serial;
  }
  facts.clusterBytes = layout.clusterBytes();
  facts.clusters = layout.clusterCount();
  facts.layout = format("%u reserved sector(s), %u FAT(s) of %u sectors, %u root entries",
                        layout.reservedSectors, layout.numberOfFats, layout.sectorsPerFat,
                        layout.isFat32() ? 0 : layout.rootEntries);
  facts.layoutNumbers = {{"fats", layout.numberOfFats},
                         {"reserved_sectors", layout.reservedSectors},
                         {"sectors_per_fat", layout.sectorsPerFat},
                         {"root_entries", layout.isFat32() ? 0 : layout.rootEntries}};
  return count == CountClusters::yes ? countClusters(*volume, facts) : Failure{};
}

template <FatKind kKind>
bool holdsKind(const SectorRange& range, u16 type) {
  FatBootArea boot(range.disk.sectorSize());
  return !boot.read(range) && boot.kind(type) == kKind;
}

u16 smallOrLargeFat16(u64 sectors) {
  constexpr u16 kLargeFat16 = 0x06;
  return isFatSizeValid(kFatTypeSmallFat16, sectors) ? kFatTypeSmallFat16 : kLargeFat16;
}

bool takesAutomatic(u16 type) {
  constexpr u16 kBootManager = 0xDF;
  return type == kFatTypeFat12 || type == kFatTypeSmallFat16 || type == kBootManager;
}

constexpr u16 kFat32Type = 0x0B;
constexpr auto kFat12Types = std::to_array<u16>({kFatTypeFat12});
constexpr auto kFat16Types = std::to_array<u16>({kFatTypeSmallFat16, 0x06, 0x0E, 0x12, 0xDE, 0xDF});
constexpr auto kFat32Types = std::to_array<u16>({kFat32Type, 0x0C, types::kEfiSystem});
constexpr auto kFat32Guids = std::to_array<Guid>({kGptEfiSystem});
constexpr auto kContents = std::to_array<ContentCode>({ContentCode::fat, ContentCode::fat32});
constexpr auto kResizeForms =
    std::to_array<ResizeForm>({{"fat16", "&FAT", 0x06, 0, 4096, 2048},
                               {"fat32", "FAT&32", kFat32Type, 33, kAllOnes32, kAllOnes32}});
constexpr u64 kResizeMostSectors = 0xFFFFFF80;
constexpr auto kClusterChoices = std::to_array<u32>(
    {512, 1 * kKiB, 2 * kKiB, 4 * kKiB, 8 * kKiB, 16 * kKiB, 32 * kKiB, 64 * kKiB});

template <FatKind kKind>
constexpr FileSystemKind kindRow(std::string_view word, std::string_view name) {
  FileSystemKind kind;
  kind.word = word;
  kind.name = name;
  kind.wantedTypeGuid = kGptBasicData;
  kind.contents = kContents;
  kind.holds = holdsKind<kKind>;
  kind.clusterChoices = kClusterChoices;
  kind.widelyReadClusterBytes = 32 * kKiB;
  kind.alignsForNtfs = true;
  kind.takesAutomaticClusters = takesAutomatic;
  kind.whyNotOfSize = whyNotFatOfSize;
  kind.format = formatFat;
  kind.facts = readFacts;
  kind.check = checkFatVolume;
  kind.repair = repairFatVolume;
  kind.resizeForms = kResizeForms;
  kind.resizeMostSectors = kResizeMostSectors;
  kind.usedExtents = fatUsedExtents;
  kind.resizeLimits = fatResizeLimits;
  kind.planResize = planFatVolumeResize;
  kind.resize = resizeFatVolume;
  kind.open = openFatFiles;
  return kind;
}

constexpr FileSystemKind kFat12 = [] {
  FileSystemKind kind = kindRow<FatKind::fat12>("fat12", "FAT12");
  kind.types = kFat12Types;
  kind.wantedType = [](u64) { return kFatTypeFat12; };
  return kind;
}();

constexpr FileSystemKind kFat16 = [] {
  FileSystemKind kind = kindRow<FatKind::fat16>("fat16", "FAT16");
  kind.types = kFat16Types;
  kind.wantedType = smallOrLargeFat16;
  return kind;
}();

constexpr FileSystemKind kFat32 = [] {
  FileSystemKind kind = kindRow<FatKind::fat32>("fat32", "FAT32");
  kind.types = kFat32Types;
  kind.typeGuids = kFat32Guids;
  kind.bootSectors = 7;  // with the copy of the boot sector
  kind.wantedType = [](u64) { return kFat32Type; };
  return kind;
}();

}  // namespace

void registerFat(FileSystemKinds& kinds) {
  kinds.add(kFat12);
  kinds.add(kFat16);
  kinds.add(kFat32);
}

}  // namespace tallowin
