#include "ui/views/drive_settings_view.h"

#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

constexpr int kWidth = 300;
constexpr int kHeight = 305;

}  // namespace

DriveSettingsView::DriveSettingsView(DriveSettingsModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model), panel_(layout::kMargin, 6) {
  addButtons("OK", "Cancel");
}

}  // namespace tallowin
