// Disks in memory from and to image files, for programs that judge or make them.
#pragma once

#include <string>

#include "disk/memory_disk.h"

namespace tallowin {

// Reads a raw image; holes stay holes.
MemoryDisk loadDisk(const std::string& path, u32 sectorSizeBytes = 512);
// Writes a sparse raw image.
void storeDisk(MemoryDisk& disk, const std::string& path);

}  // namespace tallowin
