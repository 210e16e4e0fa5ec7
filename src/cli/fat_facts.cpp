#include "cli/fat_facts.h"

#include "base/text.h"
#include "fat/fat_volume.h"

namespace tallowin {
namespace {

// 256 KiB of the FAT in a read.
constexpr u32 kWindowSectors = 512;

Failure countClusters(FatVolume& volume, FatFacts& facts) {
  if (!volume.setupFatCache(kWindowSectors, 1)) return Error::outOfMemory;
  for (u32 cluster = 2; cluster <= volume.highestCluster(); ++cluster) {
    const u32 value = volume.getFat(cluster);
    if (volume.hasError()) return Error::read;
    if (value == 0) ++facts.freeClusters;
    if (value == volume.badMark()) ++facts.badClusters;
  }
  return Error::none;
}

const char* kindName(FatKind kind) {
  switch (kind) {
    case FatKind::fat12:
      return "FAT12";
    case FatKind::fat16:
      return "FAT16";
    case FatKind::fat32:
      return "FAT32";
  }
  return "";
}

}  // namespace

Failure readFatFacts(Drive& drive, const PartitionEntry& entry, FatFacts& facts) {
  const std::unique_ptr<FatVolume> volume = FatVolume::open(drive, entry);
  if (!volume->isValid()) return Error::invalidVolume;
  facts = {};
  facts.kind = kindName(volume->kind());
  if (volume->hasExtendedBootSignature()) {
    if (volume->label() != kFatNoName) facts.label = printable(trimRight(volume->label()));
    facts.serial = volume->identity().serial;
  }
  facts.clusterBytes = volume->bytesPerSector() * volume->sectorsPerCluster();
  facts.clusters = volume->clusterCount();
  facts.numberOfFats = volume->numberOfFats();
  facts.reservedSectors = volume->reservedSectors();
  facts.sectorsPerFat = volume->sectorsPerFat();
  facts.rootEntries = volume->isFat32() ? 0 : u32{volume->bpb().rootEntries};
  return countClusters(*volume, facts);
}

std::string fatFactsText(const FatFacts& facts) {
  std::string text = format("File system    %s", facts.kind.c_str());
  if (!facts.label.empty()) text += " '" + facts.label + "'";
  if (facts.serial)
    text += format(", serial %04X-%04X", *facts.serial >> 16, *facts.serial & 0xFFFF);
  text += format("\nCluster size   %u byte(s)\nTotal clusters %u\nFree clusters  %u\n",
                 facts.clusterBytes, facts.clusters, facts.freeClusters);
  text += format("Bad clusters   %u\nUsed           %llu bytes\nFree           %llu bytes\n",
                 facts.badClusters, static_cast<unsigned long long>(facts.usedBytes()),
                 static_cast<unsigned long long>(facts.freeBytes()));
  return text + format(
                    "Layout         %u reserved sector(s), %u FAT(s) of %u sectors, "
                    "%u root entries\n",
                    facts.reservedSectors, facts.numberOfFats, facts.sectorsPerFat,
                    facts.rootEntries);
}

void writeFatFacts(JsonWriter& json, const FatFacts& facts) {
  json.beginObject("file_system");
  json.text("kind", facts.kind);
  json.text("label", facts.label);
  json.numberOrNull("serial", facts.serial);
  json.number("cluster_size", facts.clusterBytes);
  json.number("clusters", facts.clusters);
  json.number("free_clusters", facts.freeClusters);
  json.number("bad_clusters", facts.badClusters);
  json.number("used_bytes", facts.usedBytes());
  json.number("free_bytes", facts.freeBytes());
  json.number("fats", facts.numberOfFats);
  json.number("reserved_sectors", facts.reservedSectors);
  json.number("sectors_per_fat", facts.sectorsPerFat);
  json.number("root_entries", facts.rootEntries);
  json.endObject();
}

}  // namespace tallowin
