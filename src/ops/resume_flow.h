// What a kill or a power cut left unfinished is continued or undone.
#pragma once

#include "ops/operation_context.h"
#include "ops/unfinished_work.h"
#include "ptable/drive.h"

namespace tallowin {

enum class Resume { goOn, undo };

// Told when it is done. refused: another program is at it, its journal is not there, or it lies in
// sectors that are in use. failed: the journal stays, and it can be tried again. The drive is read
// again.
FlowResult resumeFlow(const OperationContext& context, Drive& drive, Resume how);

// Says what is unfinished and asks which of the two, or neither, is wanted. Nothing happens when
// nothing is unfinished.
FlowResult offerResume(const OperationContext& context, Drive& drive);

}  // namespace tallowin
