// The dialog that lists the drives of a bus to edit their settings.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ops/dialog_model.h"

namespace tallowin {

class DriveSettingsListModel final : public DialogModel {
 public:
  using DriveNames = std::function<std::vector<std::string>(std::size_t bus)>;

  // Starts on the bus and with no drive selected; `driveNames` answers for each bus.
  DriveSettingsListModel(std::vector<std::string> busNames, std::size_t firstBus,
                         DriveNames driveNames);

  std::string title = "Drive Settings";
  const std::vector<std::string>& buses() const { return busNames_; }
  std::size_t busIndex = 0;
  const std::vector<std::string>& drives() const { return drives_; }
  std::optional<std::size_t> driveIndex;  // the selected row
  Control editControl;

  void pass() override;
  // The button "Edit" and a double click; the dialog stays open. Does nothing without a selected
  // drive.
  void ok() override;
  std::function<void(std::size_t bus, std::size_t drive)> editDrive;

 private:
  std::vector<std::string> busNames_;
  DriveNames driveNames_;
  std::vector<std::string> drives_;
  std::size_t shownBus_;
};

}  // namespace tallowin
