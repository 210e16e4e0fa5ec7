// The clusters of one file or directory, as far as they were asked for.
#pragma once

#include <span>
#include <vector>

#include "fat/fat_clusters.h"

namespace tallowin {

class FatChain {
 public:
  FatChain() : isWhole_(true) {}
  explicit FatChain(u32 firstCluster) : next_(firstCluster), isWhole_(firstCluster == 0) {}
  explicit FatChain(std::span<const ClusterRun> runs) : isWhole_(true) { append(runs); }

  // Follows the chain until it has `count` clusters or ends; all of it for all ones. corrupt: it
  // leads to no cluster or comes back to one that it has; read.
  Failure follow(FatClusters& clusters, u32 count);

  // Of what was followed.
  u32 length() const { return length_; }
  u32 firstCluster() const { return runs_.empty() ? next_ : runs_.front().run.first; }
  u32 lastCluster() const { return runs_.empty() ? 0 : runs_.back().run.last(); }
  // Cluster `index` of the chain and those that lie behind it in a row; `index` was followed.
  ClusterRun runAt(u32 index) const;
  // All of it was.
  void append(std::span<const ClusterRun> runs);
  // Keeps `length`, and gives what it lost.
  std::vector<ClusterRun> shorten(u32 length);

 private:
  struct Piece {
    u32 index;  // of its first cluster in the chain
    ClusterRun run;
  };
  void add(const ClusterRun& run);

  std::vector<Piece> runs_;
  u32 length_ = 0;
  u32 next_ = 0;  // where it goes on
  u32 mark_ = 0;  // a cluster that it has, moved on whenever its length has doubled
  bool isWhole_ = false;
};

}  // namespace tallowin
