// What the buttons "Settings" and "Drive Settings" start.
#pragma once

#include <functional>
#include <string>

#include "app/session.h"
#include "base/error.h"
#include "ops/front_end.h"
#include "ptable/drive.h"

namespace tallowin {

struct SettingsContext {
  Session& session;
  FrontEnd& ui;
  // Limits the primaries of an EMBR drive to the four slots of the MBR, or lifts the limit.
  std::function<Failure(Drive& drive, bool on)> limitPrimaries;
  std::function<void(int topic)> showHelp;
};

inline constexpr int kSettingsHelpTopic = 11;

// The editor of a drive's settings. True when OK was pressed: the record is changed, and the drive
// is to be opened again to work by it.
bool editDriveSettings(const SettingsContext& context, Drive& drive);

// The list of the drives with "Edit". True when the settings of one were changed.
bool editSettingsOfDrives(const SettingsContext& context, std::size_t firstBus);

// The dialog "Settings"; `drive` is the current one or null, and `whyNoDrive` then says why. True
// when something was changed: the current drive is to be opened again. Options that came from
// the command line or the environment are not written to the file.
bool editSettings(const SettingsContext& context, Drive* drive, const std::string& whyNoDrive);

}  // namespace tallowin
