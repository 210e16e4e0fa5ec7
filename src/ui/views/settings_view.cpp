#include "ui/views/settings_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/page_tabs.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kTabHeight = 24;
constexpr int kPageWidth = 360;
constexpr int kPageHeight = DriveSettingsPanel::kHeight + kButtonHeight + 2 * kMargin;
constexpr int kTop = kMargin;
constexpr int kPageTop = kTop + kTabHeight;
constexpr int kWidth = kPageWidth + 2 * kMargin;
constexpr int kHeight = kPageTop + kPageHeight + 2 * kMargin + kButtonHeight;
constexpr int kOtherWidth = 100;

}  // namespace

SettingsView::SettingsView(SettingsModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model) {
  auto* tabs = new PageTabs(kMargin, kTop, kPageWidth, kTabHeight + kPageHeight);
  Fl_Group* page = tabs->beginPage("&General");
  addBoxes(generalBoxes());
  page->end();
  page = tabs->beginPage("Global Geometry and &Alignment");
  addBoxes(geometryBoxes());
  page->end();
  page = tabs->beginPage("D&rive Settings");
  panel_ =
      std::make_unique<DriveSettingsPanel>((kWidth - DriveSettingsPanel::kWidth) / 2, kPageTop + 4);
  otherDrives_ =
      new Fl_Button((kWidth - kOtherWidth) / 2, kPageTop + DriveSettingsPanel::kHeight + kMargin,
                    kOtherWidth, kButtonHeight, "&Other Drives");
  otherDrives_->labelsize(kFontSize);
  window().watch(otherDrives_);
  page->end();
  tabs->end();
  addButtons("OK", "Cancel", "Help");
}

void SettingsView::addBoxes(std::span<const OptionBox> boxes) {
  int y = kPageTop + kMargin;
  for (const OptionBox& box : boxes) {
    boxes_.push_back(
        {addCheckBox(2 * kMargin, y, kPageWidth - 2 * kMargin, box.label), box.option});
    y += kFieldHeight + 2;
  }
}

void SettingsView::read() {
  for (const Box& box : boxes_) model_.options.*box.option = box.widget->value() != 0;
  if (model_.drive()) panel_->read(*model_.drive());
}

void SettingsView::write() {
  for (const Box& box : boxes_) box.widget->value(model_.options.*box.option);
  if (model_.drive())
    panel_->write(*model_.drive());
  else
    panel_->disable(model_.whyNoDrive());
}

void SettingsView::pressedOther(const Fl_Button& button) {
  if (&button == otherDrives_)
    model_.editOtherDrives();
  else
    model_.help();
  write();
}

}  // namespace tallowin
