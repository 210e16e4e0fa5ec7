// How a FAT volume changes its size: where its old clusters lie among the new ones. Arithmetic on
// two layouts, without a disk.
#pragma once

#include <optional>

#include "fat/fat_layout.h"
#include "probe/file_system_kind.h"

namespace tallowin {

// The old clusters keep their sectors wherever they can: the new layout is chosen so that their
// boundaries lie on the new ones. Those outside [firstOld, lastOld], and with larger clusters those
// that do not begin a group of `groupClusters` from firstOld on, have to be moved before the rest.
struct FatResizePlan {
  FatLayout oldLayout;
  FatLayout newLayout;
  u16 type = 0;           // that the partition is to have
  u32 groupClusters = 1;  // old clusters that become one
  u32 pieceClusters = 1;  // new clusters that an old one becomes
  u32 firstOld = 2;       // the old cluster that becomes new cluster 2 + extra
  u32 extra = 0;          // new clusters in front of it
  u32 lastOld = 0;        // the highest that still lies inside
  bool converts = false;  // FAT12/16 to FAT32, or back
  bool changesKind = false;

  bool isRenumbered() const {
    return converts || groupClusters != 1 || pieceClusters != 1 || firstOld != 2 || extra != 0;
  }
  u32 groups() const { return lastOld < firstOld ? 0 : (lastOld - firstOld + 1) / groupClusters; }
  // The new number of an old cluster in [firstOld, lastOld] that begins a group.
  u32 mapCluster(u32 old) const {
    return (old - firstOld) / groupClusters * pieceClusters + extra + 2;
  }
};

// invalidSizeForType: not for the kind that was asked for; invalidVolume: the new volume cannot be
// laid out; sizeNotPossible: not even its metadata and the clusters in use fit.
// `rootEntries`: what a fixed root directory has to have room for.
Failure planFatResize(const FatLayout& old, const ResizeWish& wish, u32 usedClusters,
                      u32 rootEntries, FatResizePlan& plan);

}  // namespace tallowin
