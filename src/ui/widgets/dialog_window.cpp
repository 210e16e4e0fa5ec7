#include "ui/widgets/dialog_window.h"

#include <FL/Fl.H>
#include <FL/Fl_Check_Button.H>
#include <FL/Fl_Text_Editor.H>
#include <FL/fl_draw.H>

#include <algorithm>

#include "ui/widgets/hint.h"

namespace tallowin {
namespace {

const Fl_Color kDefaultMarkColor = fl_rgb_color(40, 60, 160);

// Buttons that Enter presses when they have the focus; a check box leaves Enter to the window.
Fl_Button* focusedPushButton() {
  auto* button = dynamic_cast<Fl_Button*>(Fl::focus());
  return button && button->type() == FL_NORMAL_BUTTON ? button : nullptr;
}

bool takesFocusWithin(Fl_Widget& widget) {
  Fl_Group* group = widget.as_group();
  return (group ? group->take_focus() : widget.take_focus()) != 0;
}

// Every visible child with the pressed letter underlined, in the order of the Tab key.
void addMatches(Fl_Group& group, std::vector<Fl_Widget*>& matches) {
  for (int index = 0; index < group.children(); ++index) {
    Fl_Widget& child = *group.child(index);
    if (!child.visible()) continue;
    if (child.label() && Fl_Widget::test_shortcut(child.label(), true)) matches.push_back(&child);
    if (Fl_Group* inner = child.as_group()) addMatches(*inner, matches);
  }
}

}  // namespace

bool pressButton(Fl_Button* button) {
  if (!button || !button->active_r() || !button->visible_r()) return false;
  button->do_callback();
  return true;
}

DialogWindow::DialogWindow(int width, int height, const std::string& title)
    : Fl_Double_Window(width, height), title_(title) {
  label(title_.c_str());
  callback(onClosed);
}

DialogWindow::~DialogWindow() { hideHint(); }

void DialogWindow::setTitle(const std::string& title) {
  if (title == title_) return;
  title_ = title;
  label(title_.c_str());
}

void DialogWindow::watch(Fl_Button* button) { button->callback(onPressed, this); }

void DialogWindow::onPressed(Fl_Widget* button, void* window) {
  static_cast<DialogWindow*>(window)->pressed_ = static_cast<Fl_Button*>(button);
}

void DialogWindow::onClosed(Fl_Widget* widget, void*) {
  auto& window = *static_cast<DialogWindow*>(widget);
  // The toolkit sends an Escape that nobody wanted here as well.
  if (Fl::event() == FL_SHORTCUT) return;
  if (window.closeIsNoted_ || !pressButton(window.cancel_)) window.closed_ = true;
}

Fl_Button* DialogWindow::takePressed() {
  Fl_Button* button = pressed_;
  pressed_ = nullptr;
  return button;
}

bool DialogWindow::takeClosed() {
  const bool closed = closed_;
  closed_ = false;
  return closed;
}

void DialogWindow::showCentred() {
  const Fl_Window* front = Fl::modal() ? Fl::modal() : Fl::first_window();
  int areaX, areaY, areaWidth, areaHeight;
  if (front)
    Fl::screen_work_area(areaX, areaY, areaWidth, areaHeight, front->x(), front->y());
  else
    Fl::screen_work_area(areaX, areaY, areaWidth, areaHeight);
  int left = areaX + (areaWidth - w()) / 2;
  int top = areaY + (areaHeight - h()) / 2;
  if (front) {
    left = front->x() + (front->w() - w()) / 2;
    top = front->y() + (front->h() - h()) / 2;
  }
  // Whole on the screen, its upper left corner at least.
  left = std::max(areaX, std::min(left, areaX + areaWidth - w()));
  top = std::max(areaY, std::min(top, areaY + areaHeight - h()));
  position(left, top);
  show();
}

bool DialogWindow::onKey(int) { return false; }

bool DialogWindow::useKey(int key) {
  if (onKey(key)) return true;
  switch (key) {
    case FL_Enter:
    case FL_KP_Enter:
      if (Fl_Button* button = focusedPushButton()) return pressButton(button);
      return pressButton(accept_);
    case FL_F + 10:
      return pressButton(accept_);
    case FL_Escape:
      return pressButton(cancel_);
    case FL_F + 1:
      return pressButton(help_);
    default:
      return false;
  }
}

bool DialogWindow::useMnemonic() {
  std::vector<Fl_Widget*> matches;
  addMatches(*this, matches);
  // Of two with the same letter, the one behind the focus is meant.
  const auto focused = std::find_if(matches.begin(), matches.end(), [](const Fl_Widget* widget) {
    return Fl::focus() && (widget == Fl::focus() || widget->contains(Fl::focus()));
  });
  if (focused != matches.end()) std::rotate(matches.begin(), focused + 1, matches.end());
  for (Fl_Widget* widget : matches)
    if (widget->active_r() && takesFocusWithin(*widget)) return true;
  if (!matches.empty()) showHint(*matches.front());
  return !matches.empty();
}

const Fl_Button* DialogWindow::defaultButton() const {
  // There Enter ends a line.
  if (dynamic_cast<Fl_Text_Editor*>(Fl::focus())) return nullptr;
  const Fl_Button* focused = focusedPushButton();
  const Fl_Button* button = focused && contains(focused) ? focused : accept_;
  return button && button->active_r() && button->visible_r() ? button : nullptr;
}

void DialogWindow::markDefaultButton() {
  const Fl_Button* button = defaultButton();
  if (button == marked_) return;
  for (const Fl_Button* changed : {marked_, button})
    if (changed)
      damage(FL_DAMAGE_EXPOSE, changed->x() - 1, changed->y() - 1, changed->w() + 2,
             changed->h() + 2);
  marked_ = button;
}

void DialogWindow::draw() {
  Fl_Double_Window::draw();
  marked_ = defaultButton();
  if (!marked_) return;
  fl_color(kDefaultMarkColor);
  fl_rect(marked_->x() - 1, marked_->y() - 1, marked_->w() + 2, marked_->h() + 2);
}

int DialogWindow::handle(int event) {
  const int used = handleEvent(event);
  markDefaultButton();
  return used;
}

int DialogWindow::handleEvent(int event) {
  switch (event) {
    case FL_MOVE:
    case FL_LEAVE:
    case FL_PUSH:
      hintUnderMouse(*this);
      break;
    case FL_HIDE:
      hideHint();
      break;
    case FL_KEYBOARD:
      hideHint();
      if (useKey(Fl::event_key())) return 1;
      break;
    case FL_SHORTCUT:
      if (Fl_Double_Window::handle(event)) return 1;
      // A key reaches the window this way when nothing in it has the focus.
      return useMnemonic() || (!Fl::focus() && useKey(Fl::event_key()));
    default:
      break;
  }
  return Fl_Double_Window::handle(event);
}

}  // namespace tallowin
