// The firmware's view of a disk: its geometry and its number.
#pragma once

#include <functional>
#include <optional>

#include "base/geometry.h"
#include "base/host.h"
#include "disk/disk_device.h"

namespace tallowin {

struct FirmwareDisk {
  Geometry geometry;
  bool determined = false;  // false: geometry is the default 1023/254/63
  u32 biosNumber = kBiosNumberNoMatch;
};

// The kernel's answer about heads, sectors per track and cylinders, as counts.
struct KernelGeometry {
  u8 heads = 0;
  u8 sectorsPerTrack = 0;
  u16 cylinders = 0;
};
using KernelGeometryQuery = std::function<std::optional<KernelGeometry>()>;

// The firmware disk with this disk's size and signature, else the ends of the entries in sector
// 0, else what the kernel says, else the default.
FirmwareDisk findFirmwareDisk(Host& host, DiskDevice& disk, const KernelGeometryQuery& kernel);

// The same for an image file, which neither firmware nor kernel knows.
FirmwareDisk imageFirmwareDisk(DiskDevice& disk);

}  // namespace tallowin
