// Which sectors of a FAT volume hold something.
#pragma once

#include "move/extent_list.h"
#include "probe/file_system_kind.h"

namespace tallowin {

// The usedExtents of the FAT kinds: see FileSystemKind. All in front of the first cluster, and the
// clusters in use; those that are marked bad hold nothing.
Failure fatUsedExtents(const SectorRange& range, u16 type, const UsedExtentsWish& wish,
                       ExtentList& extents);

}  // namespace tallowin
