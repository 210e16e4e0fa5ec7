#include "ui/views/mbr_view.h"

#include <FL/Fl.H>

#include <algorithm>

#include "base/text.h"
#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 565;
constexpr int kHeight = 200;
constexpr int kListX = 10;
constexpr int kListY = 30;
constexpr int kListWidth = 545;
constexpr int kListHeight = 80;
constexpr int kListInset = 3;  // of the first column in the list
constexpr int kTextInset = 3;  // of a text in its column
// Name, Active, C, H, S, FS, C, H, S, LBA, Sectors. The last two hold ten digits.
constexpr Fl_Align kRight = FL_ALIGN_RIGHT;
constexpr ListColumn kColumns[] = {{121},        {42},         {34, kRight}, {30, kRight},
                                   {26, kRight}, {34, kRight}, {36, kRight}, {32, kRight},
                                   {26, kRight}, {78, kRight}, {78, kRight}};
constexpr ListColumn kChoiceColumns[] = {{160}, {65}, {70, kRight}, {0}};
constexpr const char* kColumnCaptions[] = {"",  "",  "C", "H",   "S",      "FS",
                                           "C", "H", "S", "LBA", "Sectors"};
constexpr int kStartColumn = 2;
constexpr int kEndColumn = 6;
constexpr int kChsColumns = 3;

constexpr int kButtonWidthHere = 75;
constexpr int kButtonHeightHere = 20;
constexpr int kButtonX[] = {85, 165, 245, 325, 405};
constexpr int kUpperY = 115;
constexpr int kLowerY = 140;
constexpr int kClosingWidth = 65;
constexpr int kClosingY = 170;

int columnX(int column) {
  int x = kListX + kListInset;
  for (int i = 0; i < column; ++i) x += kColumns[i].width;
  return x;
}

std::optional<MbrAction> actionOfKey(int key) {
  switch (key) {
    case ' ':
      return MbrAction::setActive;
    case FL_Delete:
      return MbrAction::remove;
    case FL_Insert:
    case FL_Enter:
    case FL_KP_Enter:
      return MbrAction::insert;
    default:
      return std::nullopt;
  }
}

std::vector<std::string> cellsOf(const MbrSlotRow& row) {
  const auto number = [](u32 value) { return std::to_string(value); };
  return {row.name,
          row.isActive ? "Active" : "",
          number(row.start.cylinder),
          number(row.start.head),
          number(row.start.sector),
          format("%Xh", row.type),
          number(row.end.cylinder),
          number(row.end.head),
          number(row.end.sector),
          number(row.startLba),
          number(row.sectorCount)};
}

}  // namespace

int SlotList::handle(int event) {
  if ((event == FL_KEYBOARD || event == FL_SHORTCUT) &&
      !Fl::event_state(FL_ALT | FL_CTRL | FL_META)) {
    if (Fl::event_key() == FL_F + 1) {
      onHelp();
      return 1;
    }
    const auto action = actionOfKey(Fl::event_key());
    if (action) {
      onAction(*action);
      return 1;
    }
  }
  const int used = ListBox::handle(event);
  if (event == FL_RELEASE && Fl::event_clicks() > 0) {
    Fl::event_clicks(0);
    onAction(MbrAction::insert);
  }
  return used;
}

MbrView::MbrView(MbrViewModel& model)
    : DialogView(model, kWidth, kHeight, model.title()), model_(model) {
  addCaptions();
  list_ = new SlotList(kListX, kListY, kListWidth, kListHeight, kColumns);
  list_->textsize(kSmallFontSize);
  list_->has_scrollbar(0);
  list_->onAction = [this](MbrAction action) { note(action); };
  list_->onHelp = [this] { helpWanted_ = true; };
  signature_ = addText(kListX, kUpperY, 73, kButtonHeightHere, {});
  signature_->labelsize(kSmallFontSize);
  for (std::size_t i = 0; i < std::size(kButtonX); ++i) {
    addButton(static_cast<MbrAction>(i), kButtonX[i], kUpperY, kButtonWidthHere);
    addButton(static_cast<MbrAction>(i + std::size(kButtonX)), kButtonX[i], kLowerY,
              kButtonWidthHere);
  }
  const int x = (kWidth - 2 * kClosingWidth - kGap) / 2;
  addButton(MbrAction::apply, x, kClosingY, kClosingWidth);
  addButton(MbrAction::cancel, x + kClosingWidth + kGap, kClosingY, kClosingWidth);
  window().setAcceptButton(buttons_[static_cast<std::size_t>(MbrAction::apply)]);
  window().setCancelButton(buttons_[static_cast<std::size_t>(MbrAction::cancel)]);
}

void MbrView::addCaptions() {
  constexpr int kUpperCaptionY = 2;
  constexpr int kLowerCaptionY = 16;
  constexpr int kCaptionHeight = 14;
  const auto add = [](int x, int y, int width, const char* text, Fl_Align align) {
    addText(x, y, width, kCaptionHeight, text, align)->labelsize(kSmallFontSize);
  };
  add(columnX(0) + kTextInset, kLowerCaptionY, kColumns[0].width, "Name", FL_ALIGN_LEFT);
  for (const auto& [column, text] :
       {std::pair(kStartColumn, "Starting"), std::pair(kEndColumn, "Ending")})
    add(columnX(column), kUpperCaptionY, columnX(column + kChsColumns) - columnX(column), text,
        FL_ALIGN_CENTER);
  for (int column = kStartColumn; column < static_cast<int>(std::size(kColumnCaptions)); ++column)
    add(columnX(column), kLowerCaptionY, kColumns[column].width - kTextInset,
        kColumnCaptions[column], FL_ALIGN_RIGHT);
}

void MbrView::addButton(MbrAction action, int x, int y, int width) {
  auto* button = new Fl_Button(x, y, width, kButtonHeightHere, MbrViewModel::label(action));
  fitLabel(*button, kFontSize);
  button->callback(onButton, this);
  buttons_[static_cast<std::size_t>(action)] = button;
}

void MbrView::onButton(Fl_Widget* button, void* view) {
  auto& self = *static_cast<MbrView*>(view);
  const auto found = std::find(self.buttons_.begin(), self.buttons_.end(), button);
  self.note(static_cast<MbrAction>(found - self.buttons_.begin()));
}

void MbrView::note(MbrAction action) {
  pressed_ = action;
  shiftHeld_ = Fl::event_shift() != 0;
}

void MbrView::read() {
  if (list_->value() > 0) model_.select(static_cast<std::size_t>(list_->value() - 1));
  if (helpWanted_) {
    helpWanted_ = false;
    model_.help();
  }
  if (!pressed_) return;
  model_.press(*pressed_, shiftHeld_);
  // What was pressed while the action ran was meant for a window that looked otherwise.
  pressed_.reset();
}

void MbrView::write() {
  for (std::size_t i = 0; i < kMbrActionCount; ++i)
    apply(model_.control(static_cast<MbrAction>(i)), *buttons_[i]);
  // A button that was just disabled leaves the window without a focus.
  if (window().shown() && !window().contains(Fl::focus())) list_->take_focus();
  const int line = static_cast<int>(model_.selected()) + 1;
  if (shownRevision_ != model_.revision()) {
    shownRevision_ = model_.revision();
    list_->clearRows();
    for (const MbrSlotRow& row : model_.rows()) list_->addRow(cellsOf(row));
    signature_->setText(model_.signatureLabel());
    list_->value(line);
  } else if (list_->value() != line) {
    list_->value(line);
  }
}

PartitionChoiceView::PartitionChoiceView(PartitionChoiceModel& model)
    : DialogView(model, 430, 235, PartitionChoiceModel::kTitle), model_(model) {
  addText(10, 2, 200, kLineHeight, PartitionChoiceModel::kListLabel);
  list_ = new ColumnList(10, 20, 410, 180, kChoiceColumns);
  list_->textsize(kSmallFontSize);
  for (const PartitionRow& row : model.rows)
    list_->addRow({row.name, row.kind, row.size, row.type});
  addButtons("&OK", "Cancel", nullptr, kMargin / 2);  // the list ends where they would begin
}

void PartitionChoiceView::read() {
  if (list_->value() > 0) model_.selected = static_cast<std::size_t>(list_->value() - 1);
}

void PartitionChoiceView::write() { list_->value(static_cast<int>(model_.selected) + 1); }

}  // namespace tallowin
