// The question after a read or write error of a long operation.
#pragma once

#include "ops/front_end.h"

namespace tallowin {

enum class DiskErrorKind { read = 1, write = 2 };

// True for Continue: this and all further errors of the operation are ignored.
[[nodiscard]] bool askDiskError(FrontEnd& ui, DiskErrorKind kind);

}  // namespace tallowin
