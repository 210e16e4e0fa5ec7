#include "disk/geometry_modes.h"

#include <algorithm>

namespace tallowin {
namespace {

constexpr u32 kMaxHeads = 255;
constexpr u64 kMaxCylinders = 1024;  // of a CHS address
constexpr u8 kMaxSectorsPerTrack = 63;

u8 sectorsBySize(u64 totalSectors) {
  if (totalSectors <= 0x44000) return 17;
  if (totalSectors <= 0x7C000) return 31;
  return kMaxSectorsPerTrack;
}

Geometry doubledHeads(u64 totalSectors, u32 heads, u8 sectorsPerTrack) {
  while (heads < 256 && totalSectors / (u64{heads} * sectorsPerTrack) > kMaxCylinders) heads *= 2;
  heads = std::min(heads, kMaxHeads);
  const u64 cylinders = totalSectors / (u64{heads} * sectorsPerTrack);
  Geometry geometry;
  geometry.maxHead = static_cast<u8>(heads - 1);
  geometry.sectorsPerTrack = sectorsPerTrack;
  geometry.maxCylinder = static_cast<u16>(std::clamp<u64>(cylinders, 1, kMaxCylinders) - 1);
  return geometry;
}

Geometry shiftedHeads(u64 totalSectors) {
  u32 heads = 16;
  u64 cylinders = std::min<u64>(totalSectors / (u64{heads} * kMaxSectorsPerTrack), 0xFFFF) + 1;
  while (cylinders > kMaxCylinders && heads * 2 <= 256) {
    heads *= 2;
    cylinders /= 2;
  }
  Geometry geometry;
  geometry.maxHead = static_cast<u8>(std::min(heads, kMaxHeads) - 1);
  geometry.maxCylinder = static_cast<u16>(std::min(cylinders, kMaxCylinders) - 1);
  geometry.sectorsPerTrack = kMaxSectorsPerTrack;
  return geometry;
}

}  // namespace

Geometry geometryForMode(DiskDevice& disk, u32 mode) {
  if (mode < static_cast<u32>(GeometryMode::heads16) ||
      mode > static_cast<u32>(GeometryMode::shifted)) {
    Geometry geometry;
    static_cast<void>(disk.firmwareGeometry(geometry));
    return geometry;
  }
  const std::optional<u64> total = disk.sectorCount();
  if (!total) return {.maxCylinder = 0, .maxHead = 0, .sectorsPerTrack = 1};
  switch (static_cast<GeometryMode>(mode)) {
    case GeometryMode::heads16:
      return doubledHeads(*total, 16, kMaxSectorsPerTrack);
    case GeometryMode::heads255:
      return doubledHeads(*total, 256, kMaxSectorsPerTrack);
    case GeometryMode::sectorsBySize:
      return doubledHeads(*total, 16, sectorsBySize(*total));
    default:
      return shiftedHeads(*total);
  }
}

}  // namespace tallowin
