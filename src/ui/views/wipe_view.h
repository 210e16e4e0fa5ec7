// The window of the Wipe Pattern dialog.
#pragma once

#include <vector>

#include "ops/wipe_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/fields.h"

namespace tallowin {

class WipeView : public DialogView {
 public:
  explicit WipeView(WipeModel& model);

 private:
  void read() override;
  void write() override;

  WipeModel& model_;
  std::vector<Fl_Radio_Round_Button*> choices_;
  Fl_Input* passes_ = nullptr;
  CheckBox* verifies_ = nullptr;
};

}  // namespace tallowin
