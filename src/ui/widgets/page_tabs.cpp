#include "ui/widgets/page_tabs.h"

#include <FL/Fl.H>

#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

constexpr int kTabHeight = 24;

// A control that its owner answers for: a disabled one, or one whose label stands beside it.
bool isMeant(const Fl_Group& page) {
  for (int index = 0; index < page.children(); ++index) {
    const Fl_Widget& child = *page.child(index);
    if (child.visible() && child.label() && Fl_Widget::test_shortcut(child.label(), true))
      return true;
  }
  return false;
}

}  // namespace

PageTabs::PageTabs(int x, int y, int width, int height) : Fl_Tabs(x, y, width, height) {}

Fl_Group* PageTabs::beginPage(const char* label) {
  auto* page = new Fl_Group(x(), y() + kTabHeight, w(), h() - kTabHeight, label);
  page->labelsize(layout::kFontSize);
  return page;
}

bool PageTabs::showNext(int step) {
  const int count = children();
  const int now = find(value());
  if (now >= count) return false;
  value(child((now + step + count) % count));
  take_focus();
  return true;
}

int PageTabs::handle(int event) {
  if (event == FL_SHORTCUT) {
    // Past the tabs' own rule on purpose: the page comes first.
    // NOLINTNEXTLINE(bugprone-parent-virtual-call)
    if (Fl_Group::handle(event)) return 1;
    if (const auto* page = value() ? value()->as_group() : nullptr; page && isMeant(*page))
      return 0;
  }
  if (event == FL_KEYBOARD && Fl::event_state(FL_CTRL)) {
    switch (Fl::event_key()) {
      case FL_Tab:
        return showNext(Fl::event_state(FL_SHIFT) ? -1 : 1);
      case FL_Page_Down:
        return showNext(1);
      case FL_Page_Up:
        return showNext(-1);
      default:
        break;
    }
  }
  return Fl_Tabs::handle(event);
}

}  // namespace tallowin
