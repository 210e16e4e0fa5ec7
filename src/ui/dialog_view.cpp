#include "ui/dialog_view.h"

#include <FL/Fl.H>

#include <cstring>

#include "ui/event_pump.h"
#include "ui/layout.h"

namespace tallowin {

using namespace layout;

DialogView::DialogView(DialogModel& model, int width, int height, const std::string& title)
    : model_(model), window_(width, height, title) {
  window_.set_modal();
}

void DialogView::addButtons(const char* ok, const char* cancel) {
  const int y = window_.h() - kMargin - kButtonHeight;
  const int width = cancel ? 2 * kButtonWidth + kGap : kButtonWidth;
  const int x = (window_.w() - width) / 2;
  ok_ = new Fl_Button(x, y, kButtonWidth, kButtonHeight, ok);
  ok_->labelsize(kFontSize);
  window_.watch(ok_);
  window_.setAcceptButton(ok_);
  window_.setCancelButton(ok_);
  if (!cancel) return;
  cancel_ = new Fl_Button(x + kButtonWidth + kGap, y, kButtonWidth, kButtonHeight, cancel);
  cancel_->labelsize(kFontSize);
  window_.watch(cancel_);
  window_.setCancelButton(cancel_);
}

void DialogView::startOnCancel() {
  startsOnCancel_ = true;
  window_.setAcceptButton(nullptr);
}

void DialogView::run() {
  window_.end();
  model_.pass();
  write();
  window_.showCentred();
  if (startsOnCancel_) cancel_->take_focus();
  while (model_.isOpen()) {
    waitForEvents();
    read();
    model_.pass();
    write();
    const Fl_Button* pressed = window_.takePressed();
    if (pressed && pressed == ok_)
      model_.ok();
    else if (pressed)
      model_.cancel();
  }
  window_.hide();
}

void apply(const Control& control, Fl_Widget& widget) {
  if (control.shown != (widget.visible() != 0)) control.shown ? widget.show() : widget.hide();
  if (control.enabled != (widget.active() != 0))
    control.enabled ? widget.activate() : widget.deactivate();
  const char* reason = control.enabled ? "" : control.whyDisabled.c_str();
  if (std::strcmp(widget.tooltip() ? widget.tooltip() : "", reason) != 0)
    widget.copy_tooltip(*reason ? reason : nullptr);
}

}  // namespace tallowin
