// Puts new cluster numbers into the directories of a volume that is being resized.
#pragma once

#include <vector>

#include "fat/fat_moves.h"

namespace tallowin {

// What the directories of a volume say, as far as a resize has to know it.
struct FatTree {
  std::vector<u32> directories;  // their first clusters; the root of a FAT32 is one of them
  // Files whose last cluster holds more than they need, where clusters become smaller: how many
  // new clusters of it are in use, by the old cluster; ascending.
  struct Tail {
    u32 cluster = 0;
    u32 pieces = 0;
  };
  std::vector<Tail> tails;
  bool hasExtendedAttributes = false;  // "EA DATA. SF" with two clusters or more
};

// Walks all directories. read, cancelled, corrupt, outOfMemory.
Failure readFatTree(const FatVolume& volume, const FatResizePlan& plan, const FatLinks& links,
                    Job& job, FatTree& tree);

// The new first clusters in the entries of directories, after all moves.
class FatRenumbering {
 public:
  // All are borrowed.
  FatRenumbering(const FatVolume& volume, const FatResizePlan& plan, const FatLinks& links,
                 const FatMoves& moves)
      : volume_(volume), plan_(plan), links_(links), moves_(moves) {}

  // The new number of an old cluster; what is no cluster stays as it is.
  u32 newNumber(u32 old) const;
  // In a part of a directory. True when something was changed; `ended` is set at its end.
  bool renumber(std::span<u8> bytes, bool& ended) const;
  // Of a directory of clusters: reads it where it lies now, and writes what changed. What is left
  // of its last new cluster becomes zero.
  Failure renumberDirectory(u32 first) const;

 private:
  Failure renumberRun(u32 place, u32 count, bool& ended) const;
  Failure clearTail(u32 last) const;

  const FatVolume& volume_;
  const FatResizePlan& plan_;
  const FatLinks& links_;
  const FatMoves& moves_;
};

}  // namespace tallowin
