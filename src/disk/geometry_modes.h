// The geometry of a disk by one of the six modes of the drive settings.
#pragma once

#include "base/geometry.h"
#include "disk/disk_device.h"

namespace tallowin {

// Where heads and sectors per track come from.
enum class GeometryMode : u32 {
  automatic = 0,  // the firmware's
  firmware = 1,
  heads16 = 2,        // 63 sectors, heads doubled from 16
  heads255 = 3,       // 63 sectors, 255 heads
  sectorsBySize = 4,  // 17, 31 or 63 sectors, heads doubled from 16
  shifted = 5,        // 16 heads and 63 sectors, shifted until the cylinders fit
};

// Unknown modes count as the firmware's. When the size cannot be read, modes 2 to 5 give
// cylinder 0, head 0 and 1 sector per track.
Geometry geometryForMode(DiskDevice& disk, u32 mode);

}  // namespace tallowin
