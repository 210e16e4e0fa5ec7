#include "ui/views/format_view.h"

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 200;
constexpr int kHeight = 110;
constexpr int kFieldX = 95;
constexpr int kKindHeight = kFieldHeight + 5;

}  // namespace

FormatView::FormatView(FormatModel& model)
    : DialogView(model, kWidth, kHeight + (model.kindControl.shown ? kKindHeight : 0), model.title),
      model_(model) {
  const int fieldWidth = kWidth - kMargin - kFieldX;
  int y = kMargin;
  if (model.kindControl.shown) {
    kind_ = new ChoiceField(kFieldX, y, fieldWidth, kFieldHeight, "File &System");
    for (const std::string& choice : model.kindChoices) kind_->addChoice(choice);
    y += kKindHeight;
  }
  clusterSize_ = new ChoiceField(kFieldX, y, fieldWidth, kFieldHeight, "&Cluster size");
  winNtOnly_ = addText(kFieldX, y + kFieldHeight, fieldWidth, 14, "Win NT+ Only!", FL_ALIGN_CENTER);
  alignForNtfs_ = addCheckBox(kMargin - 4, y + kFieldHeight + 15, kWidth - 2 * kMargin + 8,
                              "&Align for NTFS conversion");
  addButtons("OK", "Cancel");
}

void FormatView::read() {
  if (kind_) model_.kindChoice = static_cast<std::size_t>(kind_->value());
  model_.clusterChoice = static_cast<std::size_t>(clusterSize_->value());
  model_.alignForNtfs = alignForNtfs_->value() != 0;
}

void FormatView::write() {
  if (kind_) kind_->value(static_cast<int>(model_.kindChoice));
  if (model_.clusterChoices != shownClusters_) {
    shownClusters_ = model_.clusterChoices;
    clusterSize_->clearChoices();
    for (const std::string& choice : shownClusters_) clusterSize_->addChoice(choice);
  }
  clusterSize_->value(static_cast<int>(model_.clusterChoice));
  alignForNtfs_->value(model_.alignForNtfs);
  apply(model_.clusterControl, *clusterSize_);
  apply(model_.winNtOnlyLabel, *winNtOnly_);
  apply(model_.alignForNtfsControl, *alignForNtfs_);
}

}  // namespace tallowin
