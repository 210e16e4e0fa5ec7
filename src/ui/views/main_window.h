// The main window: a view of MainWindowModel.
#pragma once

#include <array>
#include <deque>
#include <memory>
#include <string>

#include "app/main_window_model.h"
#include "ui/views/help_window.h"
#include "ui/widgets/dialog_window.h"
#include "ui/widgets/fields.h"
#include "ui/widgets/labels.h"
#include "ui/widgets/list_box.h"

namespace tallowin {

class MainWindow : public DialogWindow {
 public:
  // The model is borrowed for the window's life. `helpFile` is read when help is first asked for.
  MainWindow(MainWindowModel& model, const std::string& helpFile);

  // Shows the window and runs the main loop until the model is closed.
  void run();

 private:
  bool onKey(int key) override;
  static void onList(Fl_Widget*, void* window);

  void makeDriveArea();
  void makeList();
  void makeActions();
  void addButtons(Area area);

  // One step: what the user did since the last one, handed to the model, and what became of it.
  void pass();
  void carryOut();
  void refill();
  void refillRows();
  void showHelp(int topic);
  void showHelpAbove(int topic);

  MainWindowModel& model_;
  std::string helpFile_;
  std::unique_ptr<HelpWindow> help_;
  ChoiceField* buses_ = nullptr;
  ChoiceField* drives_ = nullptr;
  TextLabel* driveCount_ = nullptr;
  TextLabel* scheme_ = nullptr;
  TextLabel* errors_ = nullptr;
  TextLabel* whyEmpty_ = nullptr;  // lies on the list while there is nothing to show
  TextLabel* geometry_ = nullptr;
  TextLabel* paste_ = nullptr;
  ColumnList* list_ = nullptr;
  std::array<Fl_Button*, kActionCount> buttons_{};
  u32 shownRevision_ = 0;
  // Noted while events are processed, carried out by the next pass.
  std::deque<int> keys_;
  bool doubleClicked_ = false;
};

}  // namespace tallowin
