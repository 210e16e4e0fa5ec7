#include "base/stop_request.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace tallowin {
namespace {

// In a process of its own: a request stays.
TEST(StopRequest, SignalsAreStoredAndALostDisplayCountsBeforeThem) {
  const auto child = [] {
    catchStopSignals();
    if (stopRequested()) std::exit(1);
    std::raise(SIGTERM);
    std::raise(SIGINT);
    if (stopReason() != StopReason::signal) std::exit(2);
    int ends[2];
    if (::pipe(ends) != 0 || ::write(ends[1], "x", 1) != 1) std::exit(3);
    if (waitForInput(ends[0])) std::exit(4);
    requestStop(StopReason::displayLost);
    requestStop(StopReason::outOfMemory);
    std::raise(SIGTERM);
    std::exit(stopReason() == StopReason::displayLost ? 0 : 5);
  };
  EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tallowin
