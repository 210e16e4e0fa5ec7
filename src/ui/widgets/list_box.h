// A list of lines of which one is selected.
#pragma once

#include <FL/Fl_Hold_Browser.H>

#include <span>
#include <string>
#include <vector>

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

// One column of a list. Texts are shown as they are, cut where the column ends.
struct ListColumn {
  int width = 0;  // pixels; of the last column 0: the rest
  Fl_Align align = FL_ALIGN_LEFT;
  Fl_Color color = FL_FOREGROUND_COLOR;
};

// A list of rows of cells.
class ColumnList : public ListBox {
 public:
  // The columns live as long as the list.
  ColumnList(int x, int y, int width, int height, std::span<const ListColumn> columns);

  void clearRows();
  void addRow(std::vector<std::string> cells);
  // Other cells for a row, from 0; nothing is drawn again when they are the same.
  void setRow(std::size_t row, std::vector<std::string> cells);

 private:
  void item_draw(void* item, int x, int y, int width, int height) const override;

  std::span<const ListColumn> columns_;
  std::vector<std::vector<std::string>> rows_;
};

// A list whose rows are ticked: by Space, a double click, or a click on the first column.
class TickList : public ColumnList {
 public:
  TickList(int x, int y, int width, int height, std::span<const ListColumn> columns)
      : ColumnList(x, y, width, height, columns) {
    set_flag(SHORTCUT_LABEL);
  }

  // Whether the selected row was ticked since the last call.
  bool takeTick();
  int handle(int event) override;
  // What the first column shows.
  static const char* boxText(bool isTicked) { return isTicked ? "[x]" : "[  ]"; }
  static constexpr int kBoxWidth = 24;

 private:
  bool isTicked_ = false;
};

}  // namespace tallowin
