// A list of lines of which one is selected.
#pragma once

#include <FL/Fl_Hold_Browser.H>

namespace tallowin {

// Up, Down, Home, End, Page Up and Page Down move the selection; the first Down selects the first
// line, which the toolkit's own list skips.
class ListBox : public Fl_Hold_Browser {
 public:
  ListBox(int x, int y, int width, int height, const char* label = nullptr)
      : Fl_Hold_Browser(x, y, width, height, label) {}

  int handle(int event) override;

 private:
  // 0: the toolkit moves the selection.
  int lineOfKey(int key) const;
  int linesOfPage() const;
};

}  // namespace tallowin
