#include "ui/screen.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <thread>

#include "support/oracle.h"

namespace tallowin {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(120);  // for a machine that is busy
constexpr auto kPollInterval = std::chrono::milliseconds(20);

bool waitUntil(const std::function<bool()>& condition) {
  const auto end = Clock::now() + kPatience;
  while (!condition()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
  return true;
}

void end(int id) {
  if (id <= 0) return;
  kill(id, SIGTERM);
  waitpid(id, nullptr, 0);
}

bool isSeen(const std::string& title) {
  return runProgram({"xdotool", "search", "--onlyvisible", "--name", "^" + title + "$"}).status ==
         0;
}

// The first line that an xdotool command prints; empty when it fails.
std::string ask(std::vector<std::string> command) {
  command.insert(command.begin(), "xdotool");
  const ProgramResult result = runProgram(command);
  return result.status == 0 ? result.output.substr(0, result.output.find('\n')) : std::string();
}

// The window that the server sends keys to. What the window manager calls active may be gone, and
// a new program may have been given its number.
std::string focusedWindow() { return ask({"getwindowfocus", "-f"}); }

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  id_ = startProgram(command, {{ends[1], STDOUT_FILENO}});
  close(ends[1]);
  pipe_ = ends[0];
}

ChildProcess::~ChildProcess() {
  end(id_);
  close(pipe_);
}

bool ChildProcess::runs() { return id_ > 0 && waitpid(id_, nullptr, WNOHANG) == 0; }

std::string ChildProcess::output(int& status) {
  std::string text;
  status = -1;
  const auto limit = Clock::now() + kPatience;
  while (Clock::now() < limit) {
    pollfd readable{pipe_, POLLIN, 0};
    if (poll(&readable, 1, 100) == 0) continue;
    char buffer[512];
    const ssize_t count = read(pipe_, buffer, sizeof buffer);
    if (count > 0) {
      text.append(buffer, static_cast<std::size_t>(count));
      continue;
    }
    int ended = 0;
    waitpid(id_, &ended, 0);
    id_ = -1;
    if (WIFEXITED(ended)) status = WEXITSTATUS(ended);
    break;
  }
  return text;
}

std::string Screen::whyMissing() {
  for (const char* program : {"Xvfb", "xdotool", "openbox"})
    if (!hasProgram(program)) return std::string(program) + " is not installed";
  return {};
}

Screen::Screen() {
  constexpr int kNumberFd = 9;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  // Without -noreset it starts anew, and turns clients away, whenever its last client leaves.
  server_ = startProgram({"Xvfb", "-displayfd", std::to_string(kNumberFd), "-screen", "0",
                          "1024x768x24", "-nolisten", "tcp", "-nocursor", "-noreset"},
                         {{ends[1], kNumberFd}});
  close(ends[1]);
  std::string number;
  char digit = 0;
  while (read(ends[0], &digit, 1) == 1 && digit != '\n') number += digit;
  close(ends[0]);
  setenv("DISPLAY", (":" + number).c_str(), 1);
  // The font library keeps what it loaded until the end of the process.
  setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
  manager_ = startProgram({"openbox", "--sm-disable"}, {});
  waitUntil([] { return runProgram({"xdotool", "get_desktop"}).status == 0; });
}

Screen::~Screen() {
  end(manager_);
  end(server_);
}

std::string Screen::waitFor(const std::string& title) {
  const bool found = waitUntil([&] {
    const std::string window = ask({"getactivewindow"});
    if (window.empty() || window == left_ || focusedWindow() != window) return false;
    front_ = window;
    return ask({"getwindowname", window}) == title;
  });
  if (!found) front_.clear();
  left_.clear();
  return front_;
}

void Screen::forget() {
  front_.clear();
  left_.clear();
}

void Screen::waitForFocus() {
  EXPECT_TRUE(waitUntil([&] { return !front_.empty() && focusedWindow() == front_; }))
      << "the window is not in front any more";
  left_ = front_;
}

bool Screen::waitUntilSeen(const std::string& title) {
  return waitUntil([&] { return isSeen(title); });
}

bool Screen::waitUntilGone(const std::string& title) {
  return waitUntil([&] { return !isSeen(title); });
}

void Screen::press(const std::string& keys) {
  waitForFocus();
  std::vector<std::string> command = {"xdotool", "key", "--delay", "30"};
  std::istringstream words(keys);
  for (std::string key; words >> key;) command.push_back(key);
  runProgram(command);
}

void Screen::type(const std::string& text) {
  waitForFocus();
  runProgram({"xdotool", "type", "--delay", "20", text});
}

void Screen::point(const std::string& window, int x, int y) {
  runProgram({"xdotool", "mousemove", "--window", window, std::to_string(x), std::to_string(y)});
}

void Screen::click(const std::string& window, int x, int y, const std::string& held) {
  left_ = window;
  std::vector<std::string> command = {"xdotool",         "mousemove",       "--window", window,
                                      std::to_string(x), std::to_string(y), "click",    "1"};
  if (!held.empty()) {
    command.insert(command.begin() + 1, {"keydown", held});
    command.insert(command.end(), {"keyup", held});
  }
  runProgram(command);
}

std::pair<int, int> Screen::size(const std::string& window) {
  const std::string text = runProgram({"xdotool", "getwindowgeometry", "--shell", window}).output;
  const auto value = [&](const std::string& name) {
    const std::size_t at = text.find(name + "=");
    return at == std::string::npos ? 0 : std::atoi(text.c_str() + at + name.size() + 1);
  };
  return {value("WIDTH"), value("HEIGHT")};
}

}  // namespace tallowin
