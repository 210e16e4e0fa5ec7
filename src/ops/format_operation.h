// Formatting as an operation: it asks nobody and shows nothing.
#pragma once

#include "ops/file_systems.h"
#include "ops/placement.h"
#include "settings/options.h"

namespace tallowin {

// A part of a drive that is to hold a file system.
struct FormatTarget {
  SectorExtent extent;
  u16 type = 0;       // what the partition is, or is to become
  u64 volumeGap = 0;  // of a volume in an extended partition: the sectors between its EBR and it
  bool isWholeDisk = false;  // a volume without a table
};
FormatTarget formatTargetOf(const Drive& drive, const PartitionEntry& entry, u16 type);
// All of the drive, with the type that `kind` wants.
FormatTarget wholeDiskTarget(const Drive& drive, const FileSystemKind& kind);

// The type that a partition needs for `kind`: the present one when it fits.
u16 typeForKind(const Drive& drive, const PartitionEntry& entry, const FileSystemKind& kind);

// What the table has to say of the entry before it holds `kind`; empty when it says so already.
// Of a GPT the type GUID is kept where it fits `kind` as well.
EntryProperties propertiesForKind(const Drive& drive, const PartitionEntry& entry, u16 type,
                                  const FileSystemKind& kind);

// What of a wish follows from the place: type, geometry, hidden sectors, drive number.
FormatWish formatWishFor(Drive& drive, const FormatTarget& target, const Options& options,
                         u64 secondsSinceEpoch);

// Changes nothing of the table; the disk must be locked, and what the table says of the extent be
// right: see propertiesForKind. When it returns, all is on the medium and no cache holds what was
// in the extent before. Errors of FileSystemKind::format; unsupportedFileSystem: `kind` has none.
Failure formatVolume(Drive& drive, const FormatTarget& target, const FileSystemKind& kind,
                     const FormatWish& wish, Job& job, FormatReport& report);

}  // namespace tallowin
