// Pages of controls behind tabs.
#pragma once

#include <FL/Fl_Tabs.H>

namespace tallowin {

// Alt with an underlined letter means a control of the page that is shown before it means another
// page. Ctrl+Tab, Ctrl+Page Down and, with Shift or with Page Up, the other way: the next page.
class PageTabs : public Fl_Tabs {
 public:
  PageTabs(int x, int y, int width, int height);

  // What is made until the end() of the page lies on it.
  Fl_Group* beginPage(const char* label);
  int handle(int event) override;

 private:
  bool showNext(int step);
};

}  // namespace tallowin
