// The window of the Confirm Delete dialog.
#pragma once

#include "ops/delete_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/fields.h"
#include "ui/widgets/labels.h"

namespace tallowin {

class DeleteView : public DialogView {
 public:
  explicit DeleteView(DeleteModel& model);

 private:
  void read() override;
  void write() override;

  DeleteModel& model_;
  CheckBox* clearBootSector_;
  CheckBox* wipePartition_;
  CheckBox* secureWipe_;
  Fl_Widget* warning_;
  TextLabel* question_;
};

}  // namespace tallowin
