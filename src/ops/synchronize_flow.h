// An EMBR learns what another program did to the MBR.
#pragma once

#include "ops/operation_context.h"
#include "ptable/drive.h"
#include "ptable/embr/embr_sync.h"

namespace tallowin {

// Whether there is something to learn, as far as that can be read.
[[nodiscard]] bool isBehindMbr(Drive& drive);

// One drive; of an image only after a question. The drive was read again when anything was written.
// done: also when nothing was to be done, or a partition found no entry (see `sync`); refused: the
// reason was told; cancelled; failed: nothing was told.
FlowResult synchronizeEmbrFlow(const OperationContext& context, Drive& drive, EmbrSync& sync);

// The same at start, unless it can only be read, with words for the user; `index` names it as HD%i.
void synchronizeFlow(const OperationContext& context, Drive& drive, int index);

}  // namespace tallowin
