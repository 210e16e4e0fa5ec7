// The window of the Create dialog.
#pragma once

#include <FL/Fl_Input.H>

#include "ops/create_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/fields.h"

namespace tallowin {

class CreateView : public DialogView {
 public:
  explicit CreateView(CreateModel& model);

 private:
  void read() override;
  void write() override;
  void addCreateOptions(int y);
  void addCopyOptions(int y);
  static void show(CheckBox* box, bool value, const Control& control);

  CreateModel& model_;
  Fl_Input* name_;
  MenuInput* fileSystem_;
  NumberInput* size_;
  Fl_Widget* winNtOnly_;
  NumberInput* before_;
  NumberInput* after_;
  CheckBox* format_ = nullptr;
  CheckBox* multiOs_;
  CheckBox* deleteSource_ = nullptr;
  CheckBox* dataOnly_ = nullptr;
};

}  // namespace tallowin
