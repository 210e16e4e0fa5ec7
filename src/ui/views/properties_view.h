// The window of the Properties dialog.
#pragma once

#include "ops/properties_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/fields.h"
#include "ui/widgets/labels.h"
#include "ui/widgets/list_box.h"

namespace tallowin {

class PropertiesView : public DialogView {
 public:
  explicit PropertiesView(PropertiesModel& model);

 private:
  void addInformation();
  void addLocation();
  void addFlags();
  void addLines();
  void addActions();
  void read() override;
  void write() override;
  void pressedOther(const Fl_Button& button) override;

  PropertiesModel& model_;
  Fl_Input* name_;
  MenuInput* type_;
  Fl_Input* end_;
  TickList* flags_;
  Fl_Button* details_;
  Fl_Button* hide_;
  Fl_Button* recalc_;
};

}  // namespace tallowin
