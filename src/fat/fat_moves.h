// Which clusters change their places before a volume is renumbered, planned before anything is
// written.
#pragma once

#include <vector>

#include "base/job.h"
#include "fat/fat_links.h"
#include "fat/fat_resize_plan.h"

namespace tallowin {

// Numbers are those of the old volume, for places too.
class FatMoves {
 public:
  struct Move {
    u32 from = 0;
    u32 to = 0;
    u32 count = 0;
    // It and the next one belong to one group: both are read before any of them is written.
    bool joinsNext = false;
    bool isWholeGroups = false;
  };

  // Both are borrowed.
  FatMoves(const FatResizePlan& plan, const FatLinks& links);

  // The clusters of this chain need no place any more.
  void dropChain(u32 first);
  // So many groups that nothing is moved to. sizeNotPossible: there are not so many.
  Failure reserveGroups(u32 count, std::vector<u32>& firstClusters);
  // Settles all moves (invalidVolume: a chain loops); nothing is read or written. sizeNotPossible:
  // there is no room for them.
  Failure settle();

  const std::vector<Move>& moves() const { return moves_; }
  u64 clustersToMove() const;
  // Where a cluster is after all moves.
  u32 placeOf(u32 cluster) const;
  // The cluster that is at a place then; 0: none.
  u32 clusterAt(u32 place) const;
  bool isBadAt(u32 place) const { return links_.isBad(place); }

  // Carries them out. read, write, cancelled.
  Failure carryOut(const SectorRange& range, Job& job) const;

 private:
  // Some clusters of a chain, in its order, that are to lie together.
  using Group = std::vector<u32>;

  bool isInside(u32 cluster) const { return cluster >= plan_.firstOld && cluster <= plan_.lastOld; }
  u32 groupStart(u32 cluster) const {
    return cluster - (cluster - plan_.firstOld) % plan_.groupClusters;
  }
  void groupFrom(u32 cluster, Group& group, u32& next) const;
  bool mayStay(const Group& group) const;
  bool hasBad(u32 start) const;
  bool isGroupFree(u32 start, const Group* own) const;
  u32 findFreeGroup();
  u32 findOwnPlace(const Group& group) const;
  bool place(const Group& group);
  void moveTo(const Group& group, u32 start);
  void addMove(const Move& move);
  Failure settleChain(u32 head);
  Failure settleDeferred();
  void sortMoves();

  const FatResizePlan& plan_;
  const FatLinks& links_;
  std::vector<bool> isTaken_;  // by place
  u32 droppedHead_ = 0;
  u32 searchFrom_ = 0;       // the first cluster of the group that was given out last
  bool isFull_ = false;      // no group is free, and none has become so since that was found
  std::vector<Move> moves_;  // in the order in which they are carried out
  std::vector<Move> byFrom_;
  std::vector<Move> byTo_;
  u64 settled_ = 0;            // clusters; more than there are: a chain loops
  std::vector<u32> deferred_;  // beginnings of groups that found no room
};

}  // namespace tallowin
