#include "ui/views/drive_settings_panel.h"

#include "ui/views/dialog_view.h"
#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kRow = 19;
constexpr int kInset = 6;
constexpr int kColumn = 118;  // of the second check box in a row
constexpr int kNumberWidth = 66;

// The two frames below their labels, and the rows without a frame. From the panel's upper edge.
constexpr int kGeometryY = 16;
constexpr int kGeometryHeight = 18 + kFieldHeight + 3 * kRow + kInset;
constexpr int kAlignmentY = kGeometryY + kGeometryHeight + 16;
constexpr int kAlignmentHeight = 4 * kRow + kInset;
constexpr int kBelowY = kAlignmentY + kAlignmentHeight + 2;

struct NumberPlace {
  const char* label;
  NumberField DriveSettingsModel::*field;
};
constexpr NumberPlace kNumbers[] = {
    {"&C", &DriveSettingsModel::cylinders},
    {"&H", &DriveSettingsModel::heads},
    {"&S", &DriveSettingsModel::sectors},
};

struct TickPlace {
  const char* label;
  Tick DriveSettingsModel::*tick;
  int x, y, width;
};
constexpr int kTicksY = kGeometryY + 18 + kFieldHeight + 4;
constexpr int kFull = DriveSettingsPanel::kWidth - 2 * kInset;
constexpr int kRest = DriveSettingsPanel::kWidth - kInset - kColumn;
constexpr TickPlace kTickPlaces[] = {
    {"Use &MBR Geometry", &DriveSettingsModel::useMbrGeometry, kInset, kTicksY, kFull},
    {"&Validate MBR Geometry", &DriveSettingsModel::validateMbrGeometry, kInset + 16,
     kTicksY + kRow, kFull - 16},
    {"Use Original &Geometry", &DriveSettingsModel::useOriginalGeometry, kInset, kTicksY + 2 * kRow,
     kFull},
    {"&Align on End", &DriveSettingsModel::alignOnEnd, kInset, kAlignmentY + 3, kColumn - kInset},
    {"Align End By &Resizing", &DriveSettingsModel::alignEndByResizing, kColumn, kAlignmentY + 3,
     kRest},
    {"Align on &1MiB Boundaries", &DriveSettingsModel::align1MiB, kInset, kAlignmentY + 3 + kRow,
     kFull},
    {"Align MBR &Ending HS", &DriveSettingsModel::alignEndHs, kInset, kAlignmentY + 3 + 2 * kRow,
     kFull},
    {"Align MBR HS When &Truncated", &DriveSettingsModel::alignHsOnTruncate, kInset,
     kAlignmentY + 3 + 3 * kRow, kFull},
    {"&Use Global Settings", &DriveSettingsModel::useGlobalSettings, kInset, kBelowY, 138},
    {"Save as &Default", &DriveSettingsModel::saveAsDefault, 152, kBelowY, 120},
    {"&Limit Primaries", &DriveSettingsModel::limitPrimaries, kInset, kBelowY + kRow, kFull},
};

}  // namespace

DriveSettingsPanel::DriveSettingsPanel(int x, int y) {
  static_assert(std::size(kTickPlaces) == kTicks && std::size(kNumbers) == 3);
  static_assert(kBelowY + 2 * kRow <= kHeight);
  addFrame(x, y + kGeometryY, kWidth, kGeometryHeight, "Geometry Override");
  drive_ = addText(x + kInset, y + kGeometryY + 2, kFull, 16, {});
  for (std::size_t i = 0; i < numbers_.size(); ++i) {
    const int left = x + kInset + 18 + static_cast<int>(i) * (kNumberWidth + 26);
    numbers_[i] =
        new NumberInput(left, y + kGeometryY + 20, kNumberWidth, kFieldHeight, kNumbers[i].label);
  }
  addFrame(x, y + kAlignmentY, kWidth, kAlignmentHeight, "Alignment");
  for (std::size_t i = 0; i < kTicks; ++i) {
    const TickPlace& place = kTickPlaces[i];
    ticks_[i] = new CheckBox(x + place.x, y + place.y, place.width, kRow, place.label);
  }
}

void DriveSettingsPanel::read(DriveSettingsModel& model) const {
  for (std::size_t i = 0; i < numbers_.size(); ++i)
    (model.*kNumbers[i].field).type(numbers_[i]->text());
  for (std::size_t i = 0; i < kTicks; ++i)
    (model.*kTickPlaces[i].tick).ticked = ticks_[i]->value() != 0;
}

void DriveSettingsPanel::write(const DriveSettingsModel& model) {
  if (drive_->text() != model.driveLine) drive_->setText(model.driveLine);
  for (std::size_t i = 0; i < numbers_.size(); ++i) {
    numbers_[i]->display(model.*kNumbers[i].field);
    apply(model.geometryControl, *numbers_[i]);
  }
  for (std::size_t i = 0; i < kTicks; ++i) {
    const Tick& tick = model.*kTickPlaces[i].tick;
    ticks_[i]->value(tick.ticked);
    apply(tick.control, *ticks_[i]);
  }
}

void DriveSettingsPanel::disable(const std::string& why) {
  const Control control{true, false, why};
  for (NumberInput* number : numbers_) apply(control, *number);
  for (CheckBox* tick : ticks_) apply(control, *tick);
}

}  // namespace tallowin
