#include "cli/commands.h"

namespace tallowin {

std::span<const CommandRow* const> commandRows() {
  static constexpr const CommandRow* kRows[] = {
      &kDevicesCommand,  &kListCommand,    &kInfoCommand,   &kCreateCommand, &kDeleteCommand,
      &kUndeleteCommand, &kFormatCommand,  &kResizeCommand, &kSlideCommand,  &kCopyCommand,
      &kResumeCommand,   &kSetCommand,     &kFilesCommand,  &kLabelCommand,  &kCheckCommand,
      &kMbrCommand,      &kConvertCommand, &kTableCommand,  &kWipeCommand,   &kSettingsCommand,
  };
  return kRows;
}

}  // namespace tallowin
