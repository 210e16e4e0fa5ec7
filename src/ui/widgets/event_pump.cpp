#include "ui/widgets/event_pump.h"

#include <FL/Fl.H>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>

#include "base/types.h"
#include "disk/disk_device.h"

namespace tallowin {
namespace {

constexpr long kTickNanoseconds = 250'000'000;
constexpr auto kServeInterval = std::chrono::milliseconds(10);

// A signal carries no context, so what its handler needs lives as long as the process.
std::atomic<int> busy{0};
std::atomic<bool> repaintDue{false};
std::atomic<int> timerUsers{0};
timer_t timerId;

class BusyMark {
 public:
  BusyMark() : wasFree_(busy.fetch_add(1) == 0) {}
  ~BusyMark() { busy.fetch_sub(1); }
  BusyMark(const BusyMark&) = delete;
  BusyMark& operator=(const BusyMark&) = delete;

  bool wasFree() const { return wasFree_; }

 private:
  bool wasFree_;
};

// Inside the system call of a disk the interrupted code holds no lock of the toolkit or of
// malloc, and has no half-changed object that a callback could see.
void onTick(int) {
  const int savedErrno = errno;
  const BusyMark mark;
  if (mark.wasFree() && DiskDevice::isInSystemCall())
    Fl::check();
  else
    repaintDue = true;
  errno = savedErrno;
}

}  // namespace

void waitForEvents() {
  const BusyMark mark;
  repaintDue = false;
  Fl::wait();
}

void serveEvents() {
  static auto last = std::chrono::steady_clock::time_point();
  const auto now = std::chrono::steady_clock::now();
  if (!repaintDue.exchange(false) && now - last < kServeInterval) return;
  last = now;
  const BusyMark mark;
  if (mark.wasFree()) Fl::check();
}

RepaintTimer::RepaintTimer() {
  if (timerUsers.fetch_add(1) > 0) return;
  struct sigaction action {};
  action.sa_handler = onTick;
  action.sa_flags = SA_RESTART;  // the disk's call that is interrupted goes on
  sigaction(SIGRTMIN, &action, nullptr);
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGRTMIN;
  // Without a timer windows are painted by serveEvents alone.
  if (timer_create(CLOCK_MONOTONIC, &event, &timerId) != 0) return;
  itimerspec interval{};
  interval.it_interval.tv_nsec = interval.it_value.tv_nsec = kTickNanoseconds;
  timer_settime(timerId, 0, &interval, nullptr);
}

RepaintTimer::~RepaintTimer() {
  if (timerUsers.fetch_sub(1) > 1) return;
  timer_delete(timerId);
  std::signal(SIGRTMIN, SIG_IGN);
  repaintDue = true;
  serveEvents();
}

bool RepaintTimer::isRunning() { return timerUsers > 0; }

}  // namespace tallowin
