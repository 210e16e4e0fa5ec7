// Whether a partition is in use by this machine: the check before anything is changed.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/host.h"
#include "disk/disk_device.h"

namespace tallowin {

struct MountInfo {
  std::string mountPoint;  // empty for a swap area
  std::string type;        // of the file system, or "swap"
  std::string options;
};

// Whether a partition that starts at `startSector` (device sectors) is mounted or an active
// swap area. 0 stands for the disk itself as well. Nothing for image files.
std::optional<MountInfo> findMount(Host& host, DiskDevice& disk, u64 startSector);

enum class UseKind {
  mounted,   // where: the mount point
  swap,      // an active swap area
  held,      // a part of another device (LUKS, LVM, RAID); where: that device and its name
  openedBy,  // opened exclusively by something that is neither of these
};

// What is in the way, as plain data. The words for the user are made where they are shown.
struct DiskUse {
  UseKind kind = UseKind::mounted;
  std::string node;  // the device in use, "/dev/sda1"; through a loop device on the file, that
  std::string where;
  u64 startSector = 0;  // the part of the disk that is in use, in device sectors
  u64 sectorCount = 0;
};

// Every use of the disk: of the disk as a whole first, then by partition; then what loop devices
// use that stand on the same file, of an image file as of a loop device.
std::vector<DiskUse> driveUse(Host& host, DiskDevice& disk);

// What uses any sector of the range, by the kernel's own picture of the disk: a partition that
// is mounted but no longer stands in the table is found too. Nothing when it is free to change.
std::optional<DiskUse> partitionUse(Host& host, DiskDevice& disk, u64 startSector, u64 sectorCount);

}  // namespace tallowin
