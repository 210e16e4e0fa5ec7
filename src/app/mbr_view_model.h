// The MBR editor and its "Select" dialog, without a widget.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/partition_rows.h"
#include "ops/dialog_model.h"
#include "ops/operation_context.h"
#include "ptable/mbr/mbr_editor.h"

namespace tallowin {

// One value per button.
enum class MbrAction {
  setActive,
  insert,
  remove,
  moveUp,
  moveDown,
  standardCode,
  newerCode,
  clearSignature,
  editSignature,
  fillEndChs,
  apply,
  cancel,
};
inline constexpr std::size_t kMbrActionCount = static_cast<std::size_t>(MbrAction::cancel) + 1;

// Picks a partition from a list that is not empty.
class PartitionChoiceModel : public DialogModel {
 public:
  explicit PartitionChoiceModel(std::vector<PartitionRow> choices) : rows(std::move(choices)) {}

  static constexpr const char* kTitle = "Select";
  static constexpr const char* kListLabel = "Partitions";
  const std::vector<PartitionRow> rows;
  std::size_t selected = 0;
  std::optional<PartitionId> chosen;  // set by OK

  void ok() override;
};

// Everything that is pressed changes the editor's copy; only Apply writes.
class MbrViewModel : public DialogModel {
 public:
  // All are borrowed for the model's life; the editor holds a copy. `apply` writes it and tells
  // the user how that ended.
  MbrViewModel(FrontEnd& ui, Drive& drive, MbrEditor& editor, std::function<FlowResult()> apply);

  // Grows with every change of what is shown.
  u32 revision() const { return revision_; }
  std::string title() const;
  std::vector<MbrSlotRow> rows() const { return editor_.rows(); }
  std::string signatureLabel() const;  // "0x%08X"

  std::size_t selected() const { return selected_; }
  void select(std::size_t slot);

  static const char* label(MbrAction action);
  Control control(MbrAction action) const;
  // Does nothing when the button is disabled. `shiftHeld` counts for setActive only.
  void press(MbrAction action, bool shiftHeld = false);
  // Asks before changes are dropped.
  void cancel() override;

  // The F1 key; shows the help window. Set before the dialog is run.
  std::function<void()> help = [] {};
  static constexpr int kHelpTopic = 13;

  // Set by Apply when it succeeded.
  bool applied = false;

 private:
  void edit(MbrAction action, bool shiftHeld);
  void insert();
  void moveTo(std::size_t slot);
  void editSignature();
  void tellDone();
  void write();
  bool isSure(const std::string& what);

  FrontEnd& ui_;
  Drive& drive_;
  MbrEditor& editor_;
  std::function<FlowResult()> apply_;
  std::size_t selected_ = 0;
  u32 revision_ = 0;
};

// Shows the editor of a drive. Done when the boot sector was written, and then the drive was read
// again; cancelled when it was left alone. `showHelp` may be empty.
FlowResult viewMbr(const OperationContext& context, Drive& drive,
                   const std::function<void(int topic)>& showHelp = {});

}  // namespace tallowin
