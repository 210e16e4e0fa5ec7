// What lies in the sectors between the boot sector and the first partition.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "base/error.h"
#include "disk/disk_device.h"

namespace tallowin {

bool isAllZero(std::span<const u8> bytes);

// Names what the sectors `first` .. `end` - 1 hold that is neither zero nor a table of ours, as
// the rest of a sentence ("the core image of a boot loader, in sector 1"). Nothing when they can
// be overwritten. A sector that cannot be read counts as one that holds something.
std::optional<std::string> namedTrackContent(DiskDevice& disk, u64 first, u64 end);

}  // namespace tallowin
