// Making the kernel's picture of a disk's partitions that of the table on it.
#pragma once

#include <span>
#include <string>

#include "base/host.h"
#include "disk/disk_device.h"

namespace tallowin {

// Asks the kernel to read the table again; where that is refused because a partition is in use,
// deletes, resizes and adds just what differs, so that partitions in use stay as they are.
// `sysFolder` as of sysFolderOf, `descriptor` open on the disk.
KernelTable tellKernelTable(Host& host, int descriptor, const std::string& sysFolder,
                            u32 sectorSizeBytes, std::span<const KernelPartition> wanted);

// Writes out and forgets what the kernel's buffers hold of the partitions that it knows with
// sectors in the range; device sectors. A partition that cannot be opened is left out.
void dropPartitionBuffers(Host& host, const std::string& sysFolder, u32 sectorSizeBytes, u64 lba,
                          u64 count);

}  // namespace tallowin
