#include "base/waiting.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <mutex>
#include <system_error>

#include "base/io_ring.h"

namespace tallowin {
namespace {

// What one request copies from or to the page cache must not take longer than a step.
constexpr std::size_t kMaxPiece = 4 * kMiB;
constexpr auto kStep = std::chrono::milliseconds(WaitServer::kStepMilliseconds);

WaitServer* current = nullptr;

u64 now() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<u64>(time.tv_sec) * 1'000'000'000 + static_cast<u64>(time.tv_nsec);
}

// All signals blocked for the life of the object; a thread that is made meanwhile inherits that.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

std::array<iovec, 2> vectorsOf(std::span<const u8> bytes, std::span<const u8> following) {
  return {{{const_cast<u8*>(bytes.data()), bytes.size()},
           {const_cast<u8*>(following.data()), following.size()}}};
}

// What the ring says of an operation or a file that it cannot do; the plain call can.
bool isBeyondRing(i32 result) {
  return result == -EAGAIN || result == -EINVAL || result == -EOPNOTSUPP || result == -EINTR;
}

}  // namespace

// The thread for calls that the ring lacks.
class WaitServer::Helper {
 public:
  ~Helper() {
    {
      const std::lock_guard lock(mutex_);
      ends_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
  }

  // False when there is no thread to be had.
  bool isThere() {
    if (thread_.joinable()) return true;
    const SignalsBlocked blocked;
    try {
      thread_ = std::thread([this] { work(); });
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  }

  void start(const std::function<void()>& call) {
    {
      const std::lock_guard lock(mutex_);
      call_ = &call;
    }
    changed_.notify_all();
  }
  bool isDoneWithin(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, time, [this] { return call_ == nullptr; });
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return ends_ || call_ != nullptr; });
      if (call_ == nullptr) return;
      const auto& call = *call_;
      lock.unlock();
      call();
      lock.lock();
      call_ = nullptr;
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  const std::function<void()>* call_ = nullptr;  // under way, else null
  bool ends_ = false;
  std::thread thread_;
};

// The door to the server of the calling thread.
class ServedWait {
 public:
  // Null where waits are not served: without a server, in another thread, and while it serves.
  static WaitServer* server() {
    const bool isOwner = current != nullptr && current->owner_ == std::this_thread::get_id();
    return isOwner && !current->isServing_ ? current : nullptr;
  }

  static void serve(WaitServer& server) noexcept {
    server.isServing_ = true;
    server.serve_();
    server.isServing_ = false;
    server.servedAt_ = now();
  }
  // Many short waits starve a window as well as one long one does.
  static void serveWhenDue(WaitServer& server) {
    constexpr u64 kEvery = u64{WaitServer::kStepMilliseconds} * 1'000'000;
    if (now() - server.servedAt_ >= kEvery) serve(server);
  }

  static void inHelper(WaitServer& server, const std::function<void()>& call) {
    if (!server.helper_) server.helper_ = std::make_unique<WaitServer::Helper>();
    if (!server.helper_->isThere()) return call();
    server.helper_->start(call);
    while (!server.helper_->isDoneWithin(kStep)) serve(server);
    serveWhenDue(server);
  }
};

WaitServer::WaitServer(std::function<void()> serve) : serve_(std::move(serve)), servedAt_(now()) {
  current = this;
}

WaitServer::~WaitServer() { current = nullptr; }

bool waitsAreServed() { return ServedWait::server() != nullptr; }

void runInHelper(const std::function<void()>& call) {
  if (WaitServer* const server = ServedWait::server())
    ServedWait::inHelper(*server, call);
  else
    call();
}

i32 waitFor(IoRing& ring, u32 ticket) {
  WaitServer* const server = ServedWait::server();
  if (server == nullptr) return *ring.wait(ticket, std::nullopt);
  std::optional<i32> result = ring.wait(ticket, WaitServer::kStepMilliseconds);
  for (; !result; result = ring.wait(ticket, WaitServer::kStepMilliseconds))
    ServedWait::serve(*server);
  ServedWait::serveWhenDue(*server);
  return *result;
}

namespace {

// The result of a request in the manner of a system call; nothing when the ring cannot do it.
// `submit` gives a ticket.
template <typename Submit>
std::optional<i64> throughRing(const Submit& submit) {
  IoRing* const ring = ServedWait::server() != nullptr ? IoRing::shared() : nullptr;
  if (ring == nullptr) return std::nullopt;
  const std::optional<u32> ticket = submit(*ring);
  if (!ticket) return std::nullopt;
  const i32 result = waitFor(*ring, *ticket);
  if (isBeyondRing(result)) return std::nullopt;
  if (result >= 0) return result;
  errno = -result;
  return -1;
}

}  // namespace

i64 waitedRead(int descriptor, void* buffer, std::size_t bytes, u64 offset) {
  const auto piece = static_cast<u32>(std::min(bytes, kMaxPiece));
  const auto moved =
      throughRing([&](IoRing& ring) { return ring.read(descriptor, buffer, piece, offset); });
  if (moved) return *moved;
  return blockingCall(
      [&]() -> i64 { return ::pread(descriptor, buffer, bytes, static_cast<off_t>(offset)); });
}

i64 waitedWrite(int descriptor, std::span<const u8> bytes, std::span<const u8> following,
                u64 offset) {
  const auto first = bytes.first(std::min(bytes.size(), kMaxPiece));
  const auto second = first.size() == bytes.size()
                          ? following.first(std::min(following.size(), kMaxPiece - first.size()))
                          : std::span<const u8>();
  const auto moved = throughRing([&](IoRing& ring) {
    const auto parts = vectorsOf(first, second);
    return ring.write(descriptor, std::span(parts).first(second.empty() ? 1 : 2), offset);
  });
  if (moved) return *moved;
  return blockingCall([&]() -> i64 {
    const auto parts = vectorsOf(bytes, following);
    return ::pwritev(descriptor, parts.data(), static_cast<int>(parts.size()),
                     static_cast<off_t>(offset));
  });
}

int waitedSync(int descriptor) {
  const auto done = throughRing([&](IoRing& ring) { return ring.sync(descriptor); });
  if (done) return static_cast<int>(*done);
  return blockingCall([&] { return ::fsync(descriptor); });
}

void waitedPause(u32 milliseconds) {
  while (milliseconds != 0) {
    WaitServer* const server = ServedWait::server();
    const u32 step =
        server != nullptr ? std::min(milliseconds, WaitServer::kStepMilliseconds) : milliseconds;
    const timespec duration{step / 1000, i64{step % 1000} * 1'000'000};
    ::nanosleep(&duration, nullptr);
    if (server != nullptr) ServedWait::serve(*server);
    milliseconds -= step;
  }
}

}  // namespace tallowin
