#include "fat/fat_resize_plan.h"

#include <algorithm>

#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u16 kFat32Type = 0x0B;
constexpr u16 kFat16Type = 0x06;
constexpr u32 kMostFatEntries16 = 65524;  // clusters, before other systems take it for a FAT32
constexpr u32 kMostFatEntries12 = 4084;
constexpr u32 kLeastReserved32 = 32;
constexpr u32 kLeastReserved16 = 1;
constexpr u64 kSpareSectors = 50;

u16 newType(const FatLayout& old, u64 sectors, u16 forced) {
  if (forced != 0) return forced;
  if (old.isFat32()) return isFatSizeValid(kFat32Type, sectors) ? kFat32Type : kFat16Type;
  return isFatSizeValid(kFat16Type, sectors) ? kFat16Type : kFat32Type;
}

// Other systems tell the smaller kinds apart by the number of their clusters alone.
bool isKindTold(const FatLayout& layout) {
  const u32 clusters = layout.clusterCount();
  switch (layout.kind) {
    case FatKind::fat12:
      return clusters <= kMostFatEntries12;
    case FatKind::fat16:
      return clusters > kMostFatEntries12 && clusters <= kMostFatEntries16;
    case FatKind::fat32:
      break;
  }
  return clusters != 0;
}

i32 wantedClusterSize(const FatLayout& old, const ResizeWish& wish) {
  if (wish.keepClusterSize) return kKeepClusterSize;
  return static_cast<i32>(wish.clusterBytes / old.bytesPerSector);
}

// The layout of a new volume of that size, with the entries of the root directory that are there.
Failure layOut(const FatLayout& old, const ResizeWish& wish, u32 rootEntries, FatResizePlan& plan) {
  if (wish.sectors == 0 || wish.sectors > kAllOnes32) return Error::invalidSizeForType;
  plan.type = newType(old, wish.sectors, wish.forcedType);
  const FatMedia media;
  FatLayout layout = emptyFatLayout(plan.type, wish.sectors, old.bytesPerSector, media);
  layout.sectorsPerCluster = old.sectorsPerCluster;
  if (!layout.isFat32())
    layout.rootEntries =
        old.isFat32() ? std::max(layout.rootEntries, rootEntries) : old.rootEntries;
  if (!computeFatLayout(layout, plan.type, wantedClusterSize(old, wish), media))
    return Error::invalidSizeForType;
  plan.newLayout = layout;
  plan.converts = layout.isFat32() != old.isFat32();
  plan.changesKind = layout.kind != old.kind;
  return layout.firstDataSector() < layout.totalSectors ? Failure() : Error::invalidVolume;
}

// Moves the new data area so that old clusters lie on the new grid.
Failure alignData(FatResizePlan& plan) {
  const FatLayout& old = plan.oldLayout;
  FatLayout& now = plan.newLayout;
  const u32 so = old.sectorsPerCluster;
  const u32 sn = now.sectorsPerCluster;
  u64 reserved = now.reservedSectors;
  if (now.firstDataSector() < old.firstDataSector()) {
    const u64 gain = old.firstDataSector() - now.firstDataSector();
    plan.extra = static_cast<u32>(gain / sn);
    plan.firstOld = 2;
    reserved += gain % sn;
  } else {
    const u64 unit = std::max(so, sn);
    const u64 loss = now.firstDataSector() - old.firstDataSector();
    const u64 rounded = (loss + unit - 1) / unit * unit;
    reserved += rounded - loss;
    plan.firstOld = static_cast<u32>(rounded / so) + 2;
    plan.extra = 0;
  }
  const u32 least = now.isFat32() ? kLeastReserved32 : kLeastReserved16;
  while (reserved >= u64{least} + sn) {
    reserved -= sn;
    ++plan.extra;
  }
  if (reserved > 0xFFFF) return Error::sizeNotPossible;
  now.reservedSectors = static_cast<u32>(reserved);
  return {};
}

// The last old cluster that lies inside, at the end of a group, and that the new FAT reaches.
void findLast(FatResizePlan& plan) {
  const FatLayout& old = plan.oldLayout;
  const FatLayout& now = plan.newLayout;
  const u32 group = plan.groupClusters;
  u64 last = old.highestCluster();
  if (now.totalSectors <= old.firstDataSector())
    last = 1;
  else
    last = std::min(last, (now.totalSectors - old.firstDataSector()) / old.sectorsPerCluster + 1);
  if (last >= plan.firstOld) last -= (last - plan.firstOld + 1) % group;
  const auto lastNew = [&](u64 cluster) {
    return (cluster + 1 - plan.firstOld) / group * plan.pieceClusters + plan.extra + 1;
  };
  while (last >= plan.firstOld && lastNew(last) > now.highestCluster()) last -= group;
  plan.lastOld = static_cast<u32>(last);
}

}  // namespace

Failure planFatResize(const FatLayout& old, const ResizeWish& wish, u32 usedClusters,
                      u32 rootEntries, FatResizePlan& plan) {
  plan = {};
  plan.oldLayout = old;
  if (const Failure failed = layOut(old, wish, rootEntries, plan)) return failed;
  const u32 so = old.sectorsPerCluster;
  const u32 sn = plan.newLayout.sectorsPerCluster;
  if (so < sn) plan.groupClusters = sn / so;
  if (so > sn) plan.pieceClusters = so / sn;
  if (std::max(so, sn) % std::min(so, sn) != 0) return Error::invalidVolume;
  if (const Failure failed = alignData(plan)) return failed;
  if (plan.newLayout.firstDataSector() >= plan.newLayout.totalSectors)
    return Error::sizeNotPossible;
  if (!isKindTold(plan.newLayout)) return Error::invalidSizeForType;
  findLast(plan);
  const u64 room = plan.lastOld < plan.firstOld ? 0 : plan.lastOld + 1 - plan.firstOld;
  return room != 0 && room * so >= u64{usedClusters} * so + kSpareSectors
             ? Failure()
             : Failure(Error::sizeNotPossible);
}

}  // namespace tallowin
