#include "ui/widgets/labels.h"

#include <FL/Fl_Window.H>
#include <FL/fl_draw.H>

#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

constexpr int kButtonPadding = 6;

int labelWidth(const char* text, Fl_Fontsize size) {
  fl_font(FL_HELVETICA, size);
  int width = 0;
  int height = 0;
  fl_draw_shortcut = 1;  // "&" marks a letter and takes no room
  fl_measure(text, width, height, 0);
  fl_draw_shortcut = 0;
  return width;
}

}  // namespace

TextLabel::TextLabel(int x, int y, int width, int height, const std::string& text, Fl_Align align)
    : Fl_Box(x, y, width, height), text_(text) {
  Fl_Box::align(align | FL_ALIGN_INSIDE);
  labelsize(layout::kFontSize);
}

void TextLabel::setText(const std::string& text) {
  if (text == text_) return;
  text_ = text;
  // Having no box of its own, it has the window draw what lies behind it.
  if (window()) window()->damage(FL_DAMAGE_EXPOSE, x(), y(), w(), h());
}

void TextLabel::draw() {
  fl_font(labelfont(), labelsize());
  fl_color(active_r() ? labelcolor() : fl_inactive(labelcolor()));
  fl_push_clip(x(), y(), w(), h());
  fl_draw(text_.c_str(), x(), y(), w(), h(), align(), nullptr, 0);
  fl_pop_clip();
}

TextSize measureText(const std::string& text, int wrapWidth, Fl_Fontsize size) {
  fl_font(FL_HELVETICA, size);
  TextSize result{wrapWidth, 0};
  fl_measure(text.c_str(), result.width, result.height, 0);
  return result;
}

Fl_Fontsize fittingSize(const char* text, int width, Fl_Fontsize size) {
  while (size > layout::kSmallestFontSize && labelWidth(text, size) > width) --size;
  return size;
}

void fitLabel(Fl_Widget& widget, Fl_Fontsize size) {
  widget.labelsize(fittingSize(widget.label(), widget.w() - kButtonPadding, size));
}

}  // namespace tallowin
