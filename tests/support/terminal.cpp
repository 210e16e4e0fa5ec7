#include "support/terminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>

namespace tallowin {
namespace {

constexpr std::chrono::seconds kPatience{120};

}  // namespace

Terminal::Terminal(const std::vector<std::string>& command, unsigned short columns) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& part : command) arguments.push_back(const_cast<char*>(part.c_str()));
  arguments.push_back(nullptr);
  const winsize size{.ws_row = 25, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
  program_ = ::forkpty(&terminal_, nullptr, nullptr, &size);
  if (program_ != 0) return;
  ::execvp(arguments[0], arguments.data());
  ::_exit(127);
}

Terminal::~Terminal() {
  if (program_ > 0) {
    ::kill(program_, SIGKILL);
    ::waitpid(program_, nullptr, 0);
  }
  if (terminal_ >= 0) ::close(terminal_);
}

bool Terminal::readMore(int timeoutMilliseconds) {
  pollfd wait{terminal_, POLLIN, 0};
  if (::poll(&wait, 1, timeoutMilliseconds) != 1) return false;
  std::array<char, 4096> piece;
  const ssize_t got = ::read(terminal_, piece.data(), piece.size());
  ended_ = got <= 0;
  if (ended_) return false;
  shown_.append(piece.data(), static_cast<std::size_t>(got));
  return true;
}

bool Terminal::waitFor(const std::string& text) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (shown_.find(text) == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0 || !readMore(static_cast<int>(left.count()))) return false;
  }
  return true;
}

void Terminal::type(const std::string& keys) {
  for (std::size_t sent = 0; sent < keys.size();) {
    const ssize_t wrote = ::write(terminal_, keys.data() + sent, keys.size() - sent);
    if (wrote <= 0) return;
    sent += static_cast<std::size_t>(wrote);
  }
}

ProgramResult Terminal::finish() {
  while (readMore(static_cast<int>(std::chrono::milliseconds(kPatience).count()))) {
  }
  ProgramResult result;
  result.output = shown_;
  if (program_ > 0 && !ended_) ::kill(program_, SIGKILL);
  int status = 0;
  ::waitpid(program_, &status, 0);
  program_ = -1;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

}  // namespace tallowin
