// mbr: shows the four slots of the boot sector, or edits the boot sector.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "base/text.h"
#include "cli/target.h"
#include "ops/mbr_edit_flow.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

std::string signatureText(const MbrEditor& editor) {
  return format("0x%08X", editor.diskSignature());
}

void printSlots(const MbrEditor& editor) {
  std::printf("Disk signature %s\n\n", signatureText(editor).c_str());
  std::printf("%-4s %-6s %-4s %-12s %-12s %10s %10s  %s\n", "Slot", "Active", "Type", "First CHS",
              "Last CHS", "Start", "Sectors", "Name");
  u32 number = 0;
  for (const MbrSlotRow& row : editor.rows()) {
    const std::string line =
        format("%-4u %-6s %02Xh  %-12s %-12s %10u %10u  %s", ++number, row.isActive ? "yes" : "",
               row.type, chsText(row.start).c_str(), chsText(row.end).c_str(), row.startLba,
               row.sectorCount, row.name.c_str());
    std::printf("%s\n", std::string(trimRight(line)).c_str());
  }
}

void writeSlots(JsonWriter& json, const MbrEditor& editor) {
  json.text("signature", signatureText(editor));
  json.beginArray("slots");
  u32 number = 0;
  for (const MbrSlotRow& row : editor.rows()) {
    json.beginObject();
    json.number("slot", ++number);
    json.text("name", row.name);
    json.boolean("active", row.isActive);
    json.number("type", row.type);
    json.number("start", row.startLba);
    json.number("sectors", row.sectorCount);
    writeChs(json, "start_chs", row.start);
    writeChs(json, "end_chs", row.end);
    json.endObject();
  }
  json.endArray();
}

void show(CommandContext& context, const MbrEditor& editor) {
  context.arguments.json ? writeSlots(context.json, editor) : printSlots(editor);
}

CommandResult notConfirmed(CommandContext& context) {
  return resultOfFlow({FlowEnd::cancelled, Error::cancelled, 0}, context.ui,
                      "The boot sector was not changed.");
}

CommandResult insertPart(CommandContext& context, Drive& drive, MbrEditor& editor) {
  const Arguments& arguments = context.arguments;
  const std::size_t slot = *arguments.mbr.slot - 1;
  const PartitionEntry* entry = drive.findByListNumber(*arguments.mbr.insert);
  if (!entry || entry->isFree())
    return refused(
        format("There is no partition %u; 'list' shows the numbers.", *arguments.mbr.insert));
  if (entry->isVolume())
    return refused(
        "A volume of an extended partition cannot be put into the MBR; choose a "
        "partition outside of it.");
  const auto candidates = editor.candidates(slot);
  if (std::ranges::find(candidates, entry) == candidates.end())
    return refused(
        format("Partition %u is in another slot already; delete that one with "
               "--delete-slot.",
               *arguments.mbr.insert));
  if (!mayOverwriteSlot(context.ui, editor, slot)) return notConfirmed(context);
  if (!editor.insert(slot, *entry))
    return refused(
        "The partition lies beyond what a slot of the MBR can hold; choose one within "
        "the first 2^32 sectors.",
        Error::outsideUsableArea);
  return {};
}

// Everything that the command line asks for, done to the copy.
CommandResult edit(CommandContext& context, Drive& drive, MbrEditor& editor) {
  const MbrArguments& wanted = context.arguments.mbr;
  if (wanted.deleteSlot) {
    const std::size_t slot = *wanted.deleteSlot - 1;
    if (!mayOverwriteSlot(context.ui, editor, slot)) return notConfirmed(context);
    editor.remove(slot);
  }
  if (wanted.insert)
    if (CommandResult result = insertPart(context, drive, editor); !result.succeeded())
      return result;
  if (wanted.setActive) editor.setActive(*wanted.setActive - 1);
  if (wanted.fillEndChs) editor.fillEndChs();
  if (wanted.bootCode) editor.installBootCode(*wanted.bootCode);
  if (wanted.clearSignature) editor.clearSignature();
  if (wanted.signature) editor.setSignature(*wanted.signature);
  return {};
}

CommandResult change(CommandContext& context, Target& target, MbrEditor& editor) {
  Drive& drive = *target.drive;
  const bool hadErrors = drive.table().hasErrors();
  if (CommandResult result = edit(context, drive, editor); !result.succeeded()) return result;
  if (!editor.isChanged()) {
    show(context, editor);
    return endChange(context, target, hadErrors, {});
  }
  if (!context.ui.confirm(Consent::general, "",
                          "The boot sector of this disk is changed.\nDisk: " +
                              describeDisk(drive.disk()) + "\nAre you sure you want to continue?"))
    return notConfirmed(context);
  const FlowResult flow = applyMbrEdit(context.session.context(context.ui), drive, editor);
  CommandResult result = resultOfFlow(flow, context.ui, "The boot sector was not changed.");
  if (!result.succeeded()) return result;
  show(context, editor);
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

CommandResult runMbr(CommandContext& context) {
  const bool changes = context.arguments.mbr.changesAnything();
  Target target;
  if (CommandResult result =
          openTarget(context, changes ? TargetUse::change : TargetUse::look, target);
      !result.succeeded())
    return result;
  if (target.drive->table().isWholeDisk())
    return refused("This disk has no partition table; a file system fills all of it.");
  MbrEditor editor(*target.drive);
  if (const Failure error = editor.load(); error != Error::none)
    return failedBecause("The boot sector cannot be read.", error);
  if (changes) return change(context, target, editor);
  show(context, editor);
  return {};
}

}  // namespace tallowin
