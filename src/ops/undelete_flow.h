// Undelete: partitions whose entries were lost come back into the table.
#pragma once

#include "ops/operation_context.h"
#include "ops/placement.h"
#include "ptable/drive.h"

namespace tallowin {

// Asks, and looks for lost partitions in and around `block`, a free block of the drive's table; see
// recoverPartitions.
FlowResult undeleteFlow(const OperationContext& context, Drive& drive, const PartitionEntry& block);

// The free sectors that a search in a free block looks through. In an extended partition the first
// of them is left to an EBR where the block does.
SectorExtent searchExtent(Drive& drive, const PartitionEntry& block);

// Looks for lost partitions from `firstSector` of the block's search extent on, runs the Undelete
// dialog with what was found, and adds what the user chose. One change of the table adds them all.
// doneWithLosses: something that is not in doubt had no room, and was named. cancelled: nothing was
// added. refused: nothing was found, or nothing could be
// changed, and the reason was told. failed: what
// was added before stays, and is told. `added` counts what the table has now.
FlowResult recoverPartitions(const OperationContext& context, Drive& drive,
                             const PartitionEntry& block, u64 firstSector, u32& added);

}  // namespace tallowin
