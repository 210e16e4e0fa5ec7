// Resizing as an operation: the file system and the table, asking nobody.
#pragma once

#include <vector>

#include "ops/file_systems.h"
#include "ops/table_change.h"

namespace tallowin {

// Where a resize ended; published.
enum class ResizePhase : u32 {
  planning = 0,
  check = 1,
  resize = 2,
  finalCheck = 3,
  writeBack = 255,  // what the write cache held could not be written
};

struct ResizeOrder {
  u64 endSector = 0;
  u32 clusterBytes = 0;  // 0: automatic
  u16 forcedType = 0;    // 0: automatic
  bool useCache = true;
};

struct ResizeOutcome {
  Failure failure;  // with its phase
  ResizePhase phase = ResizePhase::planning;
  ResizeReport report;
  std::vector<u64> lostSectors;  // in phase writeBack
};

ResizeWish resizeWishFor(Drive& drive, const PartitionEntry& entry, const ResizeOrder& order);

// outsideUsableArea: the new extent is not free; sizeNotPossible, invalidSizeForType and the like
// as FileSystemKind::planResize. Writes nothing.
Failure planEntryResize(Drive& drive, const PartitionEntry& entry, const FileSystemKind& kind,
                        const ResizeOrder& order, ResizePlan& plan);

// The file system first, then the table: within `change`, of a disk that is locked. With a cache
// everything is flushed before the table is touched. What was found after the resize is told by the
// phase; the table is as wished then.
ResizeOutcome resizeEntry(TableChange& change, Drive& drive, u64 startSector,
                          const FileSystemKind& kind, const ResizeOrder& order, Job& job);

}  // namespace tallowin
