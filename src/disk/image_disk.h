// Image files as disks: raw, VHD and VMDK.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/error.h"
#include "disk/disk_device.h"

namespace tallowin {

// What file-system identification says of the whole disk: nothing when there is no file system
// (a partition table, or nothing at all), else the sector size that its boot sector states, 0
// when it states none.
using SectorSizeProbe = std::function<std::optional<u32>(DiskDevice&)>;

struct OpenedImage {
  std::unique_ptr<DiskDevice> disk;  // null when it failed
  Failure error = Error::none;
  std::string reason;  // why it failed and what to do about it, one line for the user
};

// Opens `path`, a regular file, for reading and writing when `access` wants it and the process may
// do both, else read-only. VHD and VMDK are found by their content; anything else is a raw image.
//
// `kind` kHardDiskKind: a raw image has `sectorSizeBytes` (512, 1024, 2048 or 4096); when that is
// 0 it is found out, with the help of `probe`. kOpticalKind: always a raw image of 2048.
//
// Errors: cannotOpenForReading; unsupportedForm (a form that is recognised but not known, or a
// container that raw writing would ruin; the reason names it); corrupt; read; outOfMemory.
OpenedImage openImageFile(const std::string& path, DiskAccess access, u8 kind = kHardDiskKind,
                          u32 sectorSizeBytes = 0, const SectorSizeProbe& probe = {});

}  // namespace tallowin
