// Ctrl-C as a wish that the next safe point grants.
#pragma once

namespace tallowin {

// From now on SIGINT and SIGTERM only set a mark; system calls under way go on.
void catchInterrupts();
bool wasInterrupted();
// Waits until the descriptor has something to read. False when a signal came, be it before the
// call, or when it cannot be waited for.
bool waitForInput(int descriptor);

}  // namespace tallowin
