// The windows of the MBR editor and of its "Select" dialog.
#pragma once

#include <array>
#include <functional>
#include <optional>

#include "app/mbr_view_model.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/labels.h"
#include "ui/widgets/list_box.h"

namespace tallowin {

// The list of slots. Its keys count wherever the focus is, unless another widget wants them.
class SlotList : public ColumnList {
 public:
  using ColumnList::ColumnList;
  // Called within the toolkit's event processing.
  std::function<void(MbrAction)> onAction;
  std::function<void()> onHelp;

 private:
  int handle(int event) override;
};

class MbrView : public DialogView {
 public:
  explicit MbrView(MbrViewModel& model);

 private:
  void read() override;
  void write() override;
  void addCaptions();
  void addButton(MbrAction action, int x, int y, int width);
  void note(MbrAction action);
  static void onButton(Fl_Widget* button, void* view);

  MbrViewModel& model_;
  SlotList* list_;
  TextLabel* signature_;
  std::array<Fl_Button*, kMbrActionCount> buttons_{};
  // Noted while events are processed, carried out by the next read().
  std::optional<MbrAction> pressed_;
  bool shiftHeld_ = false;
  bool helpWanted_ = false;
  std::optional<u32> shownRevision_;
};

class PartitionChoiceView : public DialogView {
 public:
  explicit PartitionChoiceView(PartitionChoiceModel& model);

 private:
  void read() override;
  void write() override;

  PartitionChoiceModel& model_;
  ColumnList* list_;
};

}  // namespace tallowin
