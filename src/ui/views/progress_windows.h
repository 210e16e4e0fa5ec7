// The windows that stay while work goes on. Once the display is lost their calls do nothing.
#pragma once

#include <FL/Fl_Progress.H>

#include <memory>
#include <string>

#include "ops/front_end.h"
#include "ui/widgets/dialog_window.h"
#include "ui/widgets/event_pump.h"
#include "ui/widgets/labels.h"

namespace tallowin {

// A text, perhaps with a small icon, as wide as the text needs. Not modal. A kind that is not
// listed shows no icon.
class ProgressBoxWindow : public ProgressBox {
 public:
  ProgressBoxWindow(const std::string& title, MessageKind icon, const std::string& text);
  void setText(const std::string& text) override;

 private:
  DialogWindow window_;
  TextLabel* label_ = nullptr;
};

// A text above a bar, a line of details below it, and perhaps a button, which a click, its letter,
// Escape and the window manager press: Enter, meant for whatever stood there before, does not.
// Modal, so that nothing else can be started meanwhile.
class ProgressDialogWindow : public ProgressDialog {
 public:
  ProgressDialogWindow(const std::string& title, const std::string& text,
                       const std::string& buttonLabel);
  void setText(const std::string& text) override;
  void setProgress(u32 percent, const std::string& details) override;
  void setButton(const std::string& label) override;
  bool isCancelled() override;
  void waitForClose() override;

 private:
  InputDuringWork input_;
  DialogWindow window_;
  TextLabel* label_;
  Fl_Progress* bar_;
  TextLabel* details_;
  Fl_Button* button_;
  std::string percentText_;
  bool cancelled_ = false;
};

}  // namespace tallowin
