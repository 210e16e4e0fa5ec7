#include "ui/views/help_window.h"

#include <FL/Fl.H>

#include <filesystem>

#include "base/text.h"
#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 560;
constexpr int kHeight = 480;

}  // namespace

HelpWindow::HelpWindow(const std::string& helpFile)
    : DialogWindow(kWidth, kHeight, "Tallowin Help") {
  const int buttonY = kHeight - kMargin - kButtonHeight;
  view_ = new Fl_Help_View(kMargin, kMargin, kWidth - 2 * kMargin, buttonY - kGap - kMargin);
  view_->textfont(FL_HELVETICA);
  view_->textsize(kFontSize);
  std::error_code failure;
  if (std::filesystem::exists(helpFile, failure)) {
    view_->load(helpFile.c_str());
  } else {
    view_->value(format("<P>The help file %s is missing. It belongs beside the program.</P>",
                        helpFile.c_str())
                     .c_str());
  }
  contents_ = new Fl_Button(kMargin, buttonY, kButtonWidth, kButtonHeight, "C&ontents");
  auto* close = new Fl_Button(kWidth - kMargin - kButtonWidth, buttonY, kButtonWidth, kButtonHeight,
                              "&Close");
  for (Fl_Button* button : {contents_, close}) {
    button->labelsize(kFontSize);
    watch(button);
  }
  setAcceptButton(close);
  setCancelButton(close);
  end();
  resizable(view_);
  size_range(kWidth / 2, kHeight / 2);
}

void HelpWindow::showTopic(int topic) {
  if (!shown()) showCentred();
  show();
  view_->topline(format("##%d", topic).c_str());
}

bool HelpWindow::onKey(int key) {
  if (key != FL_F + 1) return false;
  view_->topline(0);
  return true;
}

void HelpWindow::pass() {
  const Fl_Button* pressed = takePressed();
  if (pressed == contents_)
    view_->topline(0);
  else if (pressed)
    hide();
}

}  // namespace tallowin
