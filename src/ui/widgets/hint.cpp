#include "ui/widgets/hint.h"

#include <FL/Fl.H>
#include <FL/Fl_Menu_Window.H>
#include <FL/Fl_Tooltip.H>
#include <FL/Fl_Window.H>
#include <FL/fl_draw.H>

#include <algorithm>
#include <memory>
#include <string>

#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

constexpr int kWrapWidth = 320;
constexpr int kPadding = 4;

class HintWindow : public Fl_Menu_Window {
 public:
  HintWindow() : Fl_Menu_Window(1, 1) {
    set_override();
    end();
  }

  void showAt(const Fl_Widget& widget) {
    text_ = widget.tooltip();
    int width = kWrapWidth;
    int height = 0;
    fl_font(FL_HELVETICA, layout::kFontSize);
    fl_measure(text_.c_str(), width, height, 0);
    width += 2 * kPadding;
    height += 2 * kPadding;
    int left = widget.window()->x_root() + widget.x();
    int top = widget.window()->y_root() + widget.y() + widget.h() + 2;
    int screenX, screenY, screenWidth, screenHeight;
    Fl::screen_xywh(screenX, screenY, screenWidth, screenHeight, left, top);
    left = std::max(screenX, std::min(left, screenX + screenWidth - width));
    if (top + height > screenY + screenHeight) top -= widget.h() + height + 4;
    resize(left, top, width, height);
    show();
    label(
        text_.c_str());  // never drawn: the window's name, for programs that read the screen aloud
    redraw();
  }

 private:
  void draw() override {
    draw_box(FL_BORDER_BOX, 0, 0, w(), h(), Fl_Tooltip::color());
    fl_color(Fl_Tooltip::textcolor());
    fl_font(FL_HELVETICA, layout::kFontSize);
    fl_draw(text_.c_str(), kPadding, kPadding, w() - 2 * kPadding, h() - 2 * kPadding,
            FL_ALIGN_LEFT | FL_ALIGN_WRAP | FL_ALIGN_INSIDE, nullptr, 0);
  }

  std::string text_;
};

// One mouse, one hint. The window is made when the first one is shown.
struct Hint {
  std::unique_ptr<HintWindow> window;
  const Fl_Widget* waitingFor = nullptr;
};

Hint& hint() {
  static Hint instance;
  return instance;
}

void onHintDue(void*) {
  if (const Fl_Widget* widget = hint().waitingFor) showHint(*widget);
}

// The innermost visible child under the mouse, when it is one that the toolkit passes over.
const Fl_Widget* disabledUnderMouse(const Fl_Group& group) {
  for (int i = group.children() - 1; i >= 0; --i) {
    const Fl_Widget* child = group.child(i);
    if (!child->visible() || !Fl::event_inside(child)) continue;
    if (child->tooltip() && !child->active_r()) return child;
    const Fl_Group* inner = const_cast<Fl_Widget*>(child)->as_group();
    return inner ? disabledUnderMouse(*inner) : nullptr;
  }
  return nullptr;
}

}  // namespace

void hintUnderMouse(Fl_Group& window) {
  const Fl_Widget* widget = Fl::event() == FL_MOVE ? disabledUnderMouse(window) : nullptr;
  if (widget && widget == hint().waitingFor) return;
  hideHint();
  hint().waitingFor = widget;
  if (widget) Fl::add_timeout(layout::kHintDelay, onHintDue);
}

void showHint(const Fl_Widget& widget) {
  if (!widget.tooltip() || !widget.window() || !widget.window()->shown()) return;
  if (!hint().window) hint().window = std::make_unique<HintWindow>();
  hint().window->showAt(widget);
}

void hideHint() {
  Fl::remove_timeout(onHintDue);
  hint().waitingFor = nullptr;
  if (hint().window && hint().window->shown()) hint().window->hide();
}

}  // namespace tallowin
