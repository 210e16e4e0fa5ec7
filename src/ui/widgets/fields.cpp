#include "ui/widgets/fields.h"

#include <FL/Fl.H>
#include <FL/Fl_Menu_Button.H>
#include <FL/fl_draw.H>

#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

using layout::kFontSize;

constexpr int kArrowWidth = 16;
constexpr i64 kPageStep = 100;

// For menus: "/" would open a submenu, "&" mark a letter, "@" draw a symbol.
std::string menuLabel(const std::string& text) {
  std::string label;
  for (const char c : text) {
    if (c == '/' || c == '\\') label += '\\';
    if (c == '&' || c == '@') label += c;
    label += c;
  }
  return label;
}

// The beginning and the end of a text, in the current font, as much as fits; whole characters.
std::string shortened(const std::string& text, int width) {
  if (fl_width(text.c_str()) <= width) return text;
  const auto isInside = [&](std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
  };
  std::string result;
  for (std::size_t kept = text.size() / 2; kept > 0; --kept) {
    std::size_t head = kept;
    std::size_t tail = text.size() - kept;
    while (isInside(head)) --head;
    while (isInside(tail)) ++tail;
    result = text.substr(0, head) + "..." + text.substr(tail);
    if (fl_width(result.c_str()) <= width) break;
  }
  return result;
}

}  // namespace

NumberInput::NumberInput(int x, int y, int width, int height, const char* label)
    : Fl_Group(x, y, width, height, label),
      entry_(x, y, width - kArrowWidth, height),
      up_(x + width - kArrowWidth, y, kArrowWidth, height / 2, "@-42<"),
      down_(x + width - kArrowWidth, y + height / 2, kArrowWidth, height - height / 2, "@-42>") {
  end();
  set_flag(SHORTCUT_LABEL);
  align(FL_ALIGN_LEFT);
  labelsize(kFontSize);
  entry_.textsize(kFontSize);
  for (Fl_Repeat_Button* button : {&up_, &down_}) {
    button->callback(onArrow, this);
    button->clear_visible_focus();
  }
}

void NumberInput::display(const NumberField& field) {
  NumberField shown = field;
  shown.type(text());
  range_ = field;
  // "012" stays while it is typed; what is no number stays until it is one.
  const bool isSame = !shown.typed && !field.typed && shown.value == field.value;
  if (!isSame && field.text() != text()) entry_.value(field.text().c_str());
}

void NumberInput::step(i64 difference) {
  range_.type(text());
  const i64 wanted = static_cast<i64>(range_.value) + difference;
  range_.setValue(wanted < 0 ? 0 : static_cast<u32>(wanted));
  entry_.value(range_.text().c_str());
  do_callback();
}

void NumberInput::onArrow(Fl_Widget* button, void* input) {
  auto& number = *static_cast<NumberInput*>(input);
  number.step(button == &number.up_ ? 1 : -1);
}

int NumberInput::Entry::handle(int event) {
  if (event == FL_KEYBOARD) {
    auto& number = *static_cast<NumberInput*>(parent());
    switch (Fl::event_key()) {
      case FL_Up:
        number.step(1);
        return 1;
      case FL_Down:
        number.step(-1);
        return 1;
      case FL_Page_Up:
        number.step(kPageStep);
        return 1;
      case FL_Page_Down:
        number.step(-kPageStep);
        return 1;
      default:
        break;
    }
  }
  return Fl_Input::handle(event);
}

MenuInput::MenuInput(int x, int y, int width, int height, const char* label)
    : Fl_Group(x, y, width, height, label),
      entry_(x, y, width - height, height),
      arrow_(x + width - height, y, height, height, "@-32>") {
  end();
  set_flag(SHORTCUT_LABEL);
  align(FL_ALIGN_LEFT);
  labelsize(kFontSize);
  entry_.textsize(kFontSize);
  arrow_.callback(onArrow, this);
  arrow_.clear_visible_focus();
}

void MenuInput::addSuggestion(const std::string& text) { suggestions_.push_back(text); }

void MenuInput::onArrow(Fl_Widget*, void* input) { static_cast<MenuInput*>(input)->openMenu(); }

void MenuInput::openMenu() {
  Fl_Menu_Button menu(x(), y(), w(), h());  // only its items are used
  menu.textsize(kFontSize);
  int current = 0;
  for (const std::string& text : suggestions_) {
    if (text == entry_.value()) current = menu.size() ? menu.size() - 1 : 0;
    menu.add(menuLabel(text).c_str());
  }
  if (suggestions_.empty()) return;
  const Fl_Menu_Item* picked =
      menu.menu()->pulldown(x(), y(), w(), h(), menu.menu() + current, &menu);
  entry_.take_focus();
  if (!picked) return;
  entry_.value(suggestions_[static_cast<std::size_t>(picked - menu.menu())].c_str());
  entry_.position(0);
}

int MenuInput::Entry::handle(int event) {
  if (event == FL_KEYBOARD && Fl::event_key() == FL_Down) {
    static_cast<MenuInput*>(parent())->openMenu();
    return 1;
  }
  return Fl_Input::handle(event);
}

ChoiceField::ChoiceField(int x, int y, int width, int height, const char* label)
    : Fl_Choice(x, y, width, height, label) {
  labelsize(kFontSize);
  textsize(kFontSize);
}

void ChoiceField::addChoice(const std::string& text) {
  // add() takes equal texts for one item.
  insert(-1, menuLabel(text).c_str(), 0, nullptr);
  texts_.push_back(text);
}

void ChoiceField::clearChoices() {
  clear();
  texts_.clear();
}

// The toolkit's own drawing would cut the feet of the letters in a low field.
void ChoiceField::draw() {
  constexpr int kPadding = 6;
  constexpr int kArrowHalfWidth = 4;
  draw_box(FL_UP_BOX, color());
  fl_color(active_r() ? labelcolor() : fl_inactive(labelcolor()));
  const int arrowX = x() + w() - kPadding - kArrowHalfWidth;
  const int middle = y() + h() / 2;
  for (const int side : {-1, 1})
    fl_polygon(arrowX - kArrowHalfWidth, middle + side, arrowX + kArrowHalfWidth, middle + side,
               arrowX, middle + side * (kArrowHalfWidth + 1));
  const int textWidth = w() - 3 * kPadding - 2 * kArrowHalfWidth;
  if (value() >= 0 && static_cast<std::size_t>(value()) < texts_.size()) {
    fl_font(textfont(), textsize());
    const std::string text = shortened(texts_[static_cast<std::size_t>(value())], textWidth);
    fl_draw(text.c_str(), x() + kPadding, y(), textWidth, h(), FL_ALIGN_LEFT, nullptr, 0);
  }
  draw_label();
  if (Fl::focus() == this) draw_focus();
}

int ChoiceField::handle(int event) {
  if (event == FL_KEYBOARD && (Fl::event_key() == FL_Up || Fl::event_key() == FL_Down)) {
    const int wanted = value() + (Fl::event_key() == FL_Down ? 1 : -1);
    if (wanted >= 0 && wanted < size() - 1) {
      value(wanted);
      do_callback();
    }
    return 1;
  }
  return Fl_Choice::handle(event);
}

CheckBox::CheckBox(int x, int y, int width, int height, const char* label)
    : Fl_Check_Button(x, y, width, height, label) {
  labelsize(kFontSize);
}

void CheckBox::draw() {
  constexpr int kBoxSize = 13;
  const int left = x() + 2;
  const int top = y() + (h() - kBoxSize) / 2;
  const auto shade = [this](Fl_Color color) { return active_r() ? color : fl_inactive(color); };
  fl_color(shade(FL_WHITE));
  fl_rectf(left, top, kBoxSize, kBoxSize);
  fl_color(shade(FL_DARK3));
  fl_rect(left, top, kBoxSize, kBoxSize);
  if (value()) {
    fl_color(shade(FL_FOREGROUND_COLOR));
    for (int thickness = 0; thickness < 3; ++thickness) {
      const int middle = top + 7 + thickness;
      fl_line(left + 3, middle - 2, left + 5, middle);
      fl_line(left + 5, middle, left + 9, middle - 4);
    }
  }
  const int labelX = left + kBoxSize + layout::kLabelGap;
  draw_label(labelX, y(), x() + w() - labelX, h());
  if (Fl::focus() == this) draw_focus();
}

}  // namespace tallowin
