#include "app/mbr_view_model.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"
#include "ops/error_text.h"
#include "ops/mbr_edit_flow.h"
#include "ops/restore_table_flow.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

constexpr const char* kTitle = "View MBR";

constexpr std::array<const char*, kMbrActionCount> kLabels = {
    "&Set Active", "&Insert",    "&Delete",   "Move &Up",    "Move Dow&n", "Std &MBR",
    "Win&7 MBR",   "&Clear Sig", "&Edit Sig", "&Fill E-CHS", "A&pply",     "Cancel"};

}  // namespace

void PartitionChoiceModel::ok() {
  chosen = rows[selected].id;
  close();
}

MbrViewModel::MbrViewModel(FrontEnd& ui, Drive& drive, MbrEditor& editor,
                           std::function<FlowResult()> apply)
    : ui_(ui), drive_(drive), editor_(editor), apply_(std::move(apply)) {}

std::string MbrViewModel::title() const {
  return drive_.isGpt() ? format("%s - ", kTitle) + guidText(drive_.diskGuid()) : kTitle;
}

std::string MbrViewModel::signatureLabel() const {
  return format("0x%08X", editor_.diskSignature());
}

void MbrViewModel::select(std::size_t slot) {
  if (slot < kMbrSlots) selected_ = slot;
}

const char* MbrViewModel::label(MbrAction action) {
  return kLabels[static_cast<std::size_t>(action)];
}

Control MbrViewModel::control(MbrAction action) const {
  if (action == MbrAction::moveUp && selected_ == 0)
    return {true, false, "This is the first entry."};
  if (action == MbrAction::moveDown && selected_ == kMbrSlots - 1)
    return {true, false, "This is the last entry."};
  return {};
}

void MbrViewModel::press(MbrAction action, bool shiftHeld) {
  if (!control(action).enabled) return;
  edit(action, shiftHeld);
  ++revision_;
}

void MbrViewModel::edit(MbrAction action, bool shiftHeld) {
  switch (action) {
    case MbrAction::setActive:
      return shiftHeld ? editor_.toggleActive(selected_) : editor_.setActive(selected_);
    case MbrAction::insert:
      return insert();
    case MbrAction::remove:
      if (mayGiveUpSlot(ui_, editor_, selected_)) editor_.remove(selected_);
      return;
    case MbrAction::moveUp:
      return moveTo(selected_ - 1);
    case MbrAction::moveDown:
      return moveTo(selected_ + 1);
    case MbrAction::standardCode:
      editor_.installBootCode(BootCode::standard);
      return tellDone();
    case MbrAction::newerCode:
      editor_.installBootCode(BootCode::measuring);
      return tellDone();
    case MbrAction::clearSignature:
      editor_.clearSignature();
      return tellDone();
    case MbrAction::editSignature:
      return editSignature();
    case MbrAction::fillEndChs:
      editor_.fillEndChs();
      return tellDone();
    case MbrAction::apply:
      return write();
    case MbrAction::cancel:
      return cancel();
  }
}

void MbrViewModel::insert() {
  if (!mayGiveUpSlot(ui_, editor_, selected_)) return;
  const auto candidates = editor_.candidates(selected_);
  std::vector<PartitionRow> rows;
  for (PartitionRow& row : partitionRows(drive_))
    if (std::ranges::find(candidates, row.id, &TableEntry::id) != candidates.end())
      rows.push_back(std::move(row));
  if (rows.empty())
    return ui_.noticeBox("Every partition of this disk is in another entry already.");
  PartitionChoiceModel choice(std::move(rows));
  ui_.run(choice);
  if (!choice.chosen) return;
  const PartitionEntry* entry = drive_.findById(*choice.chosen);
  if (!entry || !editor_.insert(selected_, *entry))
    ui_.noticeBox(
        "This partition lies beyond what an entry of the MBR can hold.\n"
        "The entry was not changed.");
}

void MbrViewModel::moveTo(std::size_t slot) {
  editor_.swap(selected_, slot);
  selected_ = slot;
}

void MbrViewModel::editSignature() {
  TextInput input{"Edit", "Edit Sig", TextInput{}.maxLength, signatureLabel()};
  if (!ui_.textInput(input)) return;
  const std::optional<u32> signature = parseSignature(input.text);
  if (!signature)
    return ui_.noticeBox(
        "The signature is a number of 32 bits: decimal, 0x hexadecimal or 0 octal.\n"
        "It was not changed.");
  editor_.setSignature(*signature);
  tellDone();
}

void MbrViewModel::tellDone() {
  ui_.noticeBox("The Operation Completed Successfully\n\nClick Apply to write changes to disk.",
                "Notice");
}

bool MbrViewModel::isSure(const std::string& what) {
  return ui_.confirm(Consent::general, kTitle, what + "\n\nAre you sure you want to continue?");
}

void MbrViewModel::write() {
  if (!editor_.isChanged()) return close();
  if (!isSure("The changes are written to the boot sector of\n" + describeDisk(drive_.disk()) +
              "."))
    return;
  applied = apply_().succeeded();
  if (applied) close();
}

void MbrViewModel::cancel() {
  if (!editor_.isChanged() || isSure("The changes are not on the disk yet, and are dropped."))
    close();
}

FlowResult viewMbr(const OperationContext& context, Drive& drive,
                   const std::function<void(int topic)>& showHelp) {
  MbrEditor editor(drive);
  if (const Failure error = editor.load(); error != Error::none) {
    context.ui.errorBox(tableErrorText(error));
    return {FlowEnd::failed, error};
  }
  std::string keptTable;
  MbrViewModel model(context.ui, drive, editor,
                     [&] { return applyMbrEdit(context, drive, editor, keptTable); });
  if (showHelp) model.help = [&] { showHelp(MbrViewModel::kHelpTopic); };
  context.ui.run(model);
  if (model.applied && !keptTable.empty())
    tellWithUndo(context, drive, kTitle, "The boot sector was written.", keptTable);
  return model.applied ? FlowResult{} : FlowResult{FlowEnd::cancelled, Error::cancelled};
}

}  // namespace tallowin
