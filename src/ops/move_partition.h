// Slide and Copy as operations: sectors, boot records and tables, asking nobody.
//
// Both have two stages. The data stage carries the sectors, and undoes itself when it is stopped.
// The finishing stage writes boot records and tables: small writes, which a log can undo.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "boot/boot_fix.h"
#include "move/sector_mover.h"
#include "ops/placement.h"
#include "ops/used_extents.h"

namespace tallowin {

// Published.
enum MoveFlags : u32 {
  kMoveFixBoot = 0x0001,
  kMoveFixBackup = kFixBackup,
  kMoveFixDriveNumber = kFixDriveNumber,
  kMoveDeleteSource = 0x0010,
  kMoveSetLabel = 0x0020,
  kMoveFixFirstSector = kFixFirstSector,
  kMoveBiosNumber = 0x0200,      // the drive number is the firmware's in place of 0x80
  kMoveAbsoluteHidden = 0x0400,  // also of volumes
};
inline constexpr u32 kMoveAlways = kMoveFixBoot | kMoveFixBackup;
inline constexpr u32 kSlideFlags = kMoveAlways | kMoveFixFirstSector;

struct MoveOrder {
  u32 flags = kMoveAlways;  // MoveFlags
  MovedSectorsWish sectors = MovedSectorsWish::used;
  u32 codePage = 437;  // of short names and labels
};

// --- Slide

// A value that is settled before the first write, and lets the finishing stage be done again.
struct SlidePlan {
  EntryMove entry;
  u16 type = 0;       // of the partition, as the model has it
  u64 volumeGap = 0;  // between the EBR of a volume and its first sector, else 0
  u32 flags = kSlideFlags;
  u32 codePage = 437;
  UsedExtents used;

  // The run of sectors that is moved: that of a volume begins behind its EBR.
  u64 runStart() const { return entry.oldStart - runGap(); }
  u64 runTarget() const { return entry.newStart - runGap(); }
  u64 runSectors() const { return entry.sectorCount + runGap(); }
  // From the first to the last sector that the slide touches.
  SectorExtent area() const;

 private:
  u64 runGap() const { return volumeGap > 1 ? volumeGap - 1 : 0; }
};

// Whether the partition can begin there, and what has to be done for it; nothing is written. Errors
// of Drive::planMove and findUsedExtents; with the latter the plan has the type found.
Failure planSlide(const FileSystemKinds& kinds, Drive& drive, const PartitionEntry& entry,
                  u64 newStart, const MoveOrder& order, SlidePlan& plan);
// The finishing stage: boot records, then the table. After a failure, when nothing else is said,
// the old table stands and the boot records are as they were. writeFailedNewTable: it is done.
// writeFailedTableUnknown.
Failure finishSlide(const FileSystemKinds& kinds, Drive& drive, const SlidePlan& plan,
                    std::vector<std::string>& notes);

// --- Copy

struct CopyPlan {
  MoveOrder order;
  SectorExtent source;
  u16 type = 0;
  NewEntry target;
  std::optional<u8> sourceBiosNumber;
  UsedExtents used;
};

// sizeNotPossible: the source does not fit; sectorSizeDiffers; and as planSlide.
Failure planCopy(const FileSystemKinds& kinds, Drive& sourceDrive, const PartitionEntry& source,
                 Drive& targetDrive, const NewEntry& target, const MoveOrder& order,
                 CopyPlan& plan);
Failure moveCopyData(Drive& sourceDrive, Drive& targetDrive, const CopyPlan& plan, Job& job,
                     MoveReport& report);
// The boot records of the copy; it is in no table yet.
Failure fixCopyBoot(const FileSystemKinds& kinds, Drive& targetDrive, const CopyPlan& plan,
                    std::vector<std::string>& notes);

}  // namespace tallowin
