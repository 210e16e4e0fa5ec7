// The check of a FAT volume: whether its structures are sound enough to be rewritten.
#pragma once

#include <string>

#include "base/job.h"
#include "fat/fat_cluster_map.h"

namespace tallowin {

// The first fault; the numbers are published.
enum class FatFault : u8 {
  none = 0,
  outOfMemory = 2,
  unreadable = 18,
  invalidVolume = 19,
  fewerThanTwoFats = 20,
  mediaByte = 21,
  longRoot = 22,
  notMirrored = 23,
  copiesDiffer = 24,
  badChain = 25,
  crossLink = 26,
  lostCluster = 27,
  tooManyDirectories = 28,
  badDotEntries = 29,
  mapTooSmall = 30,
  tooLarge = 250,  // what is checked is sound; lost clusters were not looked for
};

struct FatCheckReport {
  FatFault fault = FatFault::none;
  // What directories and chains are like by themselves, where they could be walked: a root that is
  // too long, or a single FAT, does not keep them from being sound.
  FatFault structure = FatFault::invalidVolume;
  // Where it was met, as far as that can be said: a cluster, and the entry of a directory (its
  // first cluster, 0 the root) that led there.
  u32 cluster = 0;
  u32 directory = 0;
  u32 entryIndex = kAllOnes32;

  u32 entriesWalked = 0;  // whose chains were followed
  u32 directories = 0;    // of those
  u32 emptyFiles = 0;     // which have none
  u32 usedClusters = 0;   // in the chains of all entries, and of the root of a FAT32
  u32 freeClusters = 0;
  u32 badClusters = 0;
  u32 lostClusters = 0;  // counted where the fault is lostCluster
};

// Reads the FATs once and each directory once, in large pieces; takes a byte a cluster and less
// than 4 MiB beside. Writes nothing. `map` is one of the volume, and holds its FAT then, unless the
// copies differ. read (the fault is unreadable), outOfMemory (the fault says so too), cancelled.
Failure checkFat(const FatVolume& volume, FatClusterMap& map, Job& job, FatCheckReport& report);

// By copy `copy` of the FAT alone, whatever the others say.
Failure checkFatCopy(const FatVolume& volume, u32 copy, FatClusterMap& map, Job& job,
                     FatCheckReport& report);

// The fault as a sentence, with the path of the file where there is one.
std::string fatFaultText(const FatVolume& volume, const FatCheckReport& report);
const char* fatFaultWords(FatFault fault);

}  // namespace tallowin
