// What `info` and `format` tell of a FAT file system.
#pragma once

#include <optional>
#include <string>

#include "base/error.h"
#include "cli/json_writer.h"
#include "ptable/drive.h"

namespace tallowin {

struct FatFacts {
  std::string kind;   // "FAT12", "FAT16", "FAT32"
  std::string label;  // as in the boot sector; may be empty
  std::optional<u32> serial;
  u32 clusterBytes = 0;
  u32 clusters = 0;
  u32 freeClusters = 0;
  u32 badClusters = 0;
  u32 numberOfFats = 0;
  u32 reservedSectors = 0;
  u32 sectorsPerFat = 0;
  u32 rootEntries = 0;  // 0 on FAT32

  u64 freeBytes() const { return u64{freeClusters} * clusterBytes; }
  u64 badBytes() const { return u64{badClusters} * clusterBytes; }
  u64 usedBytes() const { return (u64{clusters} - freeClusters - badClusters) * clusterBytes; }
};

// Counts the clusters in the FAT. invalidVolume: it is no FAT, or damaged; read, outOfMemory.
Failure readFatFacts(Drive& drive, const PartitionEntry& entry, FatFacts& facts);

std::string fatFactsText(const FatFacts& facts);
// The member "file_system".
void writeFatFacts(JsonWriter& json, const FatFacts& facts);

}  // namespace tallowin
