// A walk through all directories of a FAT volume.
#pragma once

#include <functional>
#include <memory>
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
  FatDirectoryWalk(const FatVolume& volume, FatClusterMap& map, Job& job);

  // Until there is no more, or `visit` stops it. directoryFull: more directories wait for their
  // turn than the walk can hold; read, cancelled, outOfMemory; corrupt: the root has no end.
  Failure run(const Visit& visit);

  // The beginning of a directory that was found: at least a sector. Good until the next call.
  Failure startOf(u32 directory, std::span<const u8>& bytes);

 private:
  using Entries = std::span<const FatDirectoryEntryRecord>;
  struct Start {
    u32 cluster = 0;  // 0: none
    u32 bytes = 0;
  };
  enum class Outcome : u8 { goOn, endOfDirectory, stop };

  Failure enter(u32 directory, const Visit& visit, Outcome& outcome);
  Failure walkRootRegion(const Visit& visit, Outcome& outcome);
  Failure look(std::span<const u8> bytes, u32 directory, const Visit& visit, Outcome& outcome);
  std::vector<u32> directoriesIn(Entries entries, std::size_t mostBytes);
  template <typename Use>
  void forEachGroup(const std::vector<u32>& clusters, Use use) const;
  void announce(Entries entries);
  void readAhead(Entries entries);
  void readTogether(std::span<const u32> clusters, u64 lba, u64 sectors);
  u32 startBytes(u32 cluster) const;
  Start* heldStart(u32 cluster);
  bool isHeld(u32 cluster) { return heldStart(cluster) != nullptr; }
  std::span<u8> bytesOf(const Start& start);
  Start& takeStart(u32 cluster);
  void forgetStart(Start& start);
  bool isFound(const FatDirectoryEntryRecord& entry) const;
  u64 lbaOf(u32 cluster) const {
    return volume_.range.firstSector + volume_.layout.clusterToSector(cluster);
  }

  const FatVolume& volume_;
  FatClusterMap& map_;
  Job& job_;
  std::vector<u32> waiting_;
  std::vector<u8> piece_;     // of the directory that is walked
  std::vector<u8> together_;  // of several that wait
  // Beginnings of directories that wait; a new one takes the place of the oldest.
  std::vector<Start> starts_;
  std::unordered_map<u32, std::size_t> placeOfStart_;  // by its cluster
  std::unique_ptr<u8[]> startBytes_;
  std::size_t nextStart_ = 0;
  u32 index_ = 0;  // of the next entry of the directory that is walked
};

}  // namespace tallowin
