// Delete: removes a partition or volume, and clears or wipes its sectors when that is asked for.
#pragma once

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Runs the Confirm Delete dialog for `entry`. The entry leaves the table before any of its sectors
// is overwritten.
// refused: it is mounted or in use. failed with tableNotUpdated: nothing was changed. failed or
// cancelled otherwise: the entry is gone, and what was wiped was told.
FlowResult deleteFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry);

}  // namespace tallowin
