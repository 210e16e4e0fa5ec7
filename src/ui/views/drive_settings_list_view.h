// The window that lists drives to edit their settings.
#pragma once

#include "app/drive_settings_list_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/fields.h"
#include "ui/widgets/list_box.h"

namespace tallowin {

class DriveSettingsListView : public DialogView {
 public:
  explicit DriveSettingsListView(DriveSettingsListModel& model);

 private:
  static void onList(Fl_Widget*, void* view);
  void read() override;
  void write() override;

  DriveSettingsListModel& model_;
  ChoiceField* bus_;
  ListBox* drives_;
  std::vector<std::string> shown_;  // drives
};

}  // namespace tallowin
