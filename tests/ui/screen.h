// A display of the test's own, and a person in front of it.
#pragma once

#include <string>
#include <vector>

namespace tallowin {

// A child process; ended by its id when it still runs.
class ChildProcess {
 public:
  // Its standard output can be read with `output`.
  explicit ChildProcess(const std::vector<std::string>& command);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Waits for its end. All that it wrote; `status` receives its exit status, -1 after a signal
  // or when it has not ended within the time limit.
  std::string output(int& status);
  bool runs();
  int id() const { return id_; }

 private:
  int id_ = -1;
  int pipe_ = -1;
};

// Xvfb on a free display with a small window manager, ended with the object.
class Screen {
 public:
  // Why there cannot be one on this machine; empty when there can.
  static std::string whyMissing();

  Screen();
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Waits until a window with this title is in front and keys go to it. After keys or a click it is
  // another one than they were meant for. Its id, or nothing after half a minute.
  std::string waitFor(const std::string& title);
  // The program has ended; windows of the next one may have the same ids.
  void forget();
  // Waits until any window, one without a frame too, has this title.
  bool waitUntilSeen(const std::string& title);
  // Waits until no window has this title.
  bool waitUntilGone(const std::string& title);
  // Keys for the window that was waited for last, by their X names, separated by blanks, as in
  // "Tab alt+s 1 Return".
  void press(const std::string& keys);
  void type(const std::string& text);
  // In pixels from the window's upper left corner; with a key held, by its X name.
  void click(const std::string& window, int x, int y, const std::string& held = {});
  // Moves the mouse without a click.
  void point(const std::string& window, int x, int y);
  // Width and height.
  std::pair<int, int> size(const std::string& window);

 private:
  void waitForFocus();

  int server_ = -1;
  int manager_ = -1;
  std::string front_;  // the window that was waited for last
  std::string left_;   // it, once keys or a click were sent; empty before
};

}  // namespace tallowin
