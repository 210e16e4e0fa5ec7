// Resize: a partition gets another end, and its file system follows.
#pragma once

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Checks the file system, runs the Resize dialog until its wish is possible or given up, asks, and
// resizes. An extended partition has a dialog of its own, for both of its ends. What is cut short
// is put back, or can be continued or undone later: see runUndoable.
// refused: nothing was written. cancelled, failed: what was written was told. doneWithLosses: it
// was resized, and a check found a fault afterwards.
FlowResult resizeFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry);

// The word of a resize in its journal, and how one that was cut short is brought to its end: what
// it did is put back, and it is done again.
class WorkJournal;
inline constexpr const char* kResizeWork = "resize";
FlowResult continueResize(const OperationContext& context, Drive& drive, WorkJournal& journal);

// What the Resize dialog would offer; for scripts. Refusals are told.
struct ResizeOffer {
  u64 minimumSectors = 0;
  u64 maximumSectors = 0;
  u64 presentSectors = 0;
  u64 usedSectors = 0;
  u32 clusterBytes = 0;
};
FlowResult resizeOffer(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                       ResizeOffer& offer);

}  // namespace tallowin
