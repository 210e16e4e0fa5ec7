#include "ptable/alignment.h"

#include <algorithm>

namespace tallowin {
namespace {

u64 sectorsPerMiB(const AlignmentRules& rules) {
  return rules.sectorSizeBytes == 0 ? 2048 : std::max<u64>(1, kMiB / rules.sectorSizeBytes);
}

bool isGptDefault(const AlignmentRules& rules) {
  return rules.isGpt && rules.explicitUnit == AlignmentRules::kDefaultUnit;
}

// The explicit unit, the default of a GPT disk, or what the geometry gives.
u64 unitOr(const AlignmentRules& rules, u64 geometryUnit) {
  if (rules.explicitUnit > 0) return static_cast<u64>(rules.explicitUnit);
  return isGptDefault(rules) ? sectorsPerMiB(rules) : std::max<u64>(1, geometryUnit);
}

u64 roundedUp(u64 lba, u64 unit) {
  const u64 rest = lba % unit;
  if (rest == 0) return lba;
  const u64 down = lba - rest;
  return down > kAllOnes64 - unit ? down : down + unit;
}

}  // namespace

u64 alignmentUnit(const AlignmentRules& rules) {
  return unitOr(rules, rules.geometry.cylinderSectors());
}

u64 trackUnit(const AlignmentRules& rules) { return unitOr(rules, rules.geometry.trackSectors()); }

u64 firstAlignedSector(const AlignmentRules& rules) {
  if (!rules.hasTable) return 0;
  if (rules.explicitUnit > 0 || isGptDefault(rules))
    return roundedUp(rules.firstUsableSector, alignmentUnit(rules));
  return rules.geometry.trackSectors();
}

u64 alignUp(const AlignmentRules& rules, u64 lba) { return roundedUp(lba, alignmentUnit(rules)); }

u64 alignDown(const AlignmentRules& rules, u64 lba) { return lba - lba % alignmentUnit(rules); }

}  // namespace tallowin
