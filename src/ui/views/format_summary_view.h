// The window of the Format Summary dialog.
#pragma once

#include "ops/format_summary_model.h"
#include "ui/views/dialog_view.h"

namespace tallowin {

class FormatSummaryView : public DialogView {
 public:
  explicit FormatSummaryView(FormatSummaryModel& model);

 private:
  void read() override {}
  void write() override {}
};

}  // namespace tallowin
