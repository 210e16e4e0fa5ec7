// Create: a new partition or volume in a free block.
#pragma once

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Runs the Create dialog for `block`, a free block of the drive's table, writes the new entry,
// clears its first sectors and formats it when the box is ticked.
// refused: the block is no longer free, or the disk is used by others. failed: the table on disk
// is the old one, or, after a failed format, the new one with the entry unformatted.
FlowResult createFlow(const OperationContext& context, Drive& drive, PartitionEntry& block);

}  // namespace tallowin
