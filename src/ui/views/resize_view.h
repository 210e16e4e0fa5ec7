// The window of the Resize dialog.
#pragma once

#include <vector>

#include "ops/resize_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/fields.h"
#include "ui/widgets/labels.h"

namespace tallowin {

class ResizeView : public DialogView {
 public:
  explicit ResizeView(ResizeModel& model);

 private:
  void read() override;
  void write() override;
  void addSizes();
  void addForms();

  ResizeModel& model_;
  NumberInput* newSize_ = nullptr;
  std::vector<Fl_Radio_Round_Button*> forms_;
  ChoiceField* clusterSize_ = nullptr;
  TextLabel* winNtOnly_ = nullptr;
};

}  // namespace tallowin
