// What lies in the sectors between the boot sector and the first partition.
#pragma once

#include <optional>
#include <string>

#include "base/error.h"
#include "disk/disk_device.h"
#include "ptable/partition_entry.h"

namespace tallowin {

// Names what the sectors `first` .. `end` - 1 hold that is neither zero nor (what is left of) a GPT
// or EMBR, as the rest of a sentence ("the core image of a boot loader, in sector 1"). Nothing when
// they can be overwritten. A sector that cannot be read counts as one that holds something.
std::optional<std::string> namedTrackContent(DiskDevice& disk, u64 first, u64 end);

// Names what a new partition would overwrite of what lies before the usual place of the first one:
// the core of a boot loader, or, in the first track, anything. Nothing when there is none.
std::optional<std::string> namedLoaderContent(DiskDevice& disk, u64 startSector, u64 endSector);

// Names what an extended partition without volumes holds in their place, as namedDiskContent does
// of a disk: other programs take some of them for a plain partition. Nothing where its first sector
// is an EBR, or nothing is there.
std::optional<std::string> namedContainerContent(DiskDevice& disk, const TableEntry& container);

}  // namespace tallowin
