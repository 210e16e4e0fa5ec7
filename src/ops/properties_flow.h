// Properties of a partition that change without moving it, and the repair of a GPT.
#pragma once

#include <optional>

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Asks, and changes all that is wanted; the caller has checked that the table has a place for it.
// Entries on hand are stale afterwards.
FlowResult changePropertiesFlow(const OperationContext& context, Drive& drive,
                                const PartitionEntry& entry, const EntryProperties& wanted);

// Offers to end a chain of volumes that is not clear, and to repair the boot sector, and runs the
// Properties dialog. `offersEnd`: the last sector may be typed.
FlowResult propertiesFlow(const OperationContext& context, Drive& drive,
                          const PartitionEntry& entry, bool offersEnd);

// Asks about each of geometry and drive number that the boot sector of the partition has wrong, and
// puts them right, there and in its copy. Done at once when nothing is wrong. refused: nothing was
// changed, and the reason was told.
FlowResult repairBootSectorFlow(const OperationContext& context, Drive& drive,
                                const PartitionEntry& entry);

// Asks, and makes both copies of the disk's GPT sound again; see Drive::repairGpt. Done at once
// when they are. Entries on hand are stale afterwards.
FlowResult repairGptFlow(const OperationContext& context, Drive& drive);

}  // namespace tallowin
