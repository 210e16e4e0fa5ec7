#include "fat/fat_chain.h"

#include <algorithm>
#include <bit>

namespace tallowin {

Failure FatChain::follow(FatClusters& clusters, u32 count) {
  while (!isWhole_ && length_ < count) {
    // What loops comes to the mark again, after three times its clusters at most.
    if (!clusters.isCluster(next_) || next_ == mark_ || length_ >= clusters.layout().clusterCount())
      return Error::corrupt;
    if (std::has_single_bit(length_ + 1)) mark_ = next_;
    u32 following = 0;
    if (const Failure failed = clusters.next(next_, following)) return failed;
    add({next_, 1});
    next_ = following;
    isWhole_ = following == 0;
  }
  return {};
}

void FatChain::add(const ClusterRun& run) {
  if (!runs_.empty() && runs_.back().run.last() + 1 == run.first)
    runs_.back().run.count += run.count;
  else
    runs_.push_back({length_, run});
  length_ += run.count;
}

void FatChain::append(std::span<const ClusterRun> runs) {
  for (const ClusterRun& run : runs) add(run);
}

ClusterRun FatChain::runAt(u32 index) const {
  const auto behind = std::ranges::upper_bound(runs_, index, {}, &Piece::index);
  const Piece& piece = *(behind - 1);
  const u32 skipped = index - piece.index;
  return {piece.run.first + skipped, piece.run.count - skipped};
}

std::vector<ClusterRun> FatChain::shorten(u32 length) {
  std::vector<ClusterRun> lost;
  while (length_ > length) {
    Piece& piece = runs_.back();
    const u32 kept = length > piece.index ? length - piece.index : 0;
    lost.push_back({piece.run.first + kept, piece.run.count - kept});
    length_ -= piece.run.count - kept;
    piece.run.count = kept;
    if (kept == 0) runs_.pop_back();
  }
  if (runs_.empty()) next_ = 0;
  return lost;
}

}  // namespace tallowin
