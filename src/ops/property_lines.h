// What Properties says of a partition: how it may be reached and booted, and what does not fit.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "boot/boot_sector.h"

namespace tallowin {

struct PropertyFacts {
  u16 type = 0;
  bool isVolume = false;
  bool isGpt = false;
  u64 startSector = 0;
  u64 endSector = 0;  // inclusive
  u64 lastChsSector = 0;
  u32 sectorsPerTrack = 63;
  u16 typeForEnd = 0;  // the type in its CHS or LBA variant
  bool fitsType = true;
  BootSector boot;
  // Of an extended partition: the type of its last volume, 0 when it has none.
  std::optional<u16> lastVolumeType;
  bool isHibernated = false;
  bool holdsBootManager = false;
};

// From the top; a line may have a line break in it.
std::vector<std::string> propertyLines(const PropertyFacts& facts);

}  // namespace tallowin
