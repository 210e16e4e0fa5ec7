#include "ui/views/delete_view.h"

#include <FL/Fl.H>

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 350;
constexpr int kHeight = 195;
constexpr int kFrameY = 24;
constexpr int kTextHeight = 16;
constexpr int kInset = 6;
constexpr int kTextWidth = kWidth - 2 * (kMargin + kInset);

// What the window grows by: the description of the disk, on as many lines as it takes.
int targetHeight(const DeleteModel& model) {
  return measureText(model.targetText, kTextWidth, kSmallFontSize).height + kInset;
}

}  // namespace

DeleteView::DeleteView(DeleteModel& model)
    : DialogView(model, kWidth, kHeight + targetHeight(model), model.title), model_(model) {
  const int frameHeight = 3 * kTextHeight + targetHeight(model) + kInset;
  addFrame(kMargin, kFrameY, kWidth - 2 * kMargin, frameHeight, model.groupLabel);
  int y = kFrameY + kInset / 2;
  for (const std::string& line : {model.nameLine, model.typeLine, model.sizeLine}) {
    addText(kMargin + kInset, y, kTextWidth, kTextHeight, line);
    y += kTextHeight;
  }
  addText(kMargin + kInset, y, kTextWidth, targetHeight(model), model.targetText,
          FL_ALIGN_LEFT | FL_ALIGN_WRAP)
      ->labelsize(kSmallFontSize);

  y = kFrameY + frameHeight + 4;
  clearBootSector_ = addCheckBox(kMargin, y, 150, "&Clear Boot Sector");
  y += 20;
  wipePartition_ = addCheckBox(kMargin, y, 150, "&Wipe Partition");
  secureWipe_ = addCheckBox(kWidth / 2, y, 150, "&Secure Wipe");
  y += kFieldHeight;
  warning_ = addText(kMargin, y, kWidth - 2 * kMargin, kTextHeight, model.warning, FL_ALIGN_CENTER);
  warning_->labelcolor(fl_rgb_color(190, 0, 0));
  y += kTextHeight;
  question_ =
      addText(kMargin, y, kWidth - 2 * kMargin, kTextHeight, model.question, FL_ALIGN_CENTER);
  addButtons("&Yes", "&No");
  startOnCancel();
}

void DeleteView::read() {
  model_.clearBootSector = clearBootSector_->value() != 0;
  model_.wipePartition = wipePartition_->value() != 0;
  model_.secureWipe = secureWipe_->value() != 0;
  model_.shiftHeld = Fl::event_shift() != 0;
}

void DeleteView::write() {
  clearBootSector_->value(model_.clearBootSector);
  wipePartition_->value(model_.wipePartition);
  secureWipe_->value(model_.secureWipe);
  question_->setText(model_.question);
  apply(model_.clearBootSectorControl, *clearBootSector_);
  apply(model_.wipePartitionControl, *wipePartition_);
  apply(model_.secureWipeControl, *secureWipe_);
  apply(model_.warningLine, *warning_);
}

}  // namespace tallowin
