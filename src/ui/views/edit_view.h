// The window in which a file is edited.
#pragma once

#include "ops/edit_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/labels.h"
#include "ui/widgets/text_area.h"

namespace tallowin {

class EditView : public DialogView {
 public:
  explicit EditView(EditModel& model);

 private:
  void read() override;
  void write() override;
  void pressedOther(const Fl_Button& button) override;
  Fl_Button* addButton(int x, const char* label);

  EditModel& model_;
  TextArea* area_;
  TextLabel* state_;
  TextLabel* place_;
  Fl_Button* save_;
  Fl_Button* saveAs_;
};

}  // namespace tallowin
