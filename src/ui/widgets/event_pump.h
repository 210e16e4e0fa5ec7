// The one door to the toolkit's event processing.
#pragma once

#include "base/waiting.h"

namespace tallowin {

// Event processing never nests inside itself, and callbacks of widgets only note what the user did;
// what follows from it is done by whoever called.

// Opens the display, and keeps windows painted while the program waits for a disk. One, made before
// the first window.
class EventPump {
 public:
  EventPump();
  ~EventPump();
  EventPump(const EventPump&) = delete;
  EventPump& operator=(const EventPump&) = delete;

 private:
  WaitServer server_;
};

// Waits for the next event. One step of a main loop; false when the program has been asked to stop
// (see base/stop_request.h), whereupon every such loop ends as if its window had been closed.
[[nodiscard]] bool waitForEvents();
// Paints what is due without waiting. What the user does is left for the next waitForEvents(),
// unless a window wants it now. Cheap enough for the callbacks of long operations: calls that come
// within a few milliseconds of the last one do nothing.
void serveEvents();

// While one of these lives, serveEvents() also notes what the user does. Only for a window that is
// modal and has nothing but buttons that are noted.
class InputDuringWork {
 public:
  InputDuringWork();
  ~InputDuringWork();
  InputDuringWork(const InputDuringWork&) = delete;
  InputDuringWork& operator=(const InputDuringWork&) = delete;
};

// The connection to the display is gone: from then on nothing may be shown or changed in a window.
// The stop of the program has been requested.
bool displayIsLost();

}  // namespace tallowin
