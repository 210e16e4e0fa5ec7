// The clusters of a FAT volume while its files change: which follow one another, which are free,
// and in what order a change reaches the disk.
#pragma once

#include <map>
#include <vector>

#include "fat/fat_table.h"
#include "fat/fat_volume.h"

namespace tallowin {

// Clusters that lie one after the other.
struct ClusterRun {
  u32 first = 0;
  u32 count = 0;
  u32 last() const { return first + (count - 1); }
};

// Changes are held in memory until they are written, in three steps with a flush of the disk after
// each and the directories between them, so that no moment leaves a file with less than it had:
//
//   writeNew      clusters that were free become chains, which nothing leads to yet
//   writeLinks    the ends of older chains lead on to them
//                 (directories)
//   writeFreed    what no directory names any more becomes free, or is cut off
//
// A cluster that was freed is not given out before writeFreed.
class FatClusters {
 public:
  explicit FatClusters(const FatVolume& volume)
      : volume_(volume), table_(volume.range, volume.layout) {}

  // Before anything is changed; what only reads needs it not. invalidVolume: a write would land
  // beside the FATs; read, outOfMemory.
  Failure setUp();
  // Reads all of the FAT, once, for what changes clusters or counts them.
  Failure prepare();

  const FatLayout& layout() const { return volume_.layout; }
  bool isCluster(u32 number) const { return number >= 2 && number <= layout().highestCluster(); }
  // The cluster behind `cluster`, 0 at the end of its chain. corrupt: no end and no cluster; read.
  Failure next(u32 cluster, u32& following);

  // `prepare` has to come first for all of these.

  // Those that can be given out now, and those that can after writeFreed.
  u32 availableCount() const { return available_; }
  u64 freeCount() const { return available_ + freedCount_; }
  // A new chain of so many clusters, in one run where there is one, near `near` where that is not
  // 0. There have to be so many available.
  std::vector<ClusterRun> allocate(u32 count, u32 near);
  // The end of a chain leads on to `following`, of a new chain.
  void link(u32 end, u32 following);
  // `cluster` becomes the end of its chain.
  void cut(u32 cluster);
  void release(const ClusterRun& run);

  // Whether the disk has it as free.
  bool isNew(u32 cluster) const;
  // Whether it was made the end of its chain and that is not written: it cannot be linked before.
  bool isCut(u32 cluster) const;
  std::size_t changes() const { return changed_.size() + freed_.size(); }

  // `wrote`: something was, which has to be flushed.
  Failure writeNew(bool& wrote);
  Failure writeLinks(bool& wrote);
  Failure writeFreed(bool& wrote);

  // The mark of a volume that is in use, where its kind has one. Written at once.
  bool isSoundEntry(u32 secondEntry) const { return (secondEntry & soundBit()) == soundBit(); }
  Failure isMarkedSound(bool& sound);
  Failure markSound(bool sound);

  u32 hint() const { return hint_; }
  void setHint(u32 cluster) { hint_ = cluster; }

 private:
  struct Change {
    u32 value;
    bool wasFree;
  };
  FatTable::Options tableOptions() const;
  Failure readEntry(u32 cluster, u32& value);
  bool isAvailable(u32 cluster) const { return (bits_[cluster / 64] >> cluster % 64 & 1) != 0; }
  void setAvailable(u32 cluster, bool available);
  ClusterRun findRun(u32 from, u32 end, u32 wanted) const;
  ClusterRun bestRun(u32 wanted) const;
  template <typename Belongs>
  Failure write(Belongs belongs, bool& wrote);
  u32 soundBit() const;

  const FatVolume& volume_;
  FatTable table_;
  std::map<u32, Change> changed_;
  u32 oldChanges_ = 0;  // of them, those of clusters that were in use
  std::vector<ClusterRun> freed_;
  u64 freedCount_ = 0;
  std::vector<u64> bits_;  // a bit a cluster: can be given out
  u32 available_ = 0;
  u32 hint_ = 0;  // the search begins behind it
};

}  // namespace tallowin
