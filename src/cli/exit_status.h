// What a script learns from the end of a command.
#pragma once

namespace tallowin {

enum class ExitStatus : int {
  done = 0,
  failed = 1,  // or refused: one line on standard error says what, why and what to do next
  wrongUsage = 2,
  doneWithLosses = 3,  // that were accepted
  stopped = 130,       // by the user
};

}  // namespace tallowin
