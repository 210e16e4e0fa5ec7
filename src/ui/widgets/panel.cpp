#include "ui/widgets/panel.h"

#include "ui/widgets/layout.h"

namespace tallowin {

using namespace layout;

Fl_Widget* addFrame(int x, int y, int width, int height, const std::string& label) {
  auto* frame = new Fl_Box(FL_ENGRAVED_FRAME, x, y, width, height, nullptr);
  frame->copy_label(label.c_str());
  frame->labelsize(kFontSize);
  frame->align(FL_ALIGN_TOP_LEFT);
  return frame;
}

TextLabel* addText(int x, int y, int width, int height, const std::string& text, Fl_Align align) {
  auto* label = new TextLabel(x, y, width, height, text, align);
  label->labelsize(fittingSize(text.c_str(), width, kFontSize));
  return label;
}

CheckBox* addCheckBox(int x, int y, int width, const char* label) {
  return new CheckBox(x, y, width, kFieldHeight, label);
}

Fl_Radio_Round_Button* addRadioButton(int x, int y, int width, const char* label) {
  auto* button = new Fl_Radio_Round_Button(x, y, width, layout::kFieldHeight, label);
  button->labelsize(kFontSize);
  return button;
}

void setText(Fl_Input& input, const std::string& text) {
  if (text != input.value()) input.value(text.c_str());
}

}  // namespace tallowin
