// What lies in a partition or on a whole disk, told from its first sectors.
#pragma once

#include <optional>
#include <span>

#include "base/error.h"
#include "base/geometry.h"
#include "disk/disk_device.h"

namespace tallowin {

enum class ContentCode : u32 {
  none = 0,
  fat = 1,  // FAT-12 or FAT-16
  ntfs = 7,
  fat32 = 11,
  linuxSwap = 130,
  ext = 131,
  hfsPlus = 175,
  reiserFs = 387,
  exFat = 519,
  xfs = 643,
  reFs = 775,
  otherLinux = 899,  // known to contentType only; nothing is identified as this
  bitLocker = 8192,
  iso9660 = 0x9660,            // whole device only
  unknownVolume = kAllOnes32,  // not recognised, but one volume
};

struct Content {
  ContentCode code = ContentCode::none;
  u64 sectorCount = 0;      // as the file system says; of the device when it does not
  Geometry geometry;        // from the boot sector of FAT and NTFS, else zero
  u32 sectorSizeBytes = 0;  // as the file system says; 0 when it does not
};

// Looks at the content that starts at `startLba`; 0 means the whole disk, which may also carry
// a partition table. read; notAFileSystem: a table, or nothing. `content` is set
// only on success.
Failure identify(DiskDevice& disk, u64 startLba, Content& content);
// The MBR type for a content; nothing for optical and unknown content.
std::optional<u16> contentType(ContentCode code);
// The MBR type of what starts at `startLba`, 0 when that is not recognised.
u16 typeOfContent(DiskDevice& disk, u64 startLba);

enum class BootLoaderMark { none = 0, marked = 1, grub = 2 };
BootLoaderMark bootLoaderMark(std::span<const u8> sector);

}  // namespace tallowin
