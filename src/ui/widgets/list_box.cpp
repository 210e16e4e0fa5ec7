#include "ui/widgets/list_box.h"

#include <FL/Fl.H>
#include <FL/fl_draw.H>

#include <algorithm>
#include <utility>

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

ColumnList::ColumnList(int x, int y, int width, int height, std::span<const ListColumn> columns)
    : ListBox(x, y, width, height), columns_(columns) {
  format_char(0);
  has_scrollbar(VERTICAL);
}

void ColumnList::clearRows() {
  clear();
  rows_.clear();
}

void ColumnList::addRow(std::vector<std::string> cells) {
  // The cells are drawn here. The toolkit measures its own text, and reads behind the end of an
  // empty one.
  add(" ");
  rows_.push_back(std::move(cells));
}

void ColumnList::setRow(std::size_t row, std::vector<std::string> cells) {
  if (rows_[row] == cells) return;
  rows_[row] = std::move(cells);
  redraw_line(find_line(static_cast<int>(row) + 1));
}

void ColumnList::item_draw(void* item, int x, int y, int width, int height) const {
  constexpr int kPadding = 3;
  const std::vector<std::string>& cells = rows_[static_cast<std::size_t>(lineno(item) - 1)];
  fl_font(textfont(), textsize());
  int left = x;
  for (std::size_t i = 0; i < columns_.size() && i < cells.size(); ++i) {
    const ListColumn& column = columns_[i];
    const int columnWidth = column.width > 0 ? column.width : std::max(0, x + width - left);
    fl_color(item_selected(item) ? fl_contrast(column.color, selection_color()) : column.color);
    fl_push_clip(left, y, columnWidth, height);
    fl_draw(cells[i].c_str(), left + kPadding, y, columnWidth - 2 * kPadding, height, column.align,
            nullptr, 0);
    fl_pop_clip();
    left += columnWidth;
  }
}

bool TickList::takeTick() { return std::exchange(isTicked_, false); }

int TickList::handle(int event) {
  const int used = ColumnList::handle(event);
  const bool isSpace = event == FL_KEYBOARD && Fl::event_key() == ' ' &&
                       !Fl::event_state(FL_ALT | FL_CTRL | FL_META);
  const bool isOnBox = event == FL_PUSH && Fl::event_x() < x() + kBoxWidth;
  const bool isSecond = event == FL_PUSH && Fl::event_clicks() != 0;
  if (!isSpace && !isOnBox && !isSecond) return used;
  isTicked_ = value() != 0;
  return 1;
}

}  // namespace tallowin
