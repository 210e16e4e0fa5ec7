#include "support/boot_machine.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <vector>

#include "support/oracle.h"

namespace tallowin {
namespace {

constexpr const char* kEmulator = "qemu-system-i386";
constexpr std::size_t kTextMemory = 0xB8000;
constexpr std::size_t kColumns = 80;
constexpr std::size_t kRows = 25;
constexpr int kLookAgainMilliseconds = 100;
constexpr std::chrono::seconds kLongestWait{180};

}  // namespace

bool BootMachine::isInstalled() { return hasProgram(kEmulator) && hasProgram("timeout"); }

BootMachine::BootMachine(const std::string& imagePath) {
  std::array<int, 2> in{};
  std::array<int, 2> out{};
  if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0) return;
  process_ = startProgram({"timeout", "600", kEmulator, "-no-user-config", "-nodefaults", "-accel",
                           "tcg", "-m", "16", "-display", "none", "-vga", "std", "-drive",
                           "file=" + imagePath + ",format=raw", "-qmp", "stdio"},
                          {{in[0], STDIN_FILENO}, {out[1], STDOUT_FILENO}});
  ::close(in[0]);
  ::close(out[1]);
  toMachine_ = in[1];
  fromMachine_ = out[0];
  execute(R"({"execute":"qmp_capabilities"})");
}

BootMachine::~BootMachine() {
  ::close(toMachine_);
  ::close(fromMachine_);
  if (process_ < 0) return;
  ::kill(process_, SIGTERM);
  ::waitpid(process_, nullptr, 0);
}

bool BootMachine::execute(const std::string& command) {
  const std::string line = command + "\n";
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  const bool sent = ::write(toMachine_, line.data(), line.size()) == std::ssize(line);
  std::signal(SIGPIPE, previous);
  // Between commands the machine tells its events.
  while (sent) {
    for (std::size_t end; (end = received_.find('\n')) != std::string::npos;) {
      const auto answer = nlohmann::json::parse(received_.substr(0, end), nullptr, false);
      received_.erase(0, end + 1);
      if (answer.contains("return")) return true;
      if (answer.contains("error")) return false;
    }
    std::array<char, 4096> piece;
    const ssize_t got = ::read(fromMachine_, piece.data(), piece.size());
    if (got <= 0) return false;
    received_.append(piece.data(), static_cast<std::size_t>(got));
  }
  return false;
}

std::string BootMachine::screen() {
  const nlohmann::json command = {{"execute", "pmemsave"},
                                  {"arguments",
                                   {{"val", kTextMemory},
                                    {"size", kRows * kColumns * 2},
                                    {"filename", folder_.file("screen")}}}};
  if (!execute(command.dump())) return {};
  const std::string cells = folder_.read("screen");
  std::string text;
  for (std::size_t row = 0; row < kRows && (row + 1) * kColumns * 2 <= cells.size(); ++row) {
    std::string line;
    for (std::size_t column = 0; column < kColumns; ++column)
      line += cells[(row * kColumns + column) * 2];
    line.erase(line.find_last_not_of(std::string(" \0", 2)) + 1);
    text += line + "\n";
  }
  return text;
}

bool BootMachine::shows(const std::string& text, int times) {
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (std::chrono::steady_clock::now() < end) {
    const std::string now = screen();
    int found = 0;
    for (std::size_t at = 0; (at = now.find(text, at)) != std::string::npos; ++at) ++found;
    if (found >= times) return true;
    // The machine runs on by itself and tells nothing of its screen.
    ::poll(nullptr, 0, kLookAgainMilliseconds);
  }
  return false;
}

bool BootMachine::press(const std::string& key) {
  const nlohmann::json command = {{"execute", "send-key"},
                                  {"arguments", {{"keys", {{{"type", "qcode"}, {"data", key}}}}}}};
  return execute(command.dump());
}

}  // namespace tallowin
