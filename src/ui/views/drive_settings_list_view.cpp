#include "ui/views/drive_settings_list_view.h"

#include <FL/Fl.H>

#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 378;
constexpr int kHeight = 176;
constexpr int kFieldX = 65;
constexpr int kFieldWidth = kWidth - kMargin - kFieldX;
constexpr int kListY = kMargin + kFieldHeight + kGap;
constexpr int kListHeight = kHeight - kListY - kGap - kButtonHeight - kMargin;

// With an underlined letter in its label.
class DriveList : public ListBox {
 public:
  DriveList(int x, int y, int width, int height, const char* label)
      : ListBox(x, y, width, height, label) {
    set_flag(SHORTCUT_LABEL);
    align(FL_ALIGN_LEFT_TOP);
    labelsize(kFontSize);
    textsize(kFontSize);
    format_char(0);  // names may hold any character
  }
};

}  // namespace

DriveSettingsListView::DriveSettingsListView(DriveSettingsListModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model) {
  bus_ = new ChoiceField(kFieldX, kMargin, kFieldWidth, kFieldHeight, "B&us:");
  for (const std::string& bus : model.buses()) bus_->addChoice(bus);
  bus_->value(static_cast<int>(model.busIndex));
  drives_ = new DriveList(kFieldX, kListY, kFieldWidth, kListHeight, "&Drives:");
  drives_->callback(onList, this);
  addButtons("&Edit", "Close");
}

void DriveSettingsListView::onList(Fl_Widget*, void* data) {
  if (Fl::event() != FL_RELEASE || Fl::event_clicks() == 0) return;
  Fl::event_clicks(0);
  pressButton(&static_cast<DriveSettingsListView*>(data)->okButton());
}

void DriveSettingsListView::read() {
  if (bus_->value() >= 0) model_.busIndex = static_cast<std::size_t>(bus_->value());
  const int line = drives_->value();
  model_.driveIndex = line > 0 ? std::optional(static_cast<std::size_t>(line - 1)) : std::nullopt;
}

void DriveSettingsListView::write() {
  if (shown_ != model_.drives()) {
    shown_ = model_.drives();
    drives_->clear();
    for (const std::string& name : shown_) drives_->add(name.c_str());
  }
  const int line = model_.driveIndex ? static_cast<int>(*model_.driveIndex) + 1 : 0;
  if (drives_->value() != line) drives_->value(line);
  apply(model_.editControl, okButton());
}

}  // namespace tallowin
