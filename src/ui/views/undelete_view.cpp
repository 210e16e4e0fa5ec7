#include "ui/views/undelete_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 560;
constexpr int kInnerWidth = kWidth - 2 * kMargin;
constexpr int kHeadY = kMargin + 2 * kLineHeight + kGap;
constexpr int kListY = kHeadY + kLineHeight;
constexpr int kListHeight = 150;
constexpr int kDetailsY = kListY + kListHeight + kGap;
constexpr int kDetailsHeight = 3 * kLineHeight;
constexpr int kHeight = kDetailsY + kDetailsHeight + kGap + kButtonHeight + kMargin;

struct Column {
  const char* title;
  ListColumn column;
};
constexpr Column kTitles[] = {{"", {TickList::kBoxWidth}},
                              {"Kind", {142}},
                              {"Start", {96, FL_ALIGN_RIGHT}},
                              {"Size", {104, FL_ALIGN_RIGHT}},
                              {"", {8}},
                              {"Label", {96}},
                              {"How sure", {0}}};
constexpr ListColumn kColumns[] = {kTitles[0].column, kTitles[1].column, kTitles[2].column,
                                   kTitles[3].column, kTitles[4].column, kTitles[5].column,
                                   kTitles[6].column};

}  // namespace

UndeleteView::UndeleteView(UndeleteModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model) {
  addText(kMargin, kMargin, kInnerWidth, kLineHeight, model.intro);
  addText(kMargin, kMargin + kLineHeight, kInnerWidth, kLineHeight, "Disk: " + model.diskText);
  int x = kMargin;
  for (const Column& column : kTitles) {
    constexpr int kPadding = 4;
    // The last one has the rest.
    const int width = column.column.width != 0 ? column.column.width : kMargin + kInnerWidth - x;
    if (*column.title != '\0')
      addText(x + kPadding, kHeadY, width - 2 * kPadding, kLineHeight, column.title,
              column.column.align);
    x += column.column.width;
  }
  list_ = new TickList(kMargin, kListY, kInnerWidth, kListHeight, kColumns);
  list_->textsize(kFontSize);
  for (std::size_t row = 0; row < model.rows.size(); ++row) list_->addRow({});
  details_ = new TextLabel(kMargin, kDetailsY, kInnerWidth, kDetailsHeight, {},
                           FL_ALIGN_LEFT | FL_ALIGN_TOP | FL_ALIGN_WRAP);
  details_->labelsize(kFontSize);
  addAll_ = new Fl_Button(kMargin, kHeight - kMargin - kButtonHeight, kButtonWidth, kButtonHeight,
                          "Add A&ll");
  addAll_->labelsize(kFontSize);
  window().watch(addAll_);
  addButtons("&Add", "Cancel");
}

void UndeleteView::read() {
  const int line = list_->value();
  model_.selected = line > 0 ? std::optional(static_cast<std::size_t>(line - 1)) : std::nullopt;
  if (list_->takeTick() && model_.selected) model_.toggle(*model_.selected);
}

void UndeleteView::write() {
  for (std::size_t i = 0; i < model_.rows.size(); ++i) {
    const UndeleteModel::Row& row = model_.rows[i];
    list_->setRow(i, {TickList::boxText(row.isPicked), row.kind, row.start, row.size, "", row.label,
                      row.confidence});
  }
  const int line = model_.selected ? static_cast<int>(*model_.selected) + 1 : 0;
  if (list_->value() != line) list_->value(line);
  if (details_->text() != model_.details) details_->setText(model_.details);
  apply(model_.addControl, okButton());
  apply(model_.addAllControl, *addAll_);
}

void UndeleteView::pressedOther(const Fl_Button& button) {
  if (&button == addAll_) model_.addAll();
}

}  // namespace tallowin
