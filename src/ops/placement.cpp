#include "ops/placement.h"

#include <algorithm>

#include "base/text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

u64 sectorsPerMiB(const AlignmentRules& rules) { return kMiB / rules.sectorSizeBytes; }

// Rounded down to the unit, or the first aligned sector when that is 0.
u64 alignedStart(const AlignmentRules& rules, u64 lba) {
  const u64 down = alignDown(rules, lba);
  return down != 0 ? down : firstAlignedSector(rules);
}

// The sectors that a partition may take, and how many it needs beyond its first.
struct Bounds {
  u64 low = 0;
  u64 high = 0;
  u64 need = 0;
  u64 firstAligned = 0;  // the first aligned sector in the region
  u64 base = 0;          // the entry's start, for a volume that of its EBR
};

std::optional<Bounds> boundsOf(const PlacementTarget& target, u64 lengthSectors, bool alignEnd) {
  const u64 gap = target.volumeGap;
  const SectorExtent& region = target.region;
  if (lengthSectors == 0 || gap > target.entry.startSector) return std::nullopt;
  if (lengthSectors > kAllOnes64 - gap || region.endSector == kAllOnes64) return std::nullopt;

  Bounds bounds;
  const u64 first = firstAlignedSector(target.rules);
  bounds.firstAligned =
      first >= region.startSector ? first : alignUp(target.rules, region.startSector);
  bounds.need = lengthSectors + gap - 1;
  bounds.base = target.entry.startSector - gap;
  if (alignEnd) {
    const u64 boundary = alignDown(target.rules, region.endSector + 1);
    if (boundary == 0) return std::nullopt;
    bounds.low = region.startSector;
    bounds.high = boundary - 1;
  } else {
    bounds.low = bounds.firstAligned;
    bounds.high = region.endSector;
  }
  if (bounds.high < bounds.low || bounds.need > bounds.high - bounds.low) return std::nullopt;
  return bounds;
}

SectorExtent placeAtEnd(const AlignmentRules& rules, const Bounds& bounds, bool alignEnd) {
  u64 start = bounds.high - bounds.need;
  if (!alignEnd) start = alignedStart(rules, start);
  return {start, start + bounds.need};
}

// Behind `freeMiB` of free space, or as near to that as the alignment allows.
std::optional<SectorExtent> placeBehindSpace(const AlignmentRules& rules, const Bounds& bounds,
                                             u32 freeMiB, bool alignEnd) {
  const u64 half = freeMiB > 0 ? sectorsPerMiB(rules) / 2 : 0;
  const u64 space = u64{freeMiB} * sectorsPerMiB(rules);
  const u64 first = std::min(bounds.firstAligned, bounds.base);
  if (space > bounds.high - bounds.low) return std::nullopt;

  u64 start = alignedStart(rules, first + space + half);
  if (start < bounds.low) start = alignUp(rules, bounds.low);
  u64 end = start + bounds.need;
  if (freeMiB > 0 && end > bounds.high) {
    start = alignUp(rules, first + space - half - 1);
    end = start + bounds.need;
  }
  if (!alignEnd) return SectorExtent{start, end};

  u64 boundary = alignUp(rules, end + 1);
  if (boundary - 1 > bounds.high) boundary = alignDown(rules, end + 1);
  if (boundary <= bounds.need) return std::nullopt;
  return SectorExtent{boundary - 1 - bounds.need, boundary - 1};
}

// A primary begins on a boundary, as far as its region allows: where the boundary before it
// belongs to somebody else, and where the first aligned sector lies behind its end, it stays.
u64 loweredStart(const PlacementTarget& target, const SectorExtent& extent) {
  const u64 start = alignedStart(target.rules, extent.startSector);
  return start >= target.region.startSector && start <= extent.endSector ? start
                                                                         : extent.startSector;
}

}  // namespace

std::optional<SectorExtent> placePartition(const PlacementTarget& target, u64 lengthSectors,
                                           u32 placement, EndAlignment endAlignment) {
  bool alignEnd = endAlignment == EndAlignment::yes;
  if (!target.rules.hasTable) {
    if (placement != 0 && placement != kPlaceAtStart) return std::nullopt;
    alignEnd = false;
  }
  const auto bounds = boundsOf(target, lengthSectors, alignEnd);
  if (!bounds) return std::nullopt;

  std::optional<SectorExtent> found;
  if (placement == kPlaceAtEnd) {
    found = placeAtEnd(target.rules, *bounds, alignEnd);
  } else if (placement == kPlaceAtStart) {
    const u64 start = alignedStart(target.rules, bounds->base);
    found = SectorExtent{start, start + bounds->need};
  } else {
    found = placeBehindSpace(target.rules, *bounds, placement, alignEnd);
  }
  if (!found || found->startSector < bounds->low || found->endSector > bounds->high)
    return std::nullopt;
  return SectorExtent{found->startSector + target.volumeGap, found->endSector};
}

std::optional<SectorExtent> createPlacement(const PlacementTarget& target, u16 type,
                                            u64 sizeSectors, u32 placement) {
  const SectorExtent& entry = target.entry;
  const u64 start =
      types::isExtended(type) ? alignUp(target.rules, entry.startSector) : entry.startSector;
  if (start > entry.endSector || sizeSectors > entry.endSector - start + 1) return std::nullopt;

  const u64 boundary = alignUp(target.rules, start + sizeSectors);
  const u64 length = std::min(boundary - 1, entry.endSector) - start + 1;
  auto extent = placePartition(target, length, placement,
                               target.insideExtended ? EndAlignment::no : EndAlignment::yes);
  if (extent && !target.insideExtended) extent->startSector = loweredStart(target, *extent);
  return extent;
}

u32 maxSizeMiBForType(u16 type, u64 alignmentUnitBytes) {
  return types::maxFatSizeMiB(types::unhide(type), alignmentUnitBytes, types::FatLimit::large);
}

u32 sizeInMiB(u64 startSector, u64 endSector, u32 sectorSizeBytes) {
  if (startSector > endSector) return 0;
  const u64 mib = sectorsToMiB(endSector - startSector + 1, sectorSizeBytes);
  return static_cast<u32>(std::min<u64>(mib, kAllOnes32));
}

}  // namespace tallowin
