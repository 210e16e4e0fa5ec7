// What lies in the sectors between the boot sector and the first partition.
#pragma once

#include <optional>
#include <string>

#include "base/error.h"
#include "disk/disk_device.h"

namespace tallowin {

// Names what the sectors `first` .. `end` - 1 hold that is neither zero nor (what is left of) a GPT
// or EMBR, as the rest of a sentence ("the core image of a boot loader, in sector 1"). Nothing when
// they can be overwritten. A sector that cannot be read counts as one that holds something.
std::optional<std::string> namedTrackContent(DiskDevice& disk, u64 first, u64 end);

}  // namespace tallowin
