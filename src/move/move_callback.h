// The callback of every long engine operation.
#pragma once

#include <functional>

#include "base/types.h"

namespace tallowin {

enum CallbackId : u32 {
  CALLBACKidStatus = 0,        // value: phase of the operation
  CALLBACKidProgress = 1,      // value: percent of the current phase
  CALLBACKidReadError = 2,     // true: ignore this and all further errors
  CALLBACKidWriteError = 3,    // the same
  CALLBACKidProgressCalc = 4,  // engine-internal
};

// False stops the operation at its next safe point. May be empty: then nothing stops it.
using MoveCallback = std::function<bool(u32 id, u32 value)>;

}  // namespace tallowin
