#include "ui/views/wipe_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 250;
constexpr int kFrameY = 24;
constexpr int kInset = 6;
constexpr int kRow = 24;

int frameHeight(const WipeModel& model) {
  return static_cast<int>(model.choices.size()) * kRow + kFieldHeight + 3 * kInset;
}

int heightFor(const WipeModel& model) {
  return kFrameY + frameHeight(model) + kRow + 3 * kMargin + kButtonHeight;
}

}  // namespace

WipeView::WipeView(WipeModel& model)
    : DialogView(model, kWidth, heightFor(model), model.title), model_(model) {
  const int width = kWidth - 2 * (kMargin + kInset);
  addFrame(kMargin, kFrameY, kWidth - 2 * kMargin, frameHeight(model), "Options");
  int y = kFrameY + kInset;
  auto* group =
      new Fl_Group(kMargin + kInset, y, width, static_cast<int>(model.choices.size()) * kRow);
  for (const WipeModel::Choice& choice : model.choices) {
    choices_.push_back(addRadioButton(kMargin + kInset, y, width, choice.label.c_str()));
    y += kRow;
  }
  group->end();
  passes_ = new Fl_Input(kMargin + 4 * kInset, y, width - 3 * kInset, kFieldHeight);
  passes_->textsize(kFontSize);
  passes_->maximum_size(static_cast<int>(kMostPatternBytes));
  verifies_ =
      addCheckBox(kMargin, kFrameY + frameHeight(model) + kInset, width, "&Validate the last pass");
  addButtons("OK", "Cancel");
}

void WipeView::read() {
  for (std::size_t i = 0; i < choices_.size(); ++i)
    if (choices_[i]->value() != 0) model_.choice = i;
  model_.passesText = passes_->value();
  model_.verifies = verifies_->value() != 0;
}

void WipeView::write() {
  for (std::size_t i = 0; i < choices_.size(); ++i) choices_[i]->value(model_.choice == i);
  setText(*passes_, model_.passesText);
  verifies_->value(model_.verifies);
  apply(model_.passesControl, *passes_);
}

}  // namespace tallowin
