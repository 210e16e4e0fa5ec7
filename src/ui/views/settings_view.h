// The window of the settings.
#pragma once

#include <memory>
#include <vector>

#include "app/settings_model.h"
#include "ui/views/dialog_view.h"
#include "ui/views/drive_settings_panel.h"

namespace tallowin {

class SettingsView : public DialogView {
 public:
  explicit SettingsView(SettingsModel& model);

 private:
  void read() override;
  void write() override;
  void pressedOther(const Fl_Button& button) override;
  void addBoxes(std::span<const OptionBox> boxes);

  struct Box {
    CheckBox* widget;
    bool Options::*option;
  };

  SettingsModel& model_;
  std::vector<Box> boxes_;
  Fl_Button* otherDrives_ = nullptr;
  std::unique_ptr<DriveSettingsPanel> panel_;
};

}  // namespace tallowin
