// Slide: a partition goes elsewhere within the free space around it, and keeps its size.
#pragma once

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// What a slide or a copy came to, for scripts.
struct MoveTold {
  u64 startSector = 0;  // where the partition begins now
  u64 readErrors = 0;   // sectors
  u64 writeErrors = 0;
};

// Runs the Slide dialog for a partition or volume, asks, and moves it. Nothing happens when its
// place stays. refused: nothing was written. cancelled, failed: it lies where it lay before, or
// what is else was told. doneWithLosses: it was moved with sectors that could not be read or
// written.
FlowResult slideFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry,
                     MoveTold* told = nullptr);

// The word of a slide in its journal, and how one that was cut short is brought to its end.
class WorkJournal;
inline constexpr const char* kSlideWork = "slide";
FlowResult continueSlide(const OperationContext& context, Drive& drive, WorkJournal& journal);
FlowResult undoSlide(const OperationContext& context, Drive& drive, WorkJournal& journal);

}  // namespace tallowin
