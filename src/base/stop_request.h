// The wish that what is under way ends at its next safe point.
#pragma once

#include "base/types.h"

namespace tallowin {

enum class StopReason : u8 {
  none,
  signal,       // SIGINT or SIGTERM
  displayLost,  // the connection to the display is gone, and with it every window
  outOfMemory,  // while events were served
};

// From now on SIGINT and SIGTERM only store that they came; system calls under way go on.
void catchStopSignals();
// By the thread that owns everything.
void requestStop(StopReason reason);

// Once there is a reason, it stays; one that tells how the program ends comes before a signal.
StopReason stopReason();
inline bool stopRequested() { return stopReason() != StopReason::none; }

// Waits until the descriptor has something to read. False when a signal came, be it before the
// call, or when it cannot be waited for.
[[nodiscard]] bool waitForInput(int descriptor);

}  // namespace tallowin
