// The window that lists drives to edit their settings.
#pragma once

#include <FL/Fl_Hold_Browser.H>

#include "app/drive_settings_list_model.h"
#include "ui/dialog_view.h"
#include "ui/fields.h"

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
  Fl_Hold_Browser* drives_;
  std::vector<std::string> shown_;  // drives
};

}  // namespace tallowin
