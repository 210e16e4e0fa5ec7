#include "ui/views/slide_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 300;
constexpr int kHeight = 210;
constexpr int kFrameY = 24;
constexpr int kTextHeight = 16;
constexpr int kInset = 6;
constexpr int kFrameHeight = 3 * kTextHeight + kInset;
constexpr int kRow = kFieldHeight + 3;
constexpr int kFieldsY = kFrameY + kFrameHeight + 8;
constexpr int kFieldX = 127;
constexpr int kNumberWidth = 82;  // seven digits
constexpr int kMaximumX = kFieldX + kNumberWidth + kLabelGap;

}  // namespace

SlideView::SlideView(SlideModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model) {
  addFrame(kMargin, kFrameY, kWidth - 2 * kMargin, kFrameHeight, model.groupLabel);
  int y = kFrameY + kInset / 2;
  for (const std::string& line : {model.summary.name, model.summary.type, model.summary.size}) {
    addText(kMargin + kInset, y, kWidth - 2 * (kMargin + kInset), kTextHeight, line);
    y += kTextHeight;
  }
  y = kFieldsY;
  before_ = new NumberInput(kFieldX, y, kNumberWidth, kFieldHeight, "Free Space &Before");
  addText(kMaximumX, y, kWidth - kMargin - kMaximumX, kFieldHeight, model.beforeMaximum);
  y += kRow;
  after_ = new NumberInput(kFieldX, y, kNumberWidth, kFieldHeight, "Free Space &After");
  addText(kMaximumX, y, kWidth - kMargin - kMaximumX, kFieldHeight, model.afterMaximum);
  y += kRow;
  dataOnly_ = addCheckBox(kFieldX, y, 110, "&Data Only");
  addButtons("OK", "Cancel");
}

void SlideView::read() {
  model_.freeBeforeMiB.type(before_->text());
  model_.freeAfterMiB.type(after_->text());
  model_.dataOnly = dataOnly_->value() != 0;
}

void SlideView::write() {
  before_->display(model_.freeBeforeMiB);
  after_->display(model_.freeAfterMiB);
  dataOnly_->value(model_.dataOnly);
  apply(model_.dataOnlyControl, *dataOnly_);
}

}  // namespace tallowin
