// The dialog "Settings": general options, global geometry and alignment, and the current drive's
// settings.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>

#include "app/drive_settings_model.h"

namespace tallowin {

// A check box of the two pages of options, in their order.
struct OptionBox {
  const char* label;
  bool Options::*option;
};
std::span<const OptionBox> generalBoxes();
std::span<const OptionBox> geometryBoxes();

class SettingsModel : public DialogModel {
 public:
  // `drive` is null when no drive is open; `whyNoDrive` then says why.
  SettingsModel(const Options& options, std::unique_ptr<DriveSettingsModel> drive,
                std::string whyNoDrive);

  std::string title = "Settings";
  Options options;  // as the two pages show it

  DriveSettingsModel* drive() { return drive_.get(); }
  const std::string& whyNoDrive() const { return whyNoDrive_; }
  // Shows a drive whose record has changed beside the dialog.
  void setDrive(std::unique_ptr<DriveSettingsModel> drive) { drive_ = std::move(drive); }

  void pass() override;
  // Runs `store`; the dialog closes when that answers true, and stays open otherwise.
  void ok() override;
  std::function<bool()> store;
  // The buttons "Help" and "Other Drives".
  std::function<void()> help;
  std::function<void()> editOtherDrives;

 private:
  std::unique_ptr<DriveSettingsModel> drive_;
  std::string whyNoDrive_;
};

// What the dialog shows, copied from one set of options to another; the others stay.
void copyShownOptions(const Options& from, Options& to);

}  // namespace tallowin
