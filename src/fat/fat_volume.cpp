#include "fat/fat_volume.h"

namespace tallowin {

Failure openFat(const SectorRange& range, u16 type, std::optional<FatVolume>& volume) {
  FatBootArea boot(range.disk.sectorSize());
  if (const Failure failed = boot.read(range)) return failed;
  const std::optional<FatLayout> layout = boot.layoutIn(range, type);
  if (!layout) return Error::invalidVolume;
  volume.emplace(FatVolume{range, std::move(boot), *layout});
  return {};
}

}  // namespace tallowin
