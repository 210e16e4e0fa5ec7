// What every dialog is: a window with one row of buttons and the keyboard rules of the system.
#pragma once

#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>

#include <string>
#include <vector>

namespace tallowin {

// Enter and F10 press the accept button, unless Enter finds the focus on another button; Escape
// and the window manager's close press the cancel button, F1 the help button. Alt with a label's
// underlined letter presses or focuses what the label stands for; when that is disabled its reason
// is shown.
//
// Buttons only note that they were pressed. The owner's loop asks pressed() after each step, so
// that what follows a press never runs inside the toolkit's event processing.
class DialogWindow : public Fl_Double_Window {
 public:
  DialogWindow(int width, int height, const std::string& title);
  ~DialogWindow() override;

  // The buttons belong to the window like all its children.
  void setAcceptButton(Fl_Button* button) { accept_ = button; }
  void setCancelButton(Fl_Button* button) { cancel_ = button; }
  void setHelpButton(Fl_Button* button) { help_ = button; }
  void setTitle(const std::string& title);
  // Makes `button` noted by pressed().
  void watch(Fl_Button* button);

  // Above the window that is in front, as far as the screen allows, else in the middle of it.
  void showCentred();

  // The watched button pressed since the last call, or null.
  Fl_Button* takePressed();
  // Whether the window manager was asked to close the window since the last call. A window with
  // a cancel button has that pressed instead, unless closeIsNoted was set.
  bool takeClosed();
  void setCloseIsNoted() { closeIsNoted_ = true; }

  int handle(int event) override;

 protected:
  // A key that no child wanted, before the rules above. True when it was used.
  virtual bool onKey(int key);

 private:
  void draw() override;
  // A line around the button that Enter presses now.
  void markDefaultButton();
  const Fl_Button* defaultButton() const;
  static void onPressed(Fl_Widget* button, void* window);
  static void onClosed(Fl_Widget* window, void*);

  int handleEvent(int event);
  bool useKey(int key);
  bool useMnemonic();

  std::string title_;
  Fl_Button* accept_ = nullptr;
  const Fl_Button* marked_ = nullptr;
  Fl_Button* cancel_ = nullptr;
  Fl_Button* help_ = nullptr;
  Fl_Button* pressed_ = nullptr;
  bool closed_ = false;
  bool closeIsNoted_ = false;
};

// Presses a button as a click would, when it is enabled and shown.
bool pressButton(Fl_Button* button);

}  // namespace tallowin
