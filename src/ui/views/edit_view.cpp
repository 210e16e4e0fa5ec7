#include "ui/views/edit_view.h"

#include <FL/Fl.H>

#include <algorithm>

#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

// It fills the screen but for so much.
constexpr int kBesideWindow = 40;
constexpr int kAboveWindow = 100;
constexpr int kBelowArea = 54;
constexpr int kLeastAreaHeight = 21;
constexpr int kButtonsFromBottom = 34;
constexpr int kButtonWidthHere = 75;
constexpr int kButtonHeightHere = 24;
// From the middle of the window.
constexpr int kOkX = -165;
constexpr int kSaveX = -80;
constexpr int kSaveAsX = 5;
constexpr int kCancelX = 90;

}  // namespace

EditView::EditView(EditModel& model)
    : DialogView(model, Fl::w() - kBesideWindow, Fl::h() - kAboveWindow, model.title),
      model_(model) {
  const int width = window().w(), height = window().h();
  area_ = new TextArea(kMargin, kMargin, width - 2 * kMargin,
                       std::max(height - kBelowArea, kLeastAreaHeight), model.text);
  if (model.isReadOnly) area_->setReadOnly();
  Fl_Button* ok = addButton(kOkX, "OK");
  save_ = addButton(kSaveX, "&Save");
  saveAs_ = addButton(kSaveAsX, "Sa&ve As");
  Fl_Button* cancel = addButton(kCancelX, "Cancel");
  setButtons(ok, cancel);
  const int y = height - kButtonsFromBottom + (kButtonHeightHere - kLineHeight) / 2;
  state_ = addText(kMargin, y, ok->x() - kMargin - kGap, kLineHeight, {});
  const int placeX = cancel->x() + cancel->w() + kGap;
  place_ = addText(placeX, y, width - kMargin - placeX, kLineHeight, {}, FL_ALIGN_RIGHT);
  area_->take_focus();
}

Fl_Button* EditView::addButton(int x, const char* label) {
  auto* button = new Fl_Button(window().w() / 2 + x, window().h() - kButtonsFromBottom,
                               kButtonWidthHere, kButtonHeightHere, label);
  button->labelsize(kFontSize);
  window().watch(button);
  return button;
}

void EditView::read() {
  model_.cursor = static_cast<std::size_t>(area_->insert_position());
  if (area_->takeHelp() && model_.help) model_.help();
}

void EditView::write() {
  apply(model_.saveControl, *save_);
  apply(model_.saveAsControl, *saveAs_);
  window().setTitle(model_.title);
  // A question that was asked leaves the window without one.
  if (window().shown() && !window().contains(Fl::focus())) area_->take_focus();
  if (state_->text() != model_.stateText) state_->setText(model_.stateText);
  if (place_->text() != model_.placeText) place_->setText(model_.placeText);
}

void EditView::pressedOther(const Fl_Button& button) {
  // What came of it was told.
  static_cast<void>(&button == save_ ? model_.save() : model_.saveAs());
  area_->take_focus();
}

}  // namespace tallowin
