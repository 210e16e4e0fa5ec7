#include "base/stop_request.h"

#include <poll.h>

#include <atomic>
#include <csignal>

namespace tallowin {
namespace {

// A signal carries no context, so what its handler stores lives as long as the process.
std::atomic<bool> signalCame{false};
static_assert(std::atomic<bool>::is_always_lock_free);
StopReason otherReason = StopReason::none;

}  // namespace

void catchStopSignals() {
  struct sigaction action = {};
  action.sa_handler = [](int) { signalCame = true; };
  // A transfer that a signal cuts short would look like a disk error.
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void requestStop(StopReason reason) {
  if (otherReason == StopReason::none) otherReason = reason;
}

StopReason stopReason() {
  return otherReason == StopReason::none && signalCame ? StopReason::signal : otherReason;
}

bool waitForInput(int descriptor) {
  // A signal between the look at the mark and the wait would be waited out.
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, &before);
  pollfd input = {descriptor, POLLIN, 0};
  const bool came = !stopRequested() && ::ppoll(&input, 1, nullptr, &before) == 1;
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return came;
}

}  // namespace tallowin
