// The sector size of an image file, which states none.
#pragma once

#include "disk/disk_device.h"

namespace tallowin {

// What the contents prove: 1024, 2048 or 4096 where a GPT has its header on the second sector of
// that size, where a file system on the whole disk states it, or where a partition's boot sector
// states it and no partition has a file system by the 512 of all others. Without proof 512.
// `image` counts sectors of 512 bytes.
u32 detectSectorSize(DiskDevice& image);

}  // namespace tallowin
