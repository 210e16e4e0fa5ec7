// At start: an EMBR learns what another program did to the MBR.
#pragma once

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Of one drive, unless it can only be read; `index` names it as HD%i. Of an image only after a
// question. The drive was read again when anything was written.
void synchronizeFlow(const OperationContext& context, Drive& drive, int index);

}  // namespace tallowin
