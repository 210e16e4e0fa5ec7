#include "ui/widgets/event_pump.h"

#include <FL/Fl.H>
#include <FL/x.H>
#include <poll.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>

#include "base/stop_request.h"

namespace tallowin {
namespace {

constexpr auto kServeInterval = std::chrono::milliseconds(10);
constexpr double kBeatSeconds = 0.5;

// The toolkit has one event loop, and so has this file.
int busy = 0;
int inputWanted = 0;
bool isLost = false;

class BusyMark {
 public:
  BusyMark() : wasFree_(busy++ == 0) {}
  ~BusyMark() { --busy; }
  BusyMark(const BusyMark&) = delete;
  BusyMark& operator=(const BusyMark&) = delete;

  bool wasFree() const { return wasFree_; }

 private:
  bool wasFree_;
};

void noteLostDisplay() {
  isLost = true;
  requestStop(StopReason::displayLost);
}

// Asked before every step, so that the toolkit hardly ever meets a connection that is gone. Where
// it does, its library comes here instead of ending the program, and its calls do nothing then.
bool isDisplayThere() {
  if (isLost) return false;
  pollfd connection = {ConnectionNumber(fl_display), POLLIN | POLLRDHUP, 0};
  const bool isAnswered = ::poll(&connection, 1, 0) == 1;
  if (isAnswered && (connection.revents & (POLLHUP | POLLRDHUP | POLLERR | POLLNVAL)) != 0)
    noteLostDisplay();
  return !isLost;
}

// Both would end the program otherwise: the toolkit's in place of the first, the library's in place
// of the second, which follows it.
int onDisplayError(Display*) { return 0; }
void onLostDisplay(Display*, void*) { noteLostDisplay(); }

// An open menu has a loop of its own inside the toolkit, which only a key ends.
void leaveMenu() {
  if (Fl::grab() == nullptr) return;
  Fl::e_keysym = FL_Escape;
  Fl::handle(FL_KEYBOARD, Fl::grab());
}

// Ends the toolkit's waits now and then, for a signal that came just before one began.
void onBeat(void*) {
  if (stopRequested() || !isDisplayThere()) leaveMenu();
  Fl::repeat_timeout(kBeatSeconds, onBeat);
}

Bool isPainting(Display*, XEvent* event, XPointer) {
  switch (event->type) {
    case Expose:
    case GraphicsExpose:
    case ConfigureNotify:
    case MapNotify:
    case UnmapNotify:
    case ReparentNotify:
      return True;
    default:
      return False;
  }
}

void paint() {
  XEvent event;
  while (XCheckIfEvent(fl_display, &event, isPainting, nullptr) != 0) fl_handle(event);
  Fl::flush();
}

}  // namespace

EventPump::EventPump() : server_(serveEvents) {
  // The display's library writes to a null pointer when its buffer is full and the connection gone.
  // All that one round of painting asks for fits into this one.
  ::setenv("XLIBBUFFERSIZE", "1048576", 0);
  fl_open_display();
  XSetIOErrorHandler(onDisplayError);
  XSetIOErrorExitHandler(fl_display, onLostDisplay, nullptr);
  std::signal(SIGPIPE, SIG_IGN);  // a display that is gone is an error of the call that met it
  Fl::add_timeout(kBeatSeconds, onBeat);
}

EventPump::~EventPump() { Fl::remove_timeout(onBeat); }

bool waitForEvents() {
  if (!isDisplayThere() || stopRequested()) return false;
  const BusyMark mark;
  Fl::wait();
  return !stopRequested();
}

void serveEvents() {
  static auto last = std::chrono::steady_clock::time_point();
  const auto now = std::chrono::steady_clock::now();
  if (now - last < kServeInterval || !isDisplayThere()) return;
  last = now;
  const BusyMark mark;
  if (!mark.wasFree()) return;
  try {
    if (inputWanted > 0)
      Fl::check();
    else
      paint();
  } catch (const std::bad_alloc&) {
    // What is under way cannot be left in its middle.
    requestStop(StopReason::outOfMemory);
  }
}

InputDuringWork::InputDuringWork() { ++inputWanted; }
InputDuringWork::~InputDuringWork() { --inputWanted; }

bool displayIsLost() { return isLost; }

}  // namespace tallowin
