// Independent programs as judges of what the engines write.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tallowin {

struct ProgramResult {
  int status = -1;     // exit status; -1 when it could not be started
  std::string output;  // standard output and standard error together
};

// Runs a program without a shell, found along PATH and in the sbin folders. `input` goes to its
// standard input.
ProgramResult runProgram(const std::vector<std::string>& command, const std::string& input = {});
// Starts a program and returns at once; each of our descriptors becomes the program's `theirs`.
// -1 when it could not be started.
struct Redirection {
  int ours;
  int theirs;
};
pid_t startProgram(const std::vector<std::string>& command,
                   const std::vector<Redirection>& redirections);
// All that comes through the descriptor, which is closed, and then the end of the program.
ProgramResult collect(pid_t program, int output);
// A command line at its spaces.
std::vector<std::string> words(const std::string& line);
bool hasProgram(const std::string& name);
bool isRoot();

}  // namespace tallowin
