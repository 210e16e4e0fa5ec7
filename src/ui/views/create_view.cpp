#include "ui/views/create_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 300;
constexpr int kHeight = 295;
constexpr int kRow = kFieldHeight + 4;
constexpr int kFieldX = 127;
constexpr int kFieldWidth = kWidth - kMargin - 5 - kFieldX;
constexpr int kNumberWidth = 82;  // seven digits

// The three frames, and the first row in each.
constexpr int kInformationY = 24;
constexpr int kLocationY = kInformationY + 3 * kRow + 24;
constexpr int kOptionsY = kLocationY + 2 * kRow + 24;
constexpr int kInset = 5;

}  // namespace

CreateView::CreateView(CreateModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model) {
  addFrame(kMargin, kInformationY, kWidth - 2 * kMargin, 3 * kRow + kInset, model.groupLabel);
  int y = kInformationY + kInset;
  name_ = new Fl_Input(kFieldX, y, kFieldWidth, kFieldHeight, "&Name");
  name_->labelsize(kFontSize);
  name_->textsize(kFontSize);
  name_->maximum_size(static_cast<int>(model.nameMaxLength));
  y += kRow;
  fileSystem_ = new MenuInput(kFieldX, y, kFieldWidth, kFieldHeight, "File &System");
  for (const CreateModel::TypeChoice& choice : model.fileSystemChoices)
    fileSystem_->addSuggestion(choice.label);
  y += kRow;
  size_ = new NumberInput(kFieldX, y, kNumberWidth, kFieldHeight, "&Size - MiB");
  winNtOnly_ = addText(kFieldX + kNumberWidth, y, kFieldWidth - kNumberWidth + 3, kFieldHeight,
                       "Win NT+ Only!", FL_ALIGN_RIGHT);

  addFrame(kMargin, kLocationY, kWidth - 2 * kMargin, 2 * kRow + kInset, "Location");
  y = kLocationY + kInset;
  before_ = new NumberInput(kFieldX, y, kNumberWidth, kFieldHeight, "Free Space &Before");
  y += kRow;
  after_ = new NumberInput(kFieldX, y, kNumberWidth, kFieldHeight, "Free Space &After");

  addFrame(kMargin, kOptionsY, kWidth - 2 * kMargin, kRow, "Options");
  y = kOptionsY + 2;
  if (model.isCopy())
    addCopyOptions(y);
  else
    addCreateOptions(y);

  addButtons("OK", "Cancel");
}

void CreateView::addCreateOptions(int y) {
  format_ = addCheckBox(kMargin + kInset, y, 110, "&Format");
  multiOs_ = addCheckBox(kWidth / 2, y, 110, "&Multi-OS");
}

void CreateView::addCopyOptions(int y) {
  deleteSource_ = addCheckBox(kMargin + kInset, y, 108, "&Delete Source");
  multiOs_ = addCheckBox(kMargin + kInset + 110, y, 78, "&Multi-OS");
  dataOnly_ = addCheckBox(kMargin + kInset + 190, y, 80, "&Data Only");
}

void CreateView::read() {
  model_.name = name_->value();
  model_.fileSystem = fileSystem_->value();
  model_.sizeMiB.type(size_->text());
  model_.freeBeforeMiB.type(before_->text());
  model_.freeAfterMiB.type(after_->text());
  if (format_ != nullptr) model_.format = format_->value() != 0;
  if (deleteSource_ != nullptr) model_.deleteSource = deleteSource_->value() != 0;
  if (dataOnly_ != nullptr) model_.dataOnly = dataOnly_->value() != 0;
  model_.multiOs = multiOs_->value() != 0;
}

// One that this form of the dialog does not have is null.
void CreateView::show(CheckBox* box, bool value, const Control& control) {
  if (box == nullptr) return;
  box->value(value);
  apply(control, *box);
}

void CreateView::write() {
  setText(*name_, model_.name);
  setText(fileSystem_->input(), model_.fileSystem);
  size_->display(model_.sizeMiB);
  before_->display(model_.freeBeforeMiB);
  after_->display(model_.freeAfterMiB);
  multiOs_->value(model_.multiOs);
  apply(model_.nameControl, *name_);
  apply(model_.fileSystemControl, *fileSystem_);
  apply(model_.sizeControl, *size_);
  apply(model_.winNtOnlyLabel, *winNtOnly_);
  apply(model_.freeBeforeControl, *before_);
  apply(model_.freeAfterControl, *after_);
  apply(model_.multiOsControl, *multiOs_);
  show(format_, model_.format, model_.formatControl);
  show(deleteSource_, model_.deleteSource, model_.deleteSourceControl);
  show(dataOnly_, model_.dataOnly, model_.dataOnlyControl);
}

}  // namespace tallowin
