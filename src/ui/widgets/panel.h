// The small pieces that views are put together from.
#pragma once

#include <FL/Fl_Input.H>

#include <string>

#include "ui/widgets/fields.h"
#include "ui/widgets/labels.h"

namespace tallowin {

// A thin frame with its label above the left corner; widgets made after it lie on it.
Fl_Widget* addFrame(int x, int y, int width, int height, const std::string& label);
// One line of text, made smaller when it does not fit.
TextLabel* addText(int x, int y, int width, int height, const std::string& text,
                   Fl_Align align = FL_ALIGN_LEFT);
CheckBox* addCheckBox(int x, int y, int width, const char* label);
// One of those that are made in the same group.
Fl_Radio_Round_Button* addRadioButton(int x, int y, int width, const char* label);
// Keeps the cursor where it is when the input has the text already.
void setText(Fl_Input& input, const std::string& text);

}  // namespace tallowin
