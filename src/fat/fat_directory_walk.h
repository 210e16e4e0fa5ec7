// A walk through all directories of a FAT volume.
#pragma once

#include <deque>
#include <functional>
#include <span>
#include <unordered_map>
#include <vector>

#include "fat/fat_cluster_map.h"

namespace tallowin {

// Depth first, from the root on. Directories that lie close to one another are read together, in
// the order of the disk; takes less than 2 MiB.
class FatDirectoryWalk {
 public:
  // Something in use that is neither a label, a part of a long name, "." nor "..".
  struct Found {
    const FatDirectoryEntryRecord& entry;
    u32 index = 0;      // in its directory
    u32 directory = 0;  // the first cluster of that; 0: the root
    u32 firstCluster = 0;
    bool isDirectory() const { return (entry.attributes & kFatDirectory) != 0; }
  };
  enum class Next : u8 { goOn, enter, stop };
  // `enter` is for a directory whose chain has its end.
  using Visit = std::function<Next(const Found&)>;

  // `map` must hold the FAT, and outlive the walk.
  FatDirectoryWalk(const FatVolume& volume, FatClusterMap& map, Job& job)
      : volume_(volume), map_(map), job_(job) {}

  // Until there is no more, or `visit` stops it. directoryFull: more directories wait for their
  // turn than the walk can hold; read, cancelled, outOfMemory; corrupt: the root has no end.
  Failure run(const Visit& visit);

  // The beginning of a directory that was found: at least a sector. Good until the next call.
  Failure startOf(u32 directory, std::span<const u8>& bytes);

 private:
  using Entries = std::span<const FatDirectoryEntryRecord>;
  enum class Outcome : u8 { goOn, endOfDirectory, stop };

  Failure enter(u32 directory, const Visit& visit, Outcome& outcome);
  Failure walkRootRegion(const Visit& visit, Outcome& outcome);
  Failure look(std::span<const u8> bytes, u32 directory, const Visit& visit, Outcome& outcome);
  void readAhead(Entries entries);
  void readTogether(std::span<const u32> clusters);
  u32 startBytes(u32 cluster) const;
  void hold(u32 cluster, std::span<const u8> bytes);
  bool isFound(const FatDirectoryEntryRecord& entry) const;
  u64 lbaOf(u32 cluster) const {
    return volume_.range.firstSector + volume_.layout.clusterToSector(cluster);
  }

  const FatVolume& volume_;
  FatClusterMap& map_;
  Job& job_;
  std::vector<u32> waiting_;
  std::vector<u8> piece_;
  // Beginnings of directories that wait, by their cluster, and their clusters, oldest first.
  std::unordered_map<u32, std::vector<u8>> starts_;
  std::deque<u32> startOrder_;
  std::size_t startBytes_ = 0;
  u32 index_ = 0;  // of the next entry of the directory that is walked
};

}  // namespace tallowin
