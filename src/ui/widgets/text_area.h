// The field in which a file is edited.
#pragma once

#include <FL/Fl_Text_Buffer.H>
#include <FL/Fl_Text_Editor.H>

#include <string>

#include "ops/edit_text.h"

namespace tallowin {

// Tells each change to the text that it shows, which also knows how to take it back: Ctrl+Z, and
// Ctrl+Y or Ctrl+Shift+Z. Tab writes a tab. Escape, F10 and keys with Alt are left to the window.
class TextArea : public Fl_Text_Editor {
 public:
  // The text lives as long as this.
  TextArea(int x, int y, int width, int height, EditText& text);
  ~TextArea() override;

  void setReadOnly() { isReadOnly_ = true; }
  // Whether F1 was pressed since the last call.
  bool takeHelp();
  int handle(int event) override;

 private:
  static void onModified(int position, int inserted, int deleted, int restyled,
                         const char* deletedText, void* area);
  bool useKey();
  void paste();
  void apply(const std::optional<EditText::Change>& change);

  EditText& text_;
  Fl_Text_Buffer shown_;
  bool isReadOnly_ = false;
  bool isApplying_ = false;  // the text has the change already
  bool helpWanted_ = false;
};

}  // namespace tallowin
