// The questions after a read or write error of a long operation.
#pragma once

#include "base/job.h"
#include "ops/front_end.h"

namespace tallowin {

// True for Continue: this and all further errors of the operation are ignored.
[[nodiscard]] bool askDiskError(FrontEnd& ui, Direction direction);
// The same for a wipe.
[[nodiscard]] bool askToIgnoreWipeErrors(FrontEnd& ui, Direction direction);
[[nodiscard]] bool askToIgnoreMismatch(FrontEnd& ui);

}  // namespace tallowin
