// Ctrl-C as a wish that the next safe point grants.
#pragma once

namespace tallowin {

// From now on SIGINT and SIGTERM only set a mark; system calls under way go on.
void catchInterrupts();
bool wasInterrupted();

}  // namespace tallowin
