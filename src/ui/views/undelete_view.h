// The window of the Undelete dialog.
#pragma once

#include "ops/undelete_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/labels.h"
#include "ui/widgets/list_box.h"

namespace tallowin {

class UndeleteView : public DialogView {
 public:
  explicit UndeleteView(UndeleteModel& model);

 private:
  void read() override;
  void write() override;
  void pressedOther(const Fl_Button& button) override;

  UndeleteModel& model_;
  TickList* list_;
  TextLabel* details_;
  Fl_Button* addAll_;
};

}  // namespace tallowin
