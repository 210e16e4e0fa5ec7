// The free block that a new or copied partition goes into.
#pragma once

#include <string>

#include "ops/operation_context.h"
#include "ops/placement.h"
#include "ptable/drive.h"

namespace tallowin {

// Of an entry of any kind: where it lies, and all that is free around it.
PlacementTarget placementTargetOf(Drive& drive, const PartitionEntry& entry);

// Why no extended partition can be added to the disk; empty when it can. One that is to go,
// `replaced`, does not count; null: none.
std::string whyNoExtended(Drive& drive, const PartitionEntry* replaced);

// Whether the top level has a slot for one more; else an EMBR is offered, which makes a new model:
// `block` is found in it again, null when it is gone.
FlowResult makeRoomForPrimary(const OperationContext& context, Drive& drive,
                              PartitionEntry*& block);

inline constexpr const char* kCannotAlign =
    "Unable to align the partition in the target area.\n"
    "This is probably due to unaligned partitions.";

}  // namespace tallowin
