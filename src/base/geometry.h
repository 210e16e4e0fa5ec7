// Cylinder/head/sector geometry, and the conversion of a sector number to a CHS address.
#pragma once

#include <array>

#include "base/types.h"

namespace tallowin {

struct Geometry {
  u16 maxCylinder = 0;     // highest cylinder index
  u8 maxHead = 0;          // highest head index
  u8 sectorsPerTrack = 0;  // 1..63

  friend bool operator==(const Geometry&, const Geometry&) = default;
  u32 trackSectors() const { return sectorsPerTrack; }
  u32 cylinderSectors() const { return (u32{maxHead} + 1) * sectorsPerTrack; }
  u64 totalSectors() const { return (u64{maxCylinder} + 1) * cylinderSectors(); }
};

struct ChsAddress {
  u16 cylinder = 0;
  u8 head = 0;
  u8 sector = 0;  // from 1; 0 in an empty slot

  friend bool operator==(const ChsAddress&, const ChsAddress&) = default;
};

// How an address beyond the geometry, and the end of a partition, are written.
enum ChsFlags : u32 {
  kChsBeyondGeometry = 1,  // cylinders up to 1023 as they are, beyond that 1023
  kChsForceEnd = 2,        // head and sector are always the geometry's last ones
  kChsEndIfTruncated = 4,  // the same, only when the cylinder had to be cut
};

// The packed form of a partition table: head, sector with cylinder bits 8..9, cylinder.
ChsAddress unpackedChs(const std::array<u8, 3>& bytes);

// `lba` as a CHS address of `geometry`, whose sectors per track must not be 0.
ChsAddress lbaToChs(u64 lba, const Geometry& geometry, u32 chsFlags);

}  // namespace tallowin
