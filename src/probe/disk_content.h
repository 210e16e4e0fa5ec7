// What a disk without a partition table holds all the same.
#pragma once

#include <optional>
#include <string>

#include "disk/disk_device.h"

namespace tallowin {

// Names what is on a disk whose first sector has no boot signature, as the object of a sentence
// ("a LUKS container"): known headers, the remains of a GPT, or anything in the first sector but
// a disk signature. Nothing when the disk may be taken for a blank one. What cannot be read counts
// as something.
std::optional<std::string> namedDiskContent(DiskDevice& disk);

}  // namespace tallowin
