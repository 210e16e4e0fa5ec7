// All of a FAT as numbers in memory, for what rewrites a whole volume.
#pragma once

#include <vector>

#include "base/job.h"
#include "fat/fat_volume.h"

namespace tallowin {

// Takes four bytes a cluster.
class FatLinks {
 public:
  // By the first copy. read, outOfMemory.
  Failure read(const FatVolume& volume);

  u32 highestCluster() const { return static_cast<u32>(values_.size()) - 1; }
  bool isCluster(u32 number) const { return number >= 2 && number < values_.size(); }
  bool isFree(u32 cluster) const { return values_[cluster] == 0; }
  bool isBad(u32 cluster) const { return values_[cluster] == badMark_; }
  bool isInUse(u32 cluster) const { return !isFree(cluster) && !isBad(cluster); }
  // The cluster behind this one, 0 at the end of its chain.
  u32 next(u32 cluster) const { return isCluster(values_[cluster]) ? values_[cluster] : 0; }
  // The first clusters of all chains, ascending.
  std::vector<u32> heads() const;

  void set(u32 cluster, u32 value) { values_[cluster] = value; }

 private:
  std::vector<u32> values_;  // by cluster; the first two are not looked at
  u32 badMark_ = 0;
};

// Writes a FAT from its first entry to its last, all copies of it, behind the reserved sectors of
// the layout; what is not put is zero.
class FatWriter {
 public:
  // `range` is borrowed.
  FatWriter(const SectorRange& range, const FatLayout& layout);

  // The next entry. write, noSpaceLeft.
  Failure put(u32 value);
  Failure finish();

 private:
  Failure writePiece();

  const SectorRange& range_;
  FatLayout layout_;
  std::vector<u8> piece_;
  u32 firstSector_ = 0;  // of the FAT, of the piece
  u64 entry_ = 0;        // in the piece
  u64 entriesInPiece_ = 0;
};

}  // namespace tallowin
