#include "ui/fltk_front_end.h"

#include <FL/Fl.H>
#include <FL/Fl_Tooltip.H>

#include "app/drive_settings_list_model.h"
#include "app/drive_settings_model.h"
#include "app/mbr_view_model.h"
#include "app/settings_model.h"
#include "base/stop_request.h"
#include "ops/create_model.h"
#include "ops/delete_model.h"
#include "ops/edit_model.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "ops/properties_model.h"
#include "ops/resize_model.h"
#include "ops/slide_model.h"
#include "ops/undelete_model.h"
#include "ops/wipe_model.h"
#include "ui/views/create_view.h"
#include "ui/views/delete_view.h"
#include "ui/views/drive_settings_list_view.h"
#include "ui/views/drive_settings_view.h"
#include "ui/views/edit_view.h"
#include "ui/views/file_dialog.h"
#include "ui/views/format_summary_view.h"
#include "ui/views/format_view.h"
#include "ui/views/mbr_view.h"
#include "ui/views/progress_windows.h"
#include "ui/views/properties_view.h"
#include "ui/views/question_window.h"
#include "ui/views/resize_view.h"
#include "ui/views/settings_view.h"
#include "ui/views/slide_view.h"
#include "ui/views/undelete_view.h"
#include "ui/views/wipe_view.h"
#include "ui/widgets/layout.h"

namespace tallowin {

void setLook() {
  Fl::background(layout::kBackgroundRed, layout::kBackgroundGreen, layout::kBackgroundBlue);
  Fl::scheme("plastic");  // after the background, which its pictures are coloured with
  FL_NORMAL_SIZE = layout::kFontSize;
  Fl_Tooltip::size(layout::kFontSize);
  Fl_Tooltip::delay(static_cast<float>(layout::kHintDelay));
}

namespace {

// What stands for a window once the program has been asked to stop.
class NoProgress : public ProgressBox, public ProgressDialog {
 public:
  void setText(const std::string&) override {}
  void setProgress(u32, const std::string&) override {}
  void setButton(const std::string&) override {}
  bool isCancelled() override { return true; }
};

}  // namespace

FltkFrontEnd::FltkFrontEnd(const Options& options) : options_(options) {
  addView<CreateModel, CreateView>();
  addView<DeleteModel, DeleteView>();
  addView<EditModel, EditView>();
  addView<FormatModel, FormatView>();
  addView<FormatSummaryModel, FormatSummaryView>();
  addView<PropertiesModel, PropertiesView>();
  addView<ResizeModel, ResizeView>();
  addView<SlideModel, SlideView>();
  addView<WipeModel, WipeView>();
  addView<UndeleteModel, UndeleteView>();
  addView<DriveSettingsModel, DriveSettingsView>();
  addView<DriveSettingsListModel, DriveSettingsListView>();
  addView<SettingsModel, SettingsView>();
  addView<MbrViewModel, MbrView>();
  addView<PartitionChoiceModel, PartitionChoiceView>();
}

MessageResult FltkFrontEnd::messageBox(const MessageBox& box) { return showMessageBox(box); }

bool FltkFrontEnd::textInput(TextInput& input) { return showTextInput(input); }

std::size_t FltkFrontEnd::choiceBox(const ChoiceBox& box) { return showChoiceBox(box); }

std::unique_ptr<ProgressBox> FltkFrontEnd::progressBox(const std::string& title, MessageKind icon,
                                                       const std::string& text) {
  if (stopRequested()) return std::make_unique<NoProgress>();
  return std::make_unique<ProgressBoxWindow>(title, icon, text);
}

std::unique_ptr<ProgressDialog> FltkFrontEnd::progressDialog(const std::string& title,
                                                             const std::string& text,
                                                             const std::string& buttonLabel) {
  if (stopRequested()) return std::make_unique<NoProgress>();
  return std::make_unique<ProgressDialogWindow>(title, text, buttonLabel);
}

std::optional<std::string> FltkFrontEnd::chooseFile(const FileChoice& choice) {
  if (stopRequested()) return std::nullopt;
  return showFileDialog(choice, options_.iso8601);
}

void FltkFrontEnd::run(DialogModel& model) {
  if (stopRequested()) return model.cancel();
  views_.at(typeid(model))(model)->run();
}

}  // namespace tallowin
