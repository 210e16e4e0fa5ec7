#include "ui/widgets/text_area.h"

#include <FL/Fl.H>

#include <utility>

#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

// Keys that move, or copy.
bool leavesTextAlone(int key, bool isControl) {
  if (isControl && (key == 'c' || key == 'a' || key == FL_Insert)) return true;
  return key == FL_Home || key == FL_End || (key >= FL_Left && key <= FL_Down) ||
         key == FL_Page_Up || key == FL_Page_Down;
}

bool isForWindow(int key) { return key == FL_Escape || (key > FL_F && key <= FL_F_Last); }

}  // namespace

TextArea::TextArea(int x, int y, int width, int height, EditText& text)
    : Fl_Text_Editor(x, y, width, height), text_(text) {
  shown_.canUndo(0);
  shown_.text(text_.text().c_str());
  buffer(&shown_);
  shown_.add_modify_callback(onModified, this);
  textfont(FL_COURIER);
  textsize(layout::kFontSize);
  // The display refuses to draw a line of some ten thousand characters, and ends the program.
  wrap_mode(WRAP_AT_BOUNDS, 0);
}

TextArea::~TextArea() { buffer(nullptr); }

bool TextArea::takeHelp() { return std::exchange(helpWanted_, false); }

void TextArea::onModified(int position, int inserted, int deleted, int, const char*, void* data) {
  auto& area = *static_cast<TextArea*>(data);
  if (area.isApplying_ || (inserted == 0 && deleted == 0)) return;
  const auto at = static_cast<std::size_t>(position);
  std::string added;
  for (int i = position; i < position + inserted; ++i) added += area.shown_.byte_at(i);
  area.text_.change(at, static_cast<std::size_t>(deleted), added);
}

void TextArea::apply(const std::optional<EditText::Change>& change) {
  if (!change) return;
  const int start = static_cast<int>(change->position);
  const int end = start + static_cast<int>(change->removed);
  isApplying_ = true;
  shown_.replace(start, end, change->inserted.c_str());
  isApplying_ = false;
  insert_position(start + static_cast<int>(change->inserted.size()));
  show_insert_position();
}

void TextArea::paste() {
  const auto length = static_cast<std::size_t>(Fl::event_length());
  const std::string text = pastedText({Fl::event_text(), length});
  shown_.remove_selection();
  insert(text.c_str());
  show_insert_position();
}

bool TextArea::useKey() {
  const int key = Fl::event_key();
  const bool isControl = Fl::event_state(FL_CTRL) != 0;
  if (isReadOnly_) return !leavesTextAlone(key, isControl);
  if (!isControl || Fl::event_state(FL_ALT) != 0) return false;
  if (key != 'z' && key != 'y') return false;
  apply(key == 'y' || Fl::event_state(FL_SHIFT) != 0 ? text_.redo() : text_.undo());
  return true;
}

int TextArea::handle(int event) {
  switch (event) {
    case FL_KEYBOARD:
    case FL_SHORTCUT:
      if (Fl::event_key() == FL_F + 1) {
        helpWanted_ = true;
        return 1;
      }
      if (event == FL_SHORTCUT) return 0;
      if (isForWindow(Fl::event_key()) || Fl::event_state(FL_ALT | FL_META) != 0) return 0;
      if (isReadOnly_ && Fl::event_key() == FL_Tab) return 0;
      if (useKey()) return 1;
      break;
    case FL_PASTE:
      if (!isReadOnly_ && Fl::event_text() != nullptr) paste();
      return 1;
    default:
      break;
  }
  return Fl_Text_Editor::handle(event);
}

}  // namespace tallowin
