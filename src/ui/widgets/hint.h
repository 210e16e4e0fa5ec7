// Why a control is disabled, shown beside it.
#pragma once

#include <FL/Fl_Widget.H>

namespace tallowin {

// The toolkit shows tooltips of active widgets only, yet it is the disabled one that raises the
// question. Windows hand each mouse event to hintUnderMouse(), which shows the tooltip of a
// disabled child after the mouse has rested on it; showHint() shows it at once, for the keyboard.
void hintUnderMouse(Fl_Group& window);
void showHint(const Fl_Widget& widget);
void hideHint();

}  // namespace tallowin
