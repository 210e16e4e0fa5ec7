// Input widgets with the system's keyboard rules.
#pragma once

#include <FL/Fl_Check_Button.H>
#include <FL/Fl_Choice.H>
#include <FL/Fl_Group.H>
#include <FL/Fl_Input.H>
#include <FL/Fl_Int_Input.H>
#include <FL/Fl_Radio_Round_Button.H>
#include <FL/Fl_Repeat_Button.H>

#include <string>
#include <vector>

#include "ops/dialog_model.h"

namespace tallowin {

// A whole number with two arrow buttons. The Up and Down keys step by 1, Page Up and Page Down by
// 100; neither leaves the range. What is typed counts at once.
class NumberInput : public Fl_Group {
 public:
  NumberInput(int x, int y, int width, int height, const char* label);

  // As it was entered.
  std::string text() const { return entry_.value(); }
  // Takes the range, and the text unless it says the same.
  void display(const NumberField& field);

 private:
  class Entry : public Fl_Input {
   public:
    Entry(int x, int y, int width, int height) : Fl_Input(x, y, width, height) {}
    int handle(int event) override;
  };

  static void onArrow(Fl_Widget* button, void* input);
  void step(i64 difference);

  Entry entry_;
  Fl_Repeat_Button up_;
  Fl_Repeat_Button down_;
  NumberField range_;
};

// A text input with a menu of suggestions, which the arrow button and the Down key open.
class MenuInput : public Fl_Group {
 public:
  MenuInput(int x, int y, int width, int height, const char* label);

  void addSuggestion(const std::string& text);
  const char* value() const { return entry_.value(); }
  Fl_Input& input() { return entry_; }

 private:
  class Entry : public Fl_Input {
   public:
    Entry(int x, int y, int width, int height) : Fl_Input(x, y, width, height) {}
    int handle(int event) override;
  };

  static void onArrow(Fl_Widget*, void* input);
  void openMenu();

  Entry entry_;
  Fl_Button arrow_;
  std::vector<std::string> suggestions_;
};

// A menu of choices in which the Up and Down keys choose without opening it. A text that does not
// fit is shortened in its middle.
class ChoiceField : public Fl_Choice {
 public:
  ChoiceField(int x, int y, int width, int height, const char* label);

  // Adds a text as it is, whatever characters it holds.
  void addChoice(const std::string& text);
  void clearChoices();
  int handle(int event) override;

 private:
  void draw() override;

  std::vector<std::string> texts_;
};

// The scheme draws its check boxes round, as radio buttons; this one is square.
class CheckBox : public Fl_Check_Button {
 public:
  CheckBox(int x, int y, int width, int height, const char* label);

 private:
  void draw() override;
};

}  // namespace tallowin
