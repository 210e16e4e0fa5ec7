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
  // Space, a double click, and a click on the box tick a row.
  class TickList : public ColumnList {
   public:
    TickList(int x, int y, int width, int height);
    // Whether the selected row was ticked since the last call.
    bool takeTick();
    int handle(int event) override;

   private:
    bool isTicked_ = false;
  };

  void read() override;
  void write() override;
  void pressedOther(const Fl_Button& button) override;

  UndeleteModel& model_;
  TickList* list_;
  TextLabel* details_;
  Fl_Button* addAll_;
};

}  // namespace tallowin
