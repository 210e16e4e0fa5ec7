#include "fat/fat_lost_chains.h"

#include <algorithm>

namespace tallowin {
namespace {

class LostChainFinder {
 public:
  explicit LostChainFinder(FatClusterMap& map)
      : map_(map),
        isLedTo_(map.layout().highestCluster() + 1),
        ends_(map.layout().highestCluster() + 1),
        isTaken_(map.layout().highestCluster() + 1),
        mostClusters_(kAllOnes32 / map.layout().clusterBytes()) {}

  Failure run(FatLostChains& lost) {
    for (u32 at = map_.unmarkedFrom(2); at != 0; at = map_.unmarkedFrom(at + 1))
      if (const Failure failed = judgeLink(at)) return failed;
    for (const bool takesRings : {false, true})
      for (u32 at = map_.unmarkedFrom(2); at != 0; at = map_.unmarkedFrom(at + 1))
        if (!isTaken_[at] && (takesRings || !isLedTo_[at]))
          if (const Failure failed = takeChain(at, lost)) return failed;
    std::ranges::sort(lost.chains, {}, &FatLostChain::firstCluster);
    return {};
  }

 private:
  bool isLost(u32 cluster) const {
    const FatClusterMap::Entry entry = map_.entryOf(cluster);
    return !map_.isMarked(cluster) && entry != FatClusterMap::Entry::free &&
           entry != FatClusterMap::Entry::bad;
  }

  // The first that leads to a lost cluster has it.
  Failure judgeLink(u32 cluster) {
    u32 to = 0;
    const Failure failed = map_.next(cluster, to);
    if (failed && failed != Error::corrupt) return failed;
    if (!failed && to == 0) return {};
    if (failed || !isLost(to) || isLedTo_[to])
      ends_[cluster] = true;
    else
      isLedTo_[to] = true;
    return {};
  }

  // Nothing leads to `first` that is not taken; in a ring that is the last one of it.
  Failure takeChain(u32 first, FatLostChains& lost) {
    FatLostChain chain{first, 0};
    for (u32 at = first; at != 0;) {
      isTaken_[at] = true;
      ++chain.clusters;
      u32 to = 0;
      if (!ends_[at])
        if (const Failure failed = map_.next(at, to)) return failed;
      const bool isFull = chain.clusters == mostClusters_;
      if (ends_[at] || (to != 0 && (isTaken_[to] || isFull))) lost.newEnds.push_back(at);
      if (to != 0 && isTaken_[to]) to = 0;
      if (to != 0 && isFull) {
        lost.chains.push_back(chain);
        chain = {to, 0};
      }
      at = to;
    }
    lost.chains.push_back(chain);
    return {};
  }

  FatClusterMap& map_;
  std::vector<bool> isLedTo_;
  std::vector<bool> ends_;
  std::vector<bool> isTaken_;
  u32 mostClusters_;
};

}  // namespace

Failure findLostChains(FatClusterMap& map, FatLostChains& lost) {
  lost = {};
  return LostChainFinder(map).run(lost);
}

}  // namespace tallowin
