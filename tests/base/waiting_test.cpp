#include "base/waiting.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/stop_request.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr int kServed = 3;

// A pipe into which the server writes when it has been called a few times: whoever reads it from
// the thread of the server waits for ever unless that is called.
class WaitingTest : public testing::Test {
 protected:
  WaitingTest() { EXPECT_EQ(::pipe2(ends_.data(), O_CLOEXEC), 0); }
  ~WaitingTest() override {
    for (const int end : ends_) ::close(end);
  }

  void serve() {
    EXPECT_EQ(std::this_thread::get_id(), owner_);
    if (++served_ != kServed) return;
    EXPECT_EQ(::write(ends_[1], "data", 4), 4);
  }

  std::array<int, 2> ends_{};
  std::thread::id owner_ = std::this_thread::get_id();
  int served_ = 0;
};

TEST_F(WaitingTest, ARequestAndACallThatBlockAreServedMeanwhile) {
  const WaitServer server([this] { serve(); });
  std::array<char, 16> buffer{};
  // The plain call refuses a pipe, so this one went through the ring.
  const i64 moved = waitedRead(ends_[0], buffer.data(), buffer.size(), 0);
  if (moved < 0 && errno == ESPIPE) GTEST_SKIP() << "needs io_uring";
  EXPECT_EQ(moved, 4);
  EXPECT_GE(served_, kServed);

  served_ = 0;
  std::thread::id where;
  const ssize_t got = blockingCall([&] {
    where = std::this_thread::get_id();
    return ::read(ends_[0], buffer.data(), buffer.size());
  });
  EXPECT_EQ(got, 4);
  EXPECT_GE(served_, kServed);
  EXPECT_NE(where, owner_);
}

TEST_F(WaitingTest, WhatIsCalledWhileServingIsNotServedAgain) {
  int depth = 0;
  const WaitServer server([&] {
    EXPECT_EQ(++depth, 1);
    EXPECT_FALSE(waitsAreServed());
    waitedPause(1);
    EXPECT_EQ(blockingCall([] { return std::this_thread::get_id(); }), owner_);
    --depth;
    ++served_;
  });
  waitedPause(WaitServer::kStepMilliseconds * 2 + 1);
  EXPECT_EQ(served_, 3);
  // Short waits one after the other are served as well, when together they were a long one.
  for (int call = 0; call < 100 && served_ == 3; ++call)
    blockingCall([] { return ::usleep(2000); });
  EXPECT_EQ(served_, 4);
}

TEST_F(WaitingTest, CallsAreThoseOfTheSystemWithAndWithoutAServer) {
  TempFolder folder;
  const std::string path = folder.sparse("file", 0);
  for (const bool isServed : {false, true}) {
    std::optional<WaitServer> server;
    if (isServed) server.emplace([] {});
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    std::vector<u8> bytes(5 * kMiB + 10, 7);
    bytes.back() = 9;
    const std::span<const u8> all(bytes);
    u64 written = 0;
    while (written < bytes.size()) {
      const auto rest = all.subspan(written);
      const i64 moved =
          waitedWrite(file, rest.first(rest.size() / 2), rest.subspan(rest.size() / 2), written);
      ASSERT_GT(moved, 0);
      written += static_cast<u64>(moved);
    }
    EXPECT_EQ(waitedSync(file), 0);
    std::array<u8, 20> end{};
    EXPECT_EQ(waitedRead(file, end.data(), end.size(), bytes.size() - 10), 10);
    EXPECT_EQ(end[8], 7);
    EXPECT_EQ(end[9], 9);
    EXPECT_EQ(waitedRead(file, end.data(), end.size(), bytes.size()), 0);
    ::close(file);
    errno = 0;
    EXPECT_EQ(waitedRead(file, end.data(), end.size(), 0), -1);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_EQ(waitedSync(file), -1);
    EXPECT_EQ(errno, EBADF);
    const int result = blockingCall([] {
      errno = ENOSPC;
      return -1;
    });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, ENOSPC);
  }
}

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
