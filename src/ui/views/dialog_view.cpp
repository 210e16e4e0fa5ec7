#include "ui/views/dialog_view.h"

#include <FL/Fl.H>

#include <cstring>

#include "ui/widgets/event_pump.h"
#include "ui/widgets/layout.h"

namespace tallowin {

using namespace layout;

DialogView::DialogView(DialogModel& model, int width, int height, const std::string& title)
    : model_(model), window_(width, height, title) {
  window_.set_modal();
}

void DialogView::addButtons(const char* ok, const char* cancel, const char* help, int lowerMargin) {
  const int count = 1 + (cancel ? 1 : 0) + (help ? 1 : 0);
  int x = (window_.w() - count * kButtonWidth - (count - 1) * kGap) / 2;
  const auto add = [&](const char* label) {
    auto* button = new Fl_Button(x, window_.h() - lowerMargin - kButtonHeight, kButtonWidth,
                                 kButtonHeight, label);
    button->labelsize(kFontSize);
    window_.watch(button);
    x += kButtonWidth + kGap;
    return button;
  };
  Fl_Button* const first = add(ok);
  setButtons(first, cancel ? add(cancel) : nullptr);
  if (help) window_.setHelpButton(add(help));
}

void DialogView::setButtons(Fl_Button* ok, Fl_Button* cancel) {
  ok_ = ok;
  cancel_ = cancel;
  window_.setAcceptButton(ok_);
  window_.setCancelButton(cancel_ ? cancel_ : ok_);
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
  while (model_.isOpen() && waitForEvents()) {
    read();
    model_.pass();
    write();
    const Fl_Button* pressed = window_.takePressed();
    if (pressed && pressed == ok_)
      model_.ok();
    else if (pressed && pressed == cancel_)
      model_.cancel();
    else if (pressed)
      pressedOther(*pressed);
  }
  if (model_.isOpen()) model_.cancel();
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
