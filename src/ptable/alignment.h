// The alignment arithmetic that every placement of a partition rounds with.
#pragma once

#include "base/geometry.h"
#include "base/types.h"

namespace tallowin {

// What the rounding depends on, taken from a drive. All positions and units are sectors.
struct AlignmentRules {
  static constexpr i64 kDefaultUnit = -1;  // 1 MiB on GPT, else a cylinder
  static constexpr i64 kCylinderUnit = 0;

  i64 explicitUnit = kDefaultUnit;  // positive: a power of two
  bool isGpt = false;
  bool hasTable = true;  // false: a whole-disk volume, a table without slots
  u32 sectorSizeBytes = 512;
  u64 firstUsableSector = 1;
  Geometry geometry;
};

// The unit U in sectors, never 0.
u64 alignmentUnit(const AlignmentRules& rules);
// The gap between an EBR and its volume: as the unit, with a track in place of a cylinder.
u64 trackUnit(const AlignmentRules& rules);
u64 firstAlignedSector(const AlignmentRules& rules);
// The next multiple of U at or above `lba`; the largest multiple when that passes 2^64.
u64 alignUp(const AlignmentRules& rules, u64 lba);
u64 alignDown(const AlignmentRules& rules, u64 lba);

}  // namespace tallowin
