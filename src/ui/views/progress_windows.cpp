#include "ui/views/progress_windows.h"

#include <FL/Fl.H>

#include <algorithm>

#include "base/stop_request.h"
#include "base/text.h"
#include "ui/views/question_window.h"
#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kBoxPadding = 30;  // what a progress box is wider than its text
constexpr int kMinBoxWidth = 155;
constexpr int kBoxIconSize = 18;
constexpr int kBoxIconGap = 4;

constexpr int kDialogWidth = 380;
constexpr int kDialogTextHeight = 2 * kLineHeight;
constexpr int kBarHeight = 20;
constexpr int kButtonRowHeight = 30;

}  // namespace

ProgressBoxWindow::ProgressBoxWindow(const std::string& title, MessageKind icon,
                                     const std::string& text)
    : window_(1, 1, title) {
  makeIcon(kBoxIconGap, kMargin, kBoxIconSize, iconOf(icon));
  label_ = new TextLabel(0, kMargin, 1, 1, {}, FL_ALIGN_LEFT);
  window_.end();
  ProgressBoxWindow::setText(text);
  window_.showCentred();
  serveEvents();
}

void ProgressBoxWindow::setText(const std::string& text) {
  if (displayIsLost()) return;
  const int maxWidth = Fl::w() - kBoxPadding;
  TextSize needed = measureText(text, 0, kFontSize);
  if (needed.width + kBoxPadding > maxWidth)
    needed = measureText(text, maxWidth - kBoxPadding, kFontSize);
  const int width =
      std::clamp(needed.width + kBoxPadding, kMinBoxWidth, std::max(kMinBoxWidth, maxWidth));
  const int height = std::max(needed.height, kBoxIconSize);
  const int textX = kBoxIconSize + 2 * kBoxIconGap;
  window_.size(width, height + 2 * kMargin);
  label_->resize(textX, kMargin, width - textX, height);
  label_->setText(text);
  window_.redraw();
  Fl::flush();
}

ProgressDialogWindow::ProgressDialogWindow(const std::string& title, const std::string& text,
                                           const std::string& buttonLabel)
    : window_(kDialogWidth, 1, title) {
  const int width = kDialogWidth - 2 * kMargin;
  int y = kMargin;
  label_ = new TextLabel(kMargin, y, width, kDialogTextHeight, text, FL_ALIGN_LEFT | FL_ALIGN_WRAP);
  y += kDialogTextHeight + kLabelGap;
  bar_ = new Fl_Progress(kMargin, y, width, kBarHeight);
  bar_->minimum(0);
  bar_->maximum(100);
  bar_->box(FL_BORDER_BOX);  // the scheme would shade the bar so light that it is lost
  bar_->labelsize(kFontSize);
  bar_->color(FL_WHITE, fl_rgb_color(60, 90, 210));
  y += kBarHeight + kLabelGap;
  details_ = new TextLabel(kMargin, y, width, kLineHeight, {}, FL_ALIGN_LEFT);
  y += kLineHeight + kLabelGap;
  button_ = new Fl_Button((kDialogWidth - kButtonWidth) / 2, y, kButtonWidth, kButtonHeight);
  button_->labelsize(kFontSize);
  window_.watch(button_);
  window_.setCancelButton(button_);
  button_->clear_visible_focus();
  window_.setCloseIsNoted();
  window_.end();
  window_.size(kDialogWidth, y + kButtonRowHeight);
  window_.set_modal();
  ProgressDialogWindow::setProgress(0, {});
  ProgressDialogWindow::setButton(buttonLabel);
  window_.showCentred();
  Fl::flush();
}

void ProgressDialogWindow::setText(const std::string& text) {
  if (!displayIsLost()) label_->setText(text);
}

void ProgressDialogWindow::setProgress(u32 percent, const std::string& details) {
  if (displayIsLost()) return;
  const u32 shown = std::min(percent, 100u);
  const std::string text = format("%u %%", shown);
  if (text != percentText_) {
    percentText_ = text;
    bar_->value(static_cast<float>(shown));
    bar_->label(percentText_.c_str());
  }
  details_->setText(details);
}

void ProgressDialogWindow::setButton(const std::string& label) {
  if (displayIsLost()) return;
  const bool wanted = !label.empty();
  if (wanted) button_->copy_label(label.c_str());
  if (wanted != (button_->visible() != 0)) {
    window_.size(window_.w(), window_.h() + (wanted ? kButtonRowHeight : -kButtonRowHeight));
    if (wanted)
      button_->show();
    else
      button_->hide();
  }
  window_.takePressed();
  window_.takeClosed();
  cancelled_ = false;
}

bool ProgressDialogWindow::isCancelled() {
  serveEvents();
  const bool pressed = window_.takePressed() != nullptr;
  if (window_.takeClosed() || pressed) cancelled_ = true;
  return cancelled_ || stopRequested();
}

void ProgressDialogWindow::waitForClose() {
  setButton("Close");
  if (displayIsLost()) return;
  button_->set_visible_focus();
  button_->take_focus();
  window_.setAcceptButton(button_);
  while (!isCancelled() && waitForEvents()) {
  }
}

}  // namespace tallowin
