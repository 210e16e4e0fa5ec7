#include "cli/interrupt.h"

#include <poll.h>

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

bool waitForInput(int descriptor) {
  // A signal between the look at the mark and the wait would be waited out.
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, &before);
  pollfd input = {descriptor, POLLIN, 0};
  const bool came = !wasInterrupted() && ::ppoll(&input, 1, nullptr, &before) == 1;
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return came;
}

}  // namespace tallowin
