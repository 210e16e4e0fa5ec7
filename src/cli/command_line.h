// The command line, parsed as far as no disk is needed.
#pragma once

#include "cli/commands.h"

namespace tallowin {

// Either a command to run, or a text to print and the status to end with.
struct ParsedCommandLine {
  const CommandRow* row = nullptr;
  std::unique_ptr<Command> command;  // with its own options
  CommonOptions options;
  std::string text;  // without a command: help or version, or what is wrong with the usage
  ExitStatus status = ExitStatus::done;
};

// `words` are the arguments of main without the program's name. Only the command that is asked for
// is made and declared, which keeps the start short.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& words);

}  // namespace tallowin
