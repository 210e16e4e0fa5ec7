// What the entries of a FAT say, in a byte for each cluster, so that chains are followed without
// the disk.
#pragma once

#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "base/job.h"
#include "fat/fat_table.h"
#include "fat/fat_volume.h"

namespace tallowin {

// Reads the FAT once, from its first entry to its last, and knows where each cluster leads and
// whether it was marked. Takes a byte a cluster and less than 2 MiB beside.
class FatClusterMap {
 public:
  enum class Entry : u8 {
    free = 0,
    following = 1,  // the next cluster is the one behind it
    end = 2,
    elsewhere = 3,  // the next cluster is any other one
    broken = 4,     // it leads to no cluster
    bad = 8,
  };
  // What a chain is like.
  struct Chain {
    enum class End : u8 { sound, broken, crossed };
    End end = End::sound;
    u32 clusters = 0;
    u32 last = 0;  // where it ended, or what it met that was marked
    u32 highest = 0;
  };
  static constexpr u32 kNoCopy = kAllOnes32;

  explicit FatClusterMap(const FatVolume& volume)
      : volume_(volume),
        highestCluster_(volume.layout.highestCluster()),
        badMark_(volume.layout.badMark()) {}

  // Reads copy `copy`, and compares it with copy `other` unless that is kNoCopy. `same` false: they
  // differ, and the map holds nothing that counts. outOfMemory, read, cancelled.
  Failure read(u32 copy, u32 other, Job& job, bool& same);

  const FatLayout& layout() const { return volume_.layout; }
  bool isCluster(u32 number) const { return number >= 2 && number <= highestCluster_; }
  u32 firstEntry() const { return firstEntry_; }    // of the FAT, with the media byte
  u32 secondEntry() const { return secondEntry_; }  // with the marks of the volume
  u32 freeClusters() const { return freeClusters_; }
  u32 badClusters() const { return badClusters_; }

  Entry entryOf(u32 cluster) const { return static_cast<Entry>(bytes_[cluster] & kEntryMask); }
  bool isMarked(u32 cluster) const { return (bytes_[cluster] & kMarked) != 0; }
  // The cluster behind `cluster`, 0 at the end of its chain. corrupt: it leads to none; read.
  Failure next(u32 cluster, u32& following);
  // How many clusters, at most `most`, lie one behind the other from `cluster` on.
  u32 runFrom(u32 cluster, u32 most) const;

  // Marks the clusters of a chain up to its end, or to what is marked already. read.
  Failure mark(u32 first, Chain& chain);
  // The first from `from` on that is in use, not bad and not marked; 0: none.
  u32 unmarkedFrom(u32 from) const;

 private:
  static constexpr u8 kMarked = 0x80;
  static constexpr u8 kEntryMask = 0x0F;
  static constexpr u32 kPartClusters = 1024;
  struct Jump {
    u32 from;
    u32 to;
  };

  Failure setUp();
  void take(std::span<const u8> piece, u64 firstByte);
  template <typename Load>
  void takeEntries(u32 first, u32 end, Load load);
  void takeEntry(u32 cluster, u32 value);
  Failure jumpFrom(u32 cluster, u32& to);

  const FatVolume& volume_;
  u32 highestCluster_;
  u32 badMark_;
  struct Freer {
    void operator()(u8* bytes) const { std::free(bytes); }
  };
  std::unique_ptr<u8[], Freer> bytes_;
  std::vector<bool> isFreePart_;  // whether so many clusters in a row are free, by their number
  // Where the first of those lead that lead elsewhere, by cluster; the others are read again.
  std::vector<Jump> jumps_;
  std::unique_ptr<FatTable> table_;
  u32 copy_ = 0;
  u32 firstEntry_ = 0;
  u32 secondEntry_ = 0;
  u32 freeClusters_ = 0;
  u32 badClusters_ = 0;
};

}  // namespace tallowin
