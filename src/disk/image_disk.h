// Image files as disks: raw, VHD and VMDK.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "base/error.h"
#include "disk/disk_device.h"

namespace tallowin {

// What the contents of a raw image, seen in sectors of 512 bytes, say of its sector size: 512,
// 1024, 2048 or 4096.
using SectorSizeProbe = std::function<u32(DiskDevice&)>;

struct OpenedImage {
  std::unique_ptr<DiskDevice> disk;  // null when it failed
  Failure error = Error::none;
  std::string reason;  // why it failed and what to do about it, one line for the user
};

// Opens `path`, a regular file, for reading and writing when `access` wants it and the process may
// do both, else read-only. VHD and VMDK are found by their content; anything else is a raw image.
//
// `kind` kHardDiskKind: the image has `sectorSizeBytes` (512, 1024, 2048 or 4096); when that is 0,
// a raw image has what `probe` finds out, and any other 512. kOpticalKind: always a raw image of
// 2048.
//
// Errors: cannotOpenForReading; unsupportedForm (a form that is recognised but not known, or a
// container that raw writing would ruin; the reason names it); corrupt; read; outOfMemory.
OpenedImage openImageFile(const std::string& path, DiskAccess access, u8 kind = kHardDiskKind,
                          u32 sectorSizeBytes = 0, const SectorSizeProbe& probe = {});

}  // namespace tallowin
