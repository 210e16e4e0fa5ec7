// The commands of the program: one row each, defined beside what the command does.
#pragma once

#include <span>

#include "cli/command.h"

namespace tallowin {

struct CommandRow {
  std::string_view name;
  const char* summary;
  std::unique_ptr<Command> (*make)();
  bool looksForDevices = false;  // it works on all drives of the machine, and on no target
};

template <typename Made>
std::unique_ptr<Command> makeCommand() {
  return std::make_unique<Made>();
}

extern const CommandRow kDevicesCommand;
extern const CommandRow kListCommand;
extern const CommandRow kInfoCommand;
extern const CommandRow kCreateCommand;
extern const CommandRow kDeleteCommand;
extern const CommandRow kUndeleteCommand;
extern const CommandRow kFormatCommand;
extern const CommandRow kResumeCommand;
extern const CommandRow kSetCommand;
extern const CommandRow kResizeCommand;
extern const CommandRow kSlideCommand;
extern const CommandRow kCopyCommand;
extern const CommandRow kFilesCommand;
extern const CommandRow kLabelCommand;
extern const CommandRow kMbrCommand;
extern const CommandRow kCheckCommand;
extern const CommandRow kConvertCommand;
extern const CommandRow kTableCommand;
extern const CommandRow kWipeCommand;
extern const CommandRow kSettingsCommand;

// In the order in which --help names them.
std::span<const CommandRow* const> commandRows();

}  // namespace tallowin
