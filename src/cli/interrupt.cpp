#include "cli/interrupt.h"

#include <csignal>

namespace tallowin {
namespace {

volatile std::sig_atomic_t interrupted = 0;

}  // namespace

void catchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = [](int) { interrupted = 1; };
  // A transfer that a signal cuts short would look like a disk error.
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool wasInterrupted() { return interrupted != 0; }

}  // namespace tallowin
