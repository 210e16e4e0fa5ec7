// The window of a drive's settings.
#pragma once

#include "ui/views/dialog_view.h"
#include "ui/views/drive_settings_panel.h"

namespace tallowin {

class DriveSettingsView : public DialogView {
 public:
  explicit DriveSettingsView(DriveSettingsModel& model);

 private:
  void read() override { panel_.read(model_); }
  void write() override { panel_.write(model_); }

  DriveSettingsModel& model_;
  DriveSettingsPanel panel_;
};

}  // namespace tallowin
