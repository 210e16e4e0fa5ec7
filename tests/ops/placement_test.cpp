#include "ops/placement.h"

#include <gtest/gtest.h>

#include <random>

namespace tallowin {

void PrintTo(const SectorExtent& extent, std::ostream* out) {
  *out << extent.startSector << ".." << extent.endSector;
}

namespace {

constexpr Geometry kUsualGeometry{1023, 254, 63};

// A primary's free block with nothing around it but the bounds of the drive.
PlacementTarget primary(u64 start, u64 end, i64 unit = AlignmentRules::kDefaultUnit) {
  PlacementTarget target;
  target.entry = {start, end};
  target.region = {1, end};
  target.rules.explicitUnit = unit;
  target.rules.geometry = kUsualGeometry;
  return target;
}

constexpr u64 kSectorsPerMiB = 2048;

TEST(CreatePlacement, TheSizeIsExactOrRoundedUpToTheBoundary) {
  constexpr i64 kOnCylinders = AlignmentRules::kDefaultUnit;
  struct Case {
    const char* what;
    SectorExtent block;
    i64 unit;
    u32 sectorSize;
    u64 size;
    std::optional<SectorExtent> placed;
  };
  const SectorExtent onMiB{2048, 2097151};
  const SectorExtent onCylinders{63, 16065 * 100 - 1};
  const Case cases[] = {
      {"exact", onMiB, 2048, 512, 100 * kSectorsPerMiB, {{2048, 206847}}},
      {"up to the boundary", onMiB, 2048, 512, 100 * kSectorsPerMiB + 1, {{2048, 208895}}},
      {"less than a unit", onMiB, 2048, 512, 1, {{2048, 4095}}},
      {"all of it", onMiB, 2048, 512, 1023 * kSectorsPerMiB, {onMiB}},
      {"one sector too much", onMiB, 2048, 512, 1023 * kSectorsPerMiB + 1, std::nullopt},
      {"nothing", onMiB, 2048, 512, 0, std::nullopt},
      {"5 MiB on cylinders", onCylinders, kOnCylinders, 512, 5 * kSectorsPerMiB, {{63, 16064}}},
      {"100 MiB on cylinders",
       onCylinders,
       kOnCylinders,
       512,
       100 * kSectorsPerMiB,
       {{63, 16065 * 13 - 1}}},
      {"all cylinders", onCylinders, kOnCylinders, 512, 16065 * 100 - 63, {onCylinders}},
      {"large sectors", {256, 262143}, 256, 4096, 100 * 256, {{256, 25855}}},
      {"large sectors on cylinders", onCylinders, kOnCylinders, 4096, 100 * 256, {{63, 32129}}},
  };
  for (const Case& c : cases) {
    PlacementTarget target = primary(c.block.startSector, c.block.endSector, c.unit);
    target.rules.sectorSizeBytes = c.sectorSize;
    EXPECT_EQ(c.placed, createPlacement(target, 0x07, c.size, 0)) << c.what;
  }
}

TEST(CreatePlacement, FreeSpaceBeforeIsKept) {
  const PlacementTarget target = primary(2048, 2097151, 2048);
  constexpr u64 kSize = 100 * kSectorsPerMiB;
  EXPECT_EQ((SectorExtent{22528, 227327}), createPlacement(target, 0x07, kSize, 10));
  EXPECT_EQ((SectorExtent{1892352, 2097151}), createPlacement(target, 0x07, kSize, kPlaceAtEnd));
  EXPECT_FALSE(createPlacement(target, 0x07, kSize, 1000));
  EXPECT_FALSE(createPlacement(target, 0x07, kSize, 4000000000));
}

TEST(PlacePartition, ADiskWithoutATableHasNoFreeSpaceToLeave) {
  PlacementTarget target = primary(0, 99999);
  target.region = {0, 99999};
  target.rules.hasTable = false;
  EXPECT_TRUE(placePartition(target, 1000, 0, EndAlignment::yes));
  EXPECT_TRUE(placePartition(target, 1000, kPlaceAtStart, EndAlignment::yes));
  EXPECT_FALSE(placePartition(target, 1000, kPlaceAtEnd, EndAlignment::no));
  EXPECT_FALSE(placePartition(target, 1000, 1, EndAlignment::no));
}

TEST(PlacePartition, SizesThatCannotBeAreRefused) {
  const PlacementTarget target = primary(2048, 99999, 2048);
  for (const u64 length : {u64{0}, u64{99999}, kAllOnes64})
    for (const u32 placement : {u32{0}, u32{3}, kPlaceAtEnd, kPlaceAtStart})
      EXPECT_FALSE(placePartition(target, length, placement, EndAlignment::yes));
}

// Random free blocks between neighbours on a small disk, aligned in every way there is.
class RandomTargets {
 public:
  PlacementTarget next() {
    constexpr i64 kUnits[] = {
        AlignmentRules::kDefaultUnit, AlignmentRules::kCylinderUnit, 1, 8, 2048, 256};
    constexpr Geometry kGeometries[] = {kUsualGeometry, {1023, 15, 63}, {1023, 3, 32}};
    PlacementTarget target;
    AlignmentRules& rules = target.rules;
    rules.sectorSizeBytes = upTo(3) == 0 ? 4096 : 512;
    rules.explicitUnit = kUnits[upTo(5)];
    rules.geometry = kGeometries[upTo(2)];
    rules.isGpt = upTo(2) == 0;
    rules.firstUsableSector = rules.isGpt ? 34 : 1;

    const u64 low = upTo(2) == 0 ? rules.firstUsableSector : upTo(60000) + 1;
    const u64 high = low + upTo(90000);
    target.region = {low, high};
    target.insideExtended = !rules.isGpt && upTo(1) == 0;
    target.volumeGap = target.insideExtended ? trackUnit(rules) : 0;
    // As the free block of the region is made: on boundaries.
    const u64 first = firstAlignedSector(rules);
    const u64 start = low <= first ? first : alignUp(rules, low);
    const u64 boundary = alignDown(rules, high + 1);
    target.entry = {start + target.volumeGap, boundary == 0 ? 0 : boundary - 1};
    return target;
  }

  u64 upTo(u64 largest) { return std::uniform_int_distribution<u64>(0, largest)(random_); }
  u32 placement() {
    const u64 kind = upTo(3);
    if (kind == 0) return kPlaceAtEnd;
    if (kind == 1) return kPlaceAtStart;
    return static_cast<u32>(kind == 2 ? 0 : upTo(60));
  }

 private:
  std::mt19937_64 random_{20240611};
};

std::string describe(const PlacementTarget& t, u32 placement) {
  return "region " + std::to_string(t.region.startSector) + ".." +
         std::to_string(t.region.endSector) + " entry " + std::to_string(t.entry.startSector) +
         ".." + std::to_string(t.entry.endSector) + " gap " + std::to_string(t.volumeGap) +
         " unit " + std::to_string(alignmentUnit(t.rules)) + " placement " +
         std::to_string(placement);
}

// The start (with a volume's EBR) that placing at the end must find, by trying every sector.
std::optional<u64> lastStartByTrying(const PlacementTarget& t, u64 length, bool alignEnd) {
  const u64 unit = alignmentUnit(t.rules);
  const u64 first = firstAlignedSector(t.rules);
  const u64 sectors = length + t.volumeGap;
  std::optional<u64> best;
  for (u64 start = t.region.startSector; start + sectors <= t.region.endSector + 1; ++start) {
    const bool onBoundary = (start != 0 && start % unit == 0) || start == first;
    const bool endsOnBoundary = (start + sectors) % unit == 0;
    if (alignEnd ? endsOnBoundary : onBoundary) best = start;
  }
  return best;
}

TEST(PlacementProperties, NothingLeavesItsRegionAndTheEndIsTheLastThatFits) {
  RandomTargets random;
  u32 placed = 0;
  for (int i = 0; i < 3000; ++i) {
    const PlacementTarget target = random.next();
    const u32 placement = random.placement();
    const u64 length = 1 + random.upTo(60000);
    const bool alignEnd = random.upTo(1) == 0;
    const auto found =
        placePartition(target, length, placement, alignEnd ? EndAlignment::yes : EndAlignment::no);
    SCOPED_TRACE(describe(target, placement) + " length " + std::to_string(length));
    if (found) {
      ++placed;
      ASSERT_GE(found->startSector, target.region.startSector + target.volumeGap);
      ASSERT_LE(found->startSector, found->endSector);
      ASSERT_LE(found->endSector, target.region.endSector);
      ASSERT_EQ(length, found->endSector - found->startSector + 1);
      if (alignEnd && placement != kPlaceAtStart) {
        ASSERT_EQ(0U, (found->endSector + 1) % alignmentUnit(target.rules));
      }
    }
    if (placement != kPlaceAtEnd) continue;
    const auto expected = lastStartByTrying(target, length, alignEnd);
    ASSERT_EQ(expected.has_value(), found.has_value());
    if (found) {
      ASSERT_EQ(*expected + target.volumeGap, found->startSector);
    }
  }
  EXPECT_GT(placed, 500U);
}

TEST(PlacementProperties, NewPartitionsStayInTheirRegionOnBoundariesAndHaveTheirSize) {
  RandomTargets random;
  u32 placed = 0;
  for (int i = 0; i < 30000; ++i) {
    const PlacementTarget target = random.next();
    const u32 placement = random.placement();
    const u16 type = random.upTo(3) == 0 && !target.insideExtended ? 0x05 : 0x0B;
    const u64 size = 1 + random.upTo(80000);
    const auto found = createPlacement(target, type, size, placement);
    if (!found) continue;
    ++placed;
    SCOPED_TRACE(describe(target, placement) + " size " + std::to_string(size));
    ASSERT_GE(found->startSector, target.region.startSector + target.volumeGap);
    ASSERT_LE(found->startSector, found->endSector);
    ASSERT_LE(found->endSector, target.region.endSector);

    const u64 unit = alignmentUnit(target.rules);
    const u64 length = found->endSector - found->startSector + 1;
    ASSERT_GE(length, size);
    ASSERT_LT(length, size + 2 * unit);
    if (!target.insideExtended) {
      const u64 start = found->startSector;
      const bool noBoundaryBefore = alignDown(target.rules, start) < target.region.startSector;
      ASSERT_TRUE(start % unit == 0 || start == firstAlignedSector(target.rules) ||
                  noBoundaryBefore);
    }
  }
  EXPECT_GT(placed, 5000U);
}

}  // namespace
}  // namespace tallowin
