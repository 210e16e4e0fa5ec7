// The window of the Format dialog.
#pragma once

#include "ops/format_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/fields.h"

namespace tallowin {

class FormatView : public DialogView {
 public:
  explicit FormatView(FormatModel& model);

 private:
  void read() override;
  void write() override;

  FormatModel& model_;
  ChoiceField* kind_ = nullptr;  // only where there is a choice
  ChoiceField* clusterSize_;
  std::vector<std::string> shownClusters_;
  Fl_Widget* winNtOnly_;
  CheckBox* alignForNtfs_;
};

}  // namespace tallowin
