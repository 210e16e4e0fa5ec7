#include "base/geometry.h"

namespace tallowin {

ChsAddress lbaToChs(u64 lba, const Geometry& geometry, u32 chsFlags) {
  constexpr u64 kHighestChsCylinder = 1023;
  const u64 cylinderSize = geometry.cylinderSectors();
  u64 cylinder = lba / cylinderSize;
  bool truncated = false;
  if (cylinder > geometry.maxCylinder) {
    const bool beyond = (chsFlags & kChsBeyondGeometry) != 0;
    truncated = !beyond || cylinder > kHighestChsCylinder;
    if (truncated) cylinder = beyond ? kHighestChsCylinder : geometry.maxCylinder;
  }
  ChsAddress address;
  address.cylinder = static_cast<u16>(cylinder);
  if ((chsFlags & kChsForceEnd) != 0 || (truncated && (chsFlags & kChsEndIfTruncated) != 0)) {
    address.head = geometry.maxHead;
    address.sector = geometry.sectorsPerTrack;
    return address;
  }
  const u64 inCylinder = lba % cylinderSize;
  address.head = static_cast<u8>(inCylinder / geometry.sectorsPerTrack);
  address.sector = static_cast<u8>(inCylinder % geometry.sectorsPerTrack + 1);
  return address;
}

}  // namespace tallowin
