#include "base/geometry.h"

namespace tallowin {

ChsAddress unpackedChs(const std::array<u8, 3>& bytes) {
  constexpr u8 kSectorMask = 0x3F;
  return {static_cast<u16>(bytes[2] | (bytes[1] & 0xC0) << 2), bytes[0],
          static_cast<u8>(bytes[1] & kSectorMask)};
}

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
