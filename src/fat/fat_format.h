// Writes a new, empty FAT file system.
#pragma once

#include <functional>
#include <string>

#include "base/error.h"
#include "base/geometry.h"
#include "disk/disk_device.h"
#include "fat/fat_volume.h"

namespace tallowin {

enum FatFormatOptions : u32 {
  kFatScanSurface = 1,
  kFatAlignForNtfs = 2,  // the data area begins on a multiple of 4 KiB of the partition
};

inline constexpr u32 kDriveNumberDefault = 255;

// Values of status callbacks (CALLBACKidStatus).
inline constexpr u32 kFatFormatBegins = 1;
inline constexpr u32 kFatScanBegins = 2;

struct FatFormatRequest;
// Ids as in move/move_callback.h: status and progress. False stops. May be empty.
using FatFormatCallback = std::function<bool(FatFormatRequest& request, u32 id, u32 value)>;

struct FatFormatRequest {
  DiskDevice* device = nullptr;  // borrowed
  u64 startSector = 0;
  u32 lengthSectors = 0;
  u32 sectorsPerCluster = 0;  // 0 automatic
  u16 typeId = 0;             // decides the kind; the hidden form counts as the plain one
  u32 driveNumber = kDriveNumberDefault;  // for the boot sector; 255 and more: the default
  std::string label;                      // empty: none
  u32 options = 0;                        // FatFormatOptions
  Geometry geometry;
  u32 hiddenSectors = 0;      // of a volume in an extended partition: the gap to its EBR; else 0
  u64 secondsSinceEpoch = 0;  // the serial number: its low 32 bits
  FatFormatCallback callback;
  u32 badClusters = 0;  // out: marked by the scan
};

// none: the file system is complete and on the medium.
// scanStopped: the same, with the bad clusters found so far marked.
// cancelled: by the callback, before or during clearing.
// outOfMemory; write: boot sector, FAT or root directory could not be written;
// invalidSizeForType: nothing was written; clearingFailed: a write failed while clearing.
// After cancelled, write and clearingFailed the old file system is partly overwritten.
Failure formatFat(FatFormatRequest& request);

enum class BootSectorOrigin { fresh, existing };

// How a cluster size may be asked for, in sectors per cluster: 0 automatic, or
inline constexpr i32 kKeepClusterSize = -1;
inline constexpr i32 kKeepClusterSizeExactly = -2;  // FAT32 does not raise it either

// Fills the boot area of `volume` for `lengthSectors` and classifies it. `fresh` begins with the
// template and `newSerial`; `existing` keeps boot code, label and serial.
// False when no layout is possible; the boot area is then half filled.
[[nodiscard]] bool buildBootSector(FatVolume& volume, BootSectorOrigin origin, u64 lengthSectors,
                                   i32 sectorsPerCluster, u32 driveNumber, u32 newSerial = 0);

// Chooses sectors per cluster and per FAT, and the type text, for the boot sector's total
// sectors. False when the size is not valid for the volume's type.
[[nodiscard]] bool computeFatLayout(FatVolume& volume, i32 sectorsPerCluster);

// Whether a FAT type may have so many sectors; types that are no FAT always may.
bool isSizeValidForType(u16 typeId, u64 sectors);

// The label as it is stored: upper case, 11 bytes, '_' for what may not stand in it. All blanks
// when there is none.
std::string fatLabelText(std::string_view label);

}  // namespace tallowin
