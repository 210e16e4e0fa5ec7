#include "ui/views/format_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 200;
constexpr int kHeight = 110;
constexpr int kFieldX = 95;

}  // namespace

FormatView::FormatView(FormatModel& model)
    : DialogView(model, kWidth, kHeight, model.title), model_(model) {
  clusterSize_ =
      new ChoiceField(kFieldX, kMargin, kWidth - kMargin - kFieldX, kFieldHeight, "&Cluster size");
  for (const char* choice : FormatModel::kClusterChoices) clusterSize_->addChoice(choice);
  winNtOnly_ = addText(kFieldX, kMargin + kFieldHeight, kWidth - kMargin - kFieldX, 14,
                       "Win NT+ Only!", FL_ALIGN_CENTER);
  alignForNtfs_ = addCheckBox(kMargin - 4, kMargin + kFieldHeight + 15, kWidth - 2 * kMargin + 8,
                              "&Align for NTFS conversion");
  addButtons("OK", "Cancel");
}

void FormatView::read() {
  model_.clusterChoice = static_cast<std::size_t>(clusterSize_->value());
  model_.alignForNtfs = alignForNtfs_->value() != 0;
}

void FormatView::write() {
  clusterSize_->value(static_cast<int>(model_.clusterChoice));
  alignForNtfs_->value(model_.alignForNtfs);
  apply(model_.clusterControl, *clusterSize_);
  apply(model_.winNtOnlyLabel, *winNtOnly_);
  apply(model_.alignForNtfsControl, *alignForNtfs_);
}

}  // namespace tallowin
