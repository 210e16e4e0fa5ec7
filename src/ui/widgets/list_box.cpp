#include "ui/widgets/list_box.h"

#include <FL/Fl.H>

#include <algorithm>

namespace tallowin {

int ListBox::handle(int event) {
  const bool isPlainKey = event == FL_KEYBOARD && !Fl::event_state(FL_ALT | FL_CTRL | FL_META);
  const int line = isPlainKey && size() > 0 ? lineOfKey(Fl::event_key()) : 0;
  if (line == 0) return Fl_Hold_Browser::handle(event);
  select_only(find_line(line), when());
  make_visible(line);
  return 1;
}

int ListBox::lineOfKey(int key) const {
  switch (key) {
    case FL_Home:
      return 1;
    case FL_End:
      return size();
    case FL_Page_Up:
      return std::max(1, value() - linesOfPage());
    case FL_Page_Down:
      return std::min(size(), value() + linesOfPage());
    case FL_Down:
      return value() == 0 ? 1 : 0;
    default:
      return 0;
  }
}

// One line stays in sight from a page to the next.
int ListBox::linesOfPage() const {
  return std::max(1, h() / std::max(1, item_height(find_line(1))) - 1);
}

}  // namespace tallowin
