// The one door to the toolkit's event processing, and the timer that keeps windows painted.
#pragma once

namespace tallowin {

// Both process events with a busy mark set, under which nothing else may process any: event
// processing never nests inside itself. Callbacks of widgets only note what the user did; what
// follows from it is done by whoever called.

// Waits for the next event. One step of a main loop.
void waitForEvents();
// Serves what is pending without waiting. Cheap enough for the callbacks of long operations:
// calls that come within a few milliseconds of the last one do nothing, unless a repaint is due.
void serveEvents();

// While one of these lives, windows are painted (and clicks are noted) every 250 ms also when the
// program sits in a system call of a disk. At any other moment the tick only notes that a repaint
// is due, which the next serveEvents() does.
class RepaintTimer {
 public:
  RepaintTimer();
  ~RepaintTimer();
  RepaintTimer(const RepaintTimer&) = delete;
  RepaintTimer& operator=(const RepaintTimer&) = delete;

  static bool isRunning();
};

}  // namespace tallowin
