// How the thread that owns everything waits for a disk: never longer than a moment at a time.
#pragma once

#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <thread>

#include "base/types.h"

namespace tallowin {

class IoRing;

// While one lives, the waits below that its thread makes are served: no system call takes longer
// than kStepMilliseconds, and `serve` is called between them. It paints and notes what the user
// did; it starts no work and throws nothing. One at a time; made by a front end. Without one, and
// in other threads, the calls below are plain system calls.
class WaitServer {
 public:
  static constexpr u32 kStepMilliseconds = 50;

  explicit WaitServer(std::function<void()> serve);
  ~WaitServer();
  WaitServer(const WaitServer&) = delete;
  WaitServer& operator=(const WaitServer&) = delete;

 private:
  friend class ServedWait;
  class Helper;

  std::function<void()> serve_;
  std::thread::id owner_ = std::this_thread::get_id();
  bool isServing_ = false;
  u64 servedAt_ = 0;                // nanoseconds of the monotonic clock
  std::unique_ptr<Helper> helper_;  // made for the first call that needs it
};

// Like pread(2): may move less than asked for.
i64 waitedRead(int descriptor, void* buffer, std::size_t bytes, u64 offset);
// Like pwritev(2), of `bytes` and then `following`.
i64 waitedWrite(int descriptor, std::span<const u8> bytes, std::span<const u8> following,
                u64 offset);
// Like fsync(2).
int waitedSync(int descriptor);
// For requests that were begun on a ring: the bytes moved, or a negative errno.
i32 waitFor(IoRing& ring, u32 ticket);
// Like nanosleep(2).
void waitedPause(u32 milliseconds);

// Whether a server serves the calling thread.
bool waitsAreServed();
// Runs `call` in the helper thread, which does nothing else, while events are served.
void runInHelper(const std::function<void()>& call);

// Any other system call that may take long, and nothing else: it touches nothing that `serve`
// might. Gives its value, and its errno.
template <typename Call>
auto blockingCall(const Call& call) {
  if (!waitsAreServed()) return call();
  std::optional<decltype(call())> result;
  int errorNumber = errno;
  runInHelper([&] {
    result = call();
    errorNumber = errno;
  });
  errno = errorNumber;
  return *result;
}

}  // namespace tallowin
