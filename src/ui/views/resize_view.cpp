#include "ui/views/resize_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 300;
constexpr int kHeight = 210;
constexpr int kFrameY = 20;
constexpr int kTextHeight = 15;
constexpr int kInset = 4;
constexpr int kFrameHeight = 3 * kTextHeight + kInset;
constexpr int kSizesY = kFrameY + kFrameHeight + 3;
constexpr int kHalf = (kWidth - 2 * kMargin) / 2;
constexpr int kRow = kFieldHeight + 1;
constexpr int kFieldsY = kSizesY + kTextHeight + 2;
constexpr int kFieldX = 95;
constexpr int kNumberWidth = 82;  // seven digits

}  // namespace

ResizeView::ResizeView(ResizeModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model) {
  addFrame(kMargin, kFrameY, kWidth - 2 * kMargin, kFrameHeight, model.groupLabel);
  int y = kFrameY + kInset / 2;
  for (const std::string& line : {model.summary.name, model.summary.type, model.summary.size}) {
    addText(kMargin + kInset, y, kWidth - 2 * (kMargin + kInset), kTextHeight, line);
    y += kTextHeight;
  }
  addSizes();
  addForms();
  addButtons("OK", "Cancel");
}

void ResizeView::addSizes() {
  addText(kMargin, kSizesY, kHalf, kTextHeight, "Min Size: " + model_.minimumText);
  addText(kMargin + kHalf, kSizesY, kHalf, kTextHeight, "Max Size: " + model_.maximumText);
  newSize_ = new NumberInput(kFieldX, kFieldsY, kNumberWidth, kFieldHeight, "&New Size:");
  addText(kFieldX + kNumberWidth + kLabelGap, kFieldsY, 40, kFieldHeight, "MiB");
}

void ResizeView::addForms() {
  const int y = kFieldsY + kRow;
  auto* group = new Fl_Group(kMargin, y, kWidth - 2 * kMargin, kFieldHeight);
  int x = kFieldX;
  for (const ResizeModel::Form& form : model_.forms) {
    forms_.push_back(addRadioButton(x, y, 66, form.label.c_str()));
    x += 70;
  }
  group->end();
  clusterSize_ = new ChoiceField(kFieldX, y + kRow, kNumberWidth, kFieldHeight, "&Cluster size");
  for (const std::string& choice : model_.clusterChoices) clusterSize_->addChoice(choice);
  winNtOnly_ = addText(kFieldX + kNumberWidth + kLabelGap, y + kRow,
                       kWidth - kMargin - kFieldX - kNumberWidth - kLabelGap, kFieldHeight,
                       "Win NT+ Only!", FL_ALIGN_CENTER);
}

void ResizeView::read() {
  model_.newSizeMiB.type(newSize_->text());
  for (std::size_t i = 0; i < forms_.size(); ++i)
    if (forms_[i]->value() != 0) model_.form = i;
  model_.clusterChoice = static_cast<std::size_t>(clusterSize_->value());
}

void ResizeView::write() {
  newSize_->display(model_.newSizeMiB);
  for (std::size_t i = 0; i < forms_.size(); ++i) {
    forms_[i]->value(model_.form == i);
    apply(model_.forms[i].control, *forms_[i]);
  }
  clusterSize_->value(static_cast<int>(model_.clusterChoice));
  apply(model_.clusterControl, *clusterSize_);
  apply(model_.winNtOnlyLabel, *winNtOnly_);
}

}  // namespace tallowin
