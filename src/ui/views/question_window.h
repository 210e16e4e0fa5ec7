// The window behind message, text-input and choice boxes: an icon, a text, perhaps a field,
// buttons.
#pragma once

#include <FL/Fl_Input.H>

#include <optional>
#include <string>
#include <vector>

#include "ops/front_end.h"
#include "ui/widgets/dialog_window.h"

namespace tallowin {

struct Icon {
  char letter = 0;
  Fl_Color color = FL_BLACK;
};
// The letter and colour of a kind; a question mark, in that colour, when it asks Yes or No.
Icon iconOf(MessageKind kind, bool asksYesOrNo = false);
// A white plate with a thin raised frame.
Fl_Widget* makeIcon(int x, int y, int size, Icon icon);

struct Question {
  std::string title;
  std::optional<Icon> icon;
  std::string text;
  std::vector<std::string> buttons;  // left to right, "&" before the letter for Alt
  std::size_t focusIndex = 0;
  std::optional<std::size_t> escapeIndex;  // pressed by Escape
};

class QuestionWindow : public DialogWindow {
 public:
  explicit QuestionWindow(const Question& question, const TextInput* input = nullptr);

  // Modal. The index of the pressed button, or nothing when the window was closed without one.
  std::optional<std::size_t> ask();
  std::string inputText() const { return input_ ? input_->value() : ""; }

 private:
  void addText(const std::string& text, int x, int width, int height);
  void addButtons(const Question& question, int y);

  std::vector<Fl_Button*> buttons_;
  Fl_Input* input_ = nullptr;
  std::size_t focusIndex_;
};

MessageResult showMessageBox(const MessageBox& box);
bool showTextInput(TextInput& input);
std::size_t showChoiceBox(const ChoiceBox& box);

}  // namespace tallowin
