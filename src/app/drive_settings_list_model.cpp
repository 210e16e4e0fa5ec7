#include "app/drive_settings_list_model.h"

namespace tallowin {

DriveSettingsListModel::DriveSettingsListModel(std::vector<std::string> busNames,
                                               std::size_t firstBus, DriveNames driveNames)
    : busIndex(firstBus),
      busNames_(std::move(busNames)),
      driveNames_(std::move(driveNames)),
      drives_(driveNames_(firstBus)),
      shownBus_(firstBus) {
  pass();
}

void DriveSettingsListModel::pass() {
  if (busIndex != shownBus_ && busIndex < busNames_.size()) {
    shownBus_ = busIndex;
    drives_ = driveNames_(busIndex);
    driveIndex.reset();
  }
  if (driveIndex && *driveIndex >= drives_.size()) driveIndex.reset();
  editControl = driveIndex ? Control{} : Control{true, false, "Select a drive first."};
}

void DriveSettingsListModel::ok() {
  pass();
  if (driveIndex && editDrive) editDrive(busIndex, *driveIndex);
}

}  // namespace tallowin
