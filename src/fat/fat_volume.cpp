#include "fat/fat_volume.h"

#include <span>
#include <vector>

namespace tallowin {
namespace {

u32 firstEntryOf(std::span<const u8> fat, FatKind kind) {
  const u32 entry = *recordAt<Le32>(fat, 0);
  return entry & (kind == FatKind::fat12 ? 0xFFF : kind == FatKind::fat16 ? 0xFFFF : 0x0FFFFFFF);
}

}  // namespace

Failure beginsWithItsFats(const FatVolume& volume, bool& does) {
  const FatLayout& layout = volume.layout;
  std::vector<u8> sector(layout.bytesPerSector);
  u32 first = 0;
  does = true;
  for (u32 copy = 0; copy <= layout.numberOfFats && does; ++copy) {
    const u64 at = layout.reservedSectors + u64{copy} * layout.sectorsPerFat;
    if (at >= layout.totalSectors) break;
    if (const Failure failed =
            volume.range.disk.readSectors(volume.range.firstSector + at, sector.data(), 1))
      return failed;
    const u32 found = firstEntryOf(sector, layout.kind);
    if (copy == 0) first = found;
    does = (found == first) == (copy < layout.numberOfFats);
  }
  return {};
}

Failure openFat(const SectorRange& range, u16 type, std::optional<FatVolume>& volume) {
  FatBootArea boot(range.disk.sectorSize());
  if (const Failure failed = boot.read(range)) return failed;
  const std::optional<FatLayout> layout = boot.layoutIn(range, type);
  if (!layout) return Error::invalidVolume;
  volume.emplace(FatVolume{range, std::move(boot), *layout});
  return {};
}

}  // namespace tallowin
