// The window of one dialog model.
#pragma once

#include "ops/dialog_model.h"
#include "ui/widgets/dialog_window.h"
#include "ui/widgets/layout.h"

namespace tallowin {

// Binds widgets to the fields of a model and holds no rule. A derived class makes its widgets in
// its constructor; read() copies what the user entered into the model and write() shows what the
// model's pass made of it.
class DialogView {
 public:
  virtual ~DialogView() = default;
  DialogView(const DialogView&) = delete;
  DialogView& operator=(const DialogView&) = delete;

  // Modal, until the model is closed: one read, pass and write a step of the main loop, then
  // what a pressed button asks for.
  void run();

 protected:
  DialogView(DialogModel& model, int width, int height, const std::string& title);

  virtual void read() = 0;
  virtual void write() = 0;

  DialogWindow& window() { return window_; }
  // A watched button that is neither OK nor Cancel.
  virtual void pressedOther(const Fl_Button&) {}
  // Makes a row of buttons at the lower edge: one (`cancel` null), two, or three with `help`.
  // Enter and F10 press OK; Escape presses Cancel, or OK where there is none; F1 presses Help.
  void addButtons(const char* ok, const char* cancel, const char* help = nullptr,
                  int lowerMargin = layout::kMargin);
  // For a row of buttons that is made elsewhere; the same keys press them. Both are watched.
  void setButtons(Fl_Button* ok, Fl_Button* cancel);
  Fl_Button& okButton() { return *ok_; }
  // For destructive dialogs: the focus starts on the last button, and the first one is pressed
  // only on purpose.
  void startOnCancel();

 private:
  DialogModel& model_;
  DialogWindow window_;
  Fl_Button* ok_ = nullptr;
  Fl_Button* cancel_ = nullptr;
  bool startsOnCancel_ = false;
};

// Shows or hides a widget, enables it or makes its tooltip the reason why not. Nothing is drawn
// again when nothing changed.
void apply(const Control& control, Fl_Widget& widget);

}  // namespace tallowin
