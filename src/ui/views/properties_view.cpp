#include "ui/views/properties_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 490;
constexpr int kHeight = 395;
constexpr int kRow = kFieldHeight + 4;
constexpr int kInset = 5;

// Two columns of frames, and one along the lower edge.
constexpr int kTopY = 24;
constexpr int kTopHeight = 3 * kRow + kInset;
constexpr int kLeftWidth = 318;
constexpr int kRightX = kMargin + kLeftWidth + kGap;
constexpr int kRightWidth = kWidth - kMargin - kRightX;
constexpr int kMiddleY = kTopY + kTopHeight + 22;
constexpr int kMiddleHeight = 162;
constexpr int kFlagsWidth = 186;
constexpr int kLinesX = kMargin + kFlagsWidth + kGap;
constexpr int kLinesWidth = kWidth - kMargin - kLinesX;
constexpr int kActionsY = kMiddleY + kMiddleHeight + 20;
constexpr int kActionsHeight = kButtonHeight + 2 * kInset;
constexpr int kActionWidth = 104;

constexpr ListColumn kColumns[] = {{TickList::kBoxWidth}, {0}};

std::string withoutMnemonic(std::string label) {
  std::erase(label, '&');
  return label;
}

}  // namespace

PropertiesView::PropertiesView(PropertiesModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model) {
  addInformation();
  addLocation();
  addFlags();
  addLines();
  addActions();
  addButtons("OK", "Cancel");
}

void PropertiesView::addInformation() {
  constexpr int kFieldX = kMargin + 82;
  constexpr int kFieldWidth = kLeftWidth - 82 - kInset;
  addFrame(kMargin, kTopY, kLeftWidth, kTopHeight, model_.groupLabel);
  int y = kTopY + kInset;
  name_ = new Fl_Input(kFieldX, y, kFieldWidth, kFieldHeight, "&Name");
  name_->labelsize(kFontSize);
  name_->textsize(kFontSize);
  name_->maximum_size(static_cast<int>(model_.nameMaxLength));
  y += kRow;
  type_ = new MenuInput(kFieldX, y, kFieldWidth, kFieldHeight, model_.typeLabel.c_str());
  for (const std::string& choice : model_.typeChoices) type_->addSuggestion(choice);
  y += kRow;
  addText(kMargin + kInset, y, kLeftWidth - 2 * kInset, kFieldHeight, model_.sizeLine);
}

void PropertiesView::addLocation() {
  addFrame(kRightX, kTopY, kRightWidth, kTopHeight, "LBA Information");
  int y = kTopY + kInset;
  addText(kRightX + kInset, y, kRightWidth - 2 * kInset, kFieldHeight, model_.startLine);
  y += kRow;
  if (!model_.endControl.shown)
    addText(kRightX + kInset, y, kRightWidth - 2 * kInset, kFieldHeight, model_.endLine);
  end_ = new Fl_Input(kRightX + 34, y, kRightWidth - 34 - kInset, kFieldHeight, "&End");
  end_->labelsize(kFontSize);
  end_->textsize(kFontSize);
}

void PropertiesView::addFlags() {
  flags_ = new TickList(kMargin, kMiddleY, kFlagsWidth, kMiddleHeight, kColumns);
  flags_->label("Fla&gs");
  flags_->labelsize(kFontSize);
  flags_->align(FL_ALIGN_TOP_LEFT);
  flags_->textsize(kFontSize);
  for (std::size_t row = 0; row < model_.flags.size(); ++row) flags_->addRow({});
}

void PropertiesView::addLines() {
  addFrame(kLinesX, kMiddleY, kLinesWidth, kMiddleHeight, "Additional Information");
  std::string text;
  for (const std::string& line : model_.lines) text += (text.empty() ? "" : "\n") + line;
  new TextLabel(kLinesX + kInset, kMiddleY + kInset, kLinesWidth - 2 * kInset,
                kMiddleHeight - 2 * kInset, text, FL_ALIGN_LEFT | FL_ALIGN_TOP | FL_ALIGN_WRAP);
}

void PropertiesView::addActions() {
  addFrame(kMargin, kActionsY, kWidth - 2 * kMargin, kActionsHeight, "Actions");
  int x = kMargin + kInset;
  const auto add = [&](const char* label) {
    auto* button = new Fl_Button(x, kActionsY + kInset, kActionWidth, kButtonHeight, label);
    button->labelsize(kFontSize);
    window().watch(button);
    x += kActionWidth + kGap;
    return button;
  };
  details_ = add("&Details");
  hide_ = add("");
  recalc_ = add("&Recalc V-CHS");
}

void PropertiesView::read() {
  model_.name = name_->value();
  model_.typeText = type_->value();
  model_.endText = end_->value();
  if (flags_->takeTick()) model_.toggleFlag(static_cast<std::size_t>(flags_->value() - 1));
}

void PropertiesView::write() {
  setText(*name_, model_.name);
  setText(type_->input(), model_.typeText);
  setText(*end_, model_.endText);
  for (std::size_t row = 0; row < model_.flags.size(); ++row)
    flags_->setRow(row, {TickList::boxText(model_.flags[row].isSet),
                         withoutMnemonic(model_.flags[row].label)});
  if (model_.hideLabel != hide_->label()) hide_->copy_label(model_.hideLabel.c_str());
  apply(model_.nameControl, *name_);
  apply(model_.endControl, *end_);
  apply(model_.flagsControl, *flags_);
  apply(model_.detailsControl, *details_);
  apply(model_.hideControl, *hide_);
  apply(model_.recalcControl, *recalc_);
}

void PropertiesView::pressedOther(const Fl_Button& button) {
  if (&button == details_ && model_.details) model_.details();
  if (&button == hide_) model_.pressHide();
  if (&button == recalc_ && model_.recalc) model_.recalc();
  write();
}

}  // namespace tallowin
