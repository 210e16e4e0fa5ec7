// Editing a text file of a partition.
#pragma once

#include <functional>

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// As much of a file as is edited.
inline constexpr u32 kMostEditedBytes = 524288;

// Lets the user pick a file, shows it, and writes it when that is wanted, and then alone. The disk
// is locked while something of it is written and not while somebody types: what has changed
// meanwhile is asked about. An older file stays whole until the new one is. done: something was
// saved; cancelled: nothing was; refused: the partition is in use, or its files cannot be reached.
// `showHelp` may be empty.
FlowResult editFileFlow(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                        const std::function<void(int topic)>& showHelp = {});

}  // namespace tallowin
