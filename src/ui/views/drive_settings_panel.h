// The controls of a drive's settings, for a dialog of their own and for a page of another.
#pragma once

#include <array>

#include "app/drive_settings_model.h"
#include "ui/widgets/fields.h"
#include "ui/widgets/labels.h"

namespace tallowin {

// The widgets belong to the group that was open when they were made.
class DriveSettingsPanel {
 public:
  static constexpr int kWidth = 280;
  static constexpr int kHeight = 258;

  DriveSettingsPanel(int x, int y);

  void read(DriveSettingsModel& model) const;
  void write(const DriveSettingsModel& model);
  // Greys everything, with the reason.
  void disable(const std::string& why);

 private:
  static constexpr std::size_t kTicks = 11;

  TextLabel* drive_;
  std::array<NumberInput*, 3> numbers_{};
  std::array<CheckBox*, kTicks> ticks_{};
};

}  // namespace tallowin
