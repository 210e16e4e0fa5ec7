// Where a new or copied partition goes in its free region. Pure functions over plain values.
#pragma once

#include <optional>

#include "base/types.h"
#include "ptable/alignment.h"

namespace tallowin {

// A placement is a number of MiB to leave free before the partition, or one of these.
inline constexpr u32 kPlaceAtEnd = 0xFFFFFFFF;    // at the end of the free region
inline constexpr u32 kPlaceAtStart = 0xFFFFFFFE;  // where the entry starts now

struct SectorExtent {
  u64 startSector = 0;
  u64 endSector = 0;  // inclusive

  friend bool operator==(const SectorExtent&, const SectorExtent&) = default;
};

// The free block that a partition is placed in.
struct PlacementTarget {
  SectorExtent entry;   // for a volume from its own first sector, behind the EBR
  SectorExtent region;  // everything free around it; a volume's EBR lies inside too
  u64 volumeGap = 0;    // sectors between a volume's EBR and its first sector; 0 for primaries
  bool insideExtended = false;
  AlignmentRules rules;
};

enum class EndAlignment { no, yes };

// Places a partition of `lengthSectors`. Nothing when it does not fit; else the result, with a
// volume's EBR, lies in the region.
std::optional<SectorExtent> placePartition(const PlacementTarget& target, u64 lengthSectors,
                                           u32 placement, EndAlignment endAlignment);

// Places a new partition of `sizeSectors`: exactly these where the alignment allows it, else more,
// up to the next alignment boundary or the end of the free block; never less. Nothing when the
// block cannot hold it.
std::optional<SectorExtent> createPlacement(const PlacementTarget& target, u16 type,
                                            u64 sizeSectors, u32 placement);

// The largest size that the Size field offers for a type, or types::kNoSizeLimit.
u32 maxSizeMiBForType(u16 type, u64 alignmentUnitBytes);

// Rounded to the nearest MiB, half up; 0 when the start lies past the end.
u32 sizeInMiB(u64 startSector, u64 endSector, u32 sectorSizeBytes);

}  // namespace tallowin
