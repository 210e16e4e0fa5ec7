#include "support/oracle.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iterator>
#include <sstream>

namespace tallowin {
namespace {

constexpr std::array kFolders = {"/usr/sbin", "/sbin", "/usr/bin", "/bin", "/usr/local/bin"};

std::string findProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) return ::access(name.c_str(), X_OK) == 0 ? name : "";
  for (const char* folder : kFolders) {
    std::string path = std::string(folder) + "/" + name;
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  return {};
}

// Ours, but in the language that the judges are read in.
std::vector<char*> environment() {
  static char language[] = "LC_ALL=C";
  std::vector<char*> variables = {language};
  for (char** variable = environ; *variable != nullptr; ++variable)
    if (!std::string_view(*variable).starts_with("LC_ALL=")) variables.push_back(*variable);
  variables.push_back(nullptr);
  return variables;
}

// Feeds `input` and collects the output until both ends are closed.
std::string exchange(int toProgram, int fromProgram, const std::string& input) {
  std::string output;
  std::size_t sent = 0;
  if (toProgram >= 0) ::fcntl(toProgram, F_SETFL, O_NONBLOCK);
  if (input.empty() && toProgram >= 0) {
    ::close(toProgram);
    toProgram = -1;
  }
  while (true) {
    std::array<pollfd, 2> waits{{{fromProgram, POLLIN, 0}, {toProgram, POLLOUT, 0}}};
    ::poll(waits.data(), waits.size(), -1);
    if (waits[1].revents != 0) {
      const ssize_t wrote = ::write(toProgram, input.data() + sent, input.size() - sent);
      if (wrote > 0) sent += static_cast<std::size_t>(wrote);
      if (wrote <= 0 || sent == input.size()) {
        ::close(toProgram);
        toProgram = -1;
      }
    }
    if (waits[0].revents != 0) {
      std::array<char, 65536> piece;
      const ssize_t got = ::read(fromProgram, piece.data(), piece.size());
      if (got <= 0) break;
      output.append(piece.data(), static_cast<std::size_t>(got));
    }
  }
  if (toProgram >= 0) ::close(toProgram);
  ::close(fromProgram);
  return output;
}

int endOf(pid_t program) {
  int status = 0;
  ::waitpid(program, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

std::vector<std::string> words(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

bool hasProgram(const std::string& name) { return !findProgram(name).empty(); }

bool isRoot() { return ::geteuid() == 0; }

pid_t startProgram(const std::vector<std::string>& command,
                   const std::vector<Redirection>& redirections) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& part : command) arguments.push_back(const_cast<char*>(part.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  for (const auto& [ours, theirs] : redirections)
    ::posix_spawn_file_actions_adddup2(&actions, ours, theirs);
  pid_t program = -1;
  const int failed = ::posix_spawn(&program, findProgram(command.front()).c_str(), &actions,
                                   nullptr, arguments.data(), environment().data());
  ::posix_spawn_file_actions_destroy(&actions);
  return failed == 0 ? program : -1;
}

ProgramResult collect(pid_t program, int output) {
  std::string text = exchange(-1, output, {});
  return {endOf(program), std::move(text)};
}

ProgramResult runProgram(const std::vector<std::string>& command, const std::string& input) {
  if (!hasProgram(command.front())) return {-1, command.front() + " is not installed"};
  std::array<int, 2> in{};
  std::array<int, 2> out{};
  if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0) return {};
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  const pid_t child = startProgram(
      command, {{in[0], STDIN_FILENO}, {out[1], STDOUT_FILENO}, {out[1], STDERR_FILENO}});
  ::close(in[0]);
  ::close(out[1]);
  const std::string output = exchange(in[1], out[0], input);
  std::signal(SIGPIPE, previous);
  return {endOf(child), output};
}

}  // namespace tallowin
