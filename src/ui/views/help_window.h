// The viewer of the help file.
#pragma once

#include <FL/Fl_Help_View.H>

#include <string>

#include "ui/widgets/dialog_window.h"

namespace tallowin {

// Stays beside the main window until it is closed; not modal.
class HelpWindow : public DialogWindow {
 public:
  explicit HelpWindow(const std::string& helpFile);

  // Topics are numbered by anchors "##1", "##2", ...
  void showTopic(int topic);
  // Closes the window when its button was pressed. Called once per step of the main loop.
  void pass();

 private:
  bool onKey(int key) override;

  Fl_Help_View* view_;
  Fl_Button* contents_;
};

}  // namespace tallowin
