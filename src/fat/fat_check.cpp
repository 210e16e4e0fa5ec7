#include "fat/fat_check.h"

#include "base/text.h"
#include "fat/fat_directory.h"
#include "fat/fat_directory_walk.h"
#include "fs/names.h"

namespace tallowin {
namespace {

constexpr u32 kNotMirrored = 0x80;
constexpr u32 kMostRootClusters = 65535;
constexpr u32 kMostRootSectors = 128;
// A map of a bit a cluster in 32 windows of 128 KiB covers so many, and was all that there is room
// for once.
constexpr u32 kMostMappedClusters = 33554432;
constexpr u32 kMostLevels = 256;  // of a path that is told
constexpr u32 kCodePage = 437;    // of short names in it

class FatChecker {
 public:
  FatChecker(const FatVolume& volume, FatClusterMap& map, Job& job, FatCheckReport& report)
      : volume_(volume), map_(map), job_(job), report_(report) {}

  Failure run();

 private:
  using Found = FatDirectoryWalk::Found;
  using Next = FatDirectoryWalk::Next;

  Failure isRootLong(bool& isLong);
  Failure walk();
  Failure visit(const Found& found, Next& next);
  Failure checkDotEntries(const Found& found, bool& good);
  Failure checkChain(u32 first, u32& clusters);
  void countLost();
  bool isTooLarge() const { return volume_.layout.clusterCount() > kMostMappedClusters; }
  void fault(FatFault fault, u32 cluster) {
    report_.structure = fault;
    report_.cluster = cluster;
  }

  const FatVolume& volume_;
  FatClusterMap& map_;
  Job& job_;
  FatCheckReport& report_;
  FatDirectoryWalk walk_{volume_, map_, job_};
  bool isOverflown_ = false;
};

Failure FatChecker::run() {
  report_.structure = FatFault::none;
  report_.freeClusters = map_.freeClusters();
  report_.badClusters = map_.badClusters();
  if ((map_.firstEntry() & 0xFF) != volume_.boot.bpb().media) {
    report_.fault = report_.structure = FatFault::mediaByte;
    return {};
  }
  bool isLong = false;
  if (const Failure failed = isRootLong(isLong)) return failed;
  if (isLong && report_.fault == FatFault::none) report_.fault = FatFault::longRoot;
  const Failure failed = walk();
  if (report_.structure == FatFault::none && !failed && !isTooLarge()) countLost();
  if (report_.structure == FatFault::none && !failed)
    report_.structure = isOverflown_   ? FatFault::mapTooSmall
                        : isTooLarge() ? FatFault::tooLarge
                                       : FatFault::none;
  if (report_.fault == FatFault::none) report_.fault = report_.structure;
  return failed;
}

Failure FatChecker::isRootLong(bool& isLong) {
  u32 cluster = volume_.rootCluster();
  u32 clusters = 0;
  while (cluster != 0 && map_.isCluster(cluster) && clusters < kMostRootClusters) {
    ++clusters;
    if (const Failure failed = map_.next(cluster, cluster)) {
      if (failed != Error::corrupt) return failed;
      break;
    }
  }
  isLong = u64{clusters} * volume_.layout.sectorsPerCluster > kMostRootSectors;
  return {};
}

Failure FatChecker::walk() {
  if (volume_.layout.isFat32()) {
    u32 clusters = 0;
    if (const Failure failed = checkChain(volume_.rootCluster(), clusters)) return failed;
    if (report_.structure != FatFault::none) return {};
  }
  Failure inside;
  const Failure failed = walk_.run([&](const Found& found) {
    Next next = Next::stop;
    inside = visit(found, next);
    return inside ? Next::stop : next;
  });
  if (failed == Error::directoryFull) {
    fault(FatFault::tooManyDirectories, 0);
    return {};
  }
  return failed ? failed : inside;
}

// Leaves a fault in the report, or says how to go on.
Failure FatChecker::visit(const Found& found, Next& next) {
  const u32 clusterBytes = volume_.layout.clusterBytes();
  report_.directory = found.directory;
  report_.entryIndex = found.index;
  const u32 size = found.entry.sizeBytes;
  // An empty file has no chain.
  if (found.firstCluster == 0 && !found.isDirectory() && size == 0) {
    ++report_.emptyFiles;
    next = Next::goOn;
    return {};
  }
  if (!map_.isCluster(found.firstCluster)) {
    fault(FatFault::badChain, found.firstCluster);
    return {};
  }
  if (found.isDirectory()) {
    bool good = false;
    if (const Failure failed = checkDotEntries(found, good)) return failed;
    if (!good) {
      fault(FatFault::badDotEntries, found.firstCluster);
      return {};
    }
  }
  u32 clusters = 0;
  ++report_.entriesWalked;
  if (found.isDirectory()) ++report_.directories;
  if (const Failure failed = checkChain(found.firstCluster, clusters)) return failed;
  if (report_.structure != FatFault::none) return {};
  const u32 needed = static_cast<u32>((u64{size} + clusterBytes - 1) / clusterBytes);
  if (!found.isDirectory() && clusters != needed) {
    fault(FatFault::badChain, found.firstCluster);
    return {};
  }
  next = found.isDirectory() ? Next::enter : Next::goOn;
  return {};
}

// The parent of a directory in the root is written as 0.
Failure FatChecker::checkDotEntries(const Found& found, bool& good) {
  std::span<const u8> start;
  if (const Failure failed = walk_.startOf(found.firstCluster, start)) return failed;
  const bool isFat32 = volume_.layout.isFat32();
  const auto* dot = recordAt<FatDirectoryEntryRecord>(start);
  const auto* dotDot = recordAt<FatDirectoryEntryRecord>(start, sizeof(FatDirectoryEntryRecord));
  good = dot != nullptr && dotDot != nullptr && isNamed(*dot, kFatDot) &&
         isNamed(*dotDot, kFatDotDot) && firstClusterOf(*dot, isFat32) == found.firstCluster &&
         firstClusterOf(*dotDot, isFat32) == found.directory;
  return {};
}

Failure FatChecker::checkChain(u32 first, u32& clusters) {
  if (!map_.isCluster(first)) {
    fault(FatFault::badChain, first);
    return {};
  }
  FatClusterMap::Chain chain;
  if (const Failure failed = map_.mark(first, chain)) return failed;
  clusters = chain.clusters;
  report_.usedClusters += chain.clusters;
  isOverflown_ = isOverflown_ || chain.highest > kMostMappedClusters + 1;
  if (chain.end == FatClusterMap::Chain::End::crossed) fault(FatFault::crossLink, chain.last);
  if (chain.end == FatClusterMap::Chain::End::broken) fault(FatFault::badChain, chain.last);
  return {};
}

void FatChecker::countLost() {
  const u32 first = map_.unmarkedFrom(2);
  if (first == 0) return;
  fault(FatFault::lostCluster, first);
  report_.entryIndex = kAllOnes32;
  for (u32 cluster = first; cluster != 0; cluster = map_.unmarkedFrom(cluster + 1))
    ++report_.lostClusters;
}

// The number that is published for what kept the check from its end.
Failure ended(const Failure& failed, FatCheckReport& report) {
  if (failed == Error::read) report.fault = report.structure = FatFault::unreadable;
  if (failed == Error::outOfMemory) report.fault = report.structure = FatFault::outOfMemory;
  return failed;
}

// From the root down; as far as directories say truly where they are.
std::string pathOfDirectory(const FatVolume& volume, FatClusters& clusters, u32 directory,
                            u32 level) {
  constexpr u32 kParentEntry = 1;
  std::string unknown =
      format("the directory that begins in cluster %lu", static_cast<unsigned long>(directory));
  if (directory == 0) return "";
  std::shared_ptr<FatDirectory> itself, parent;
  if (level == kMostLevels ||
      FatDirectory::read(volume, clusters, directory, FatCodePage(kCodePage), itself))
    return unknown;
  const bool isFat32 = volume.layout.isFat32();
  const u32 parentCluster = firstClusterOf(itself->entry(kParentEntry), isFat32);
  if (FatDirectory::read(volume, clusters, parentCluster, FatCodePage(kCodePage), parent))
    return unknown;
  for (auto at = parent->nextEntry(0); at; at = parent->nextEntry(*at + 1))
    if (firstClusterOf(parent->entry(*at), isFat32) == directory)
      return pathOfDirectory(volume, clusters, parentCluster, level + 1) + "/" +
             utf8Of(parent->nameOf(*at));
  return unknown;
}

std::string pathOf(const FatVolume& volume, const FatCheckReport& report) {
  FatClusters clusters(volume);
  std::shared_ptr<FatDirectory> directory;
  if (clusters.setUp()) return {};
  std::string path = pathOfDirectory(volume, clusters, report.directory, 0);
  if (FatDirectory::read(volume, clusters, report.directory, FatCodePage(kCodePage), directory) ||
      report.entryIndex >= directory->size())
    return path;
  return path + "/" + utf8Of(directory->nameOf(report.entryIndex));
}

}  // namespace

Failure checkFatCopy(const FatVolume& volume, u32 copy, FatClusterMap& map, Job& job,
                     FatCheckReport& report) {
  bool same = true;
  if (const Failure failed = map.read(copy, FatClusterMap::kNoCopy, job, same))
    return ended(failed, report);
  return ended(FatChecker(volume, map, job, report).run(), report);
}

Failure checkFat(const FatVolume& volume, FatClusterMap& map, Job& job, FatCheckReport& report) {
  report = {};
  const FatLayout& layout = volume.layout;
  if (layout.isFat32() && (volume.boot.bpb32().flags & kNotMirrored) != 0) {
    report.fault = FatFault::notMirrored;
    return {};
  }
  job.phase(Phase::checking, u64{layout.sectorsPerFat} * layout.bytesPerSector);
  if (layout.numberOfFats < 2) {
    report.fault = FatFault::fewerThanTwoFats;
    return checkFatCopy(volume, 0, map, job, report);
  }
  bool same = true;
  if (const Failure failed = map.read(0, 1, job, same)) return ended(failed, report);
  if (!same) {
    report.fault = FatFault::copiesDiffer;
    return {};
  }
  return ended(FatChecker(volume, map, job, report).run(), report);
}

const char* fatFaultWords(FatFault fault) {
  switch (fault) {
    case FatFault::none:
      return "No fault was found";
    case FatFault::outOfMemory:
      return "There is not enough memory for the check";
    case FatFault::unreadable:
      return "A sector of the FATs or of a directory cannot be read";
    case FatFault::invalidVolume:
      return "The boot sector is not that of a sound FAT volume";
    case FatFault::fewerThanTwoFats:
      return "The volume has a single FAT";
    case FatFault::mediaByte:
      return "The first entry of the FAT does not agree with the boot sector on the kind of medium";
    case FatFault::longRoot:
      return "The root directory is longer than 128 sectors";
    case FatFault::notMirrored:
      return "The volume uses one of its FATs alone";
    case FatFault::copiesDiffer:
      return "The copies of the FAT differ";
    case FatFault::badChain:
      return "A chain of clusters leads to no cluster, or is not as long as its file";
    case FatFault::crossLink:
      return "A cluster is used twice";
    case FatFault::lostCluster:
      return "Clusters are in use that belong to no file";
    case FatFault::tooManyDirectories:
      return "There are more directories side by side than the check can remember";
    case FatFault::badDotEntries:
      return "A directory does not begin with entries for itself and for its parent";
    case FatFault::mapTooSmall:
      return "Clusters are in use that lie too far behind to be checked";
    case FatFault::tooLarge:
      return "No fault was found, but the volume is too large to look for lost clusters";
  }
  return "";
}

std::string fatFaultText(const FatVolume& volume, const FatCheckReport& report) {
  std::string text = fatFaultWords(report.fault);
  if (report.fault == FatFault::none || report.fault != report.structure) return text;
  if (report.fault == FatFault::lostCluster)
    return text + format(": %lu, the first of them is %lu",
                         static_cast<unsigned long>(report.lostClusters),
                         static_cast<unsigned long>(report.cluster));
  if (report.entryIndex != kAllOnes32)
    text += format(": '%s', cluster %lu", pathOf(volume, report).c_str(),
                   static_cast<unsigned long>(report.cluster));
  return text;
}

}  // namespace tallowin
