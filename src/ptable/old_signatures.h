// What a file system that filled the disk leaves behind when the disk gets a table, or is emptied.
#pragma once

#include <vector>

#include "base/error.h"
#include "disk/disk_device.h"

namespace tallowin {

// Clears the marks, behind sector 0, by which other programs know a file system, a volume manager
// or a container, and nothing else of their sectors. read, write.
Failure clearOldSignatures(DiskDevice& disk);
// Clears sector 0 and then the marks, all on the medium when it returns. write: the volume is still
// there; writeFailedNewTable: its boot sector is gone; writeFailedTableUnknown; read.
Failure removeWholeDiskVolume(DiskDevice& disk);
// The sectors in which any of the marks can lie; ascending.
std::vector<u64> oldSignatureSectors(u32 sectorSizeBytes);

}  // namespace tallowin
