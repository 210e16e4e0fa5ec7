// What every command is given, and what it answers.
#pragma once

#include <memory>
#include <string>

#include "app/session.h"
#include "cli/common_options.h"
#include "cli/console_front_end.h"
#include "cli/exit_status.h"
#include "cli/json_writer.h"

namespace tallowin {

struct CommandContext {
  const CommonOptions& options;
  Session& session;
  ConsoleFrontEnd& ui;
  // The members beside "ok" of the object for scripts; dropped when the command fails.
  JsonWriter& json;
  // Set before the first write of the command can be made.
  bool mayHaveChanged = false;
};

struct [[nodiscard]] CommandResult {
  ExitStatus status = ExitStatus::done;
  Failure code = Error::none;      // of the engine, when it gave one
  std::string message;             // one line: what, why, and what to do next
  std::optional<u32> number = {};  // that is published for it, where that is not the code's

  u32 publishedNumber() const { return number.value_or(codeOf(code)); }

  bool succeeded() const {
    return status == ExitStatus::done || status == ExitStatus::doneWithLosses;
  }
};

inline CommandResult refused(std::string message, Failure code = Error::none) {
  return {ExitStatus::failed, code, std::move(message)};
}

// "what" and what the code means, as one line.
CommandResult failedBecause(const std::string& what, Failure code);

// The end of a flow. What the flow told the user becomes the message; `what` stands in for it.
CommandResult resultOfFlow(const FlowResult& flow, const ConsoleFrontEnd& ui,
                           const std::string& what);

// One command: its members are its own options, which it declares.
class Command {
 public:
  virtual ~Command() = default;
  virtual void declare(OptionSet& options, CommonOptions& common) = 0;
  virtual CommandResult run(CommandContext& context) = 0;
};

}  // namespace tallowin
