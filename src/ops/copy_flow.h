// Copy: a partition is copied into a free block of the same or another disk.
#pragma once

#include "ops/operation_context.h"
#include "ops/slide_flow.h"
#include "ptable/drive.h"

namespace tallowin {

// Runs the Copy dialog for `source` and `block`, a free block of `drive`, and copies; the source's
// drive may be the same object. refused: nothing was written. cancelled, failed: no table was
// changed, or what was changed was told. doneWithLosses: sectors could not be read or written.
FlowResult copyFlow(const OperationContext& context, Drive& sourceDrive, PartitionEntry& source,
                    Drive& drive, PartitionEntry& block, MoveTold* told = nullptr);

// The word of a copy with a deleted source in its journal, and how one that was cut short is
// brought to its end. All of the data was there when the journal was begun.
class WorkJournal;
inline constexpr const char* kCopyWork = "copy";
FlowResult continueCopy(const OperationContext& context, Drive& drive, WorkJournal& journal);

}  // namespace tallowin
