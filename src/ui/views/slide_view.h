// The window of the Slide dialog.
#pragma once

#include "ops/slide_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/fields.h"

namespace tallowin {

class SlideView : public DialogView {
 public:
  explicit SlideView(SlideModel& model);

 private:
  void read() override;
  void write() override;

  SlideModel& model_;
  NumberInput* before_ = nullptr;
  NumberInput* after_ = nullptr;
  CheckBox* dataOnly_ = nullptr;
};

}  // namespace tallowin
