// mbr: shows the four slots of the boot sector, or edits the boot sector.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/target.h"
#include "cli/values.h"
#include "ops/mbr_edit_flow.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

// What is done, in this order; slots count from 1.
struct MbrWish {
  std::optional<u32> deleteSlot;
  std::optional<u32> insert;  // a partition's number, into `slot`
  std::optional<u32> slot;
  std::optional<u32> setActive;
  bool fillEndChs = false;
  std::optional<BootCode> bootCode;
  bool clearSignature = false;
  std::optional<u32> signature;
  bool overwrite = false;

  bool changesAnything() const {
    return deleteSlot || insert || setActive || fillEndChs || bootCode || clearSignature ||
           signature;
  }
};

std::optional<u32> parseSlot(std::string_view text) {
  const std::optional<u32> value = parseFromOne(text);
  return value && *value <= kMbrSlots ? value : std::nullopt;
}

std::optional<BootCode> parseBootCode(std::string_view text) {
  if (text == "standard") return BootCode::standard;
  if (text == "new") return BootCode::measuring;
  return std::nullopt;
}

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
  context.options.json ? writeSlots(context.json, editor) : printSlots(editor);
}

CommandResult notConfirmed(CommandContext& context) {
  return resultOfFlow({FlowEnd::cancelled, Error::cancelled}, context.ui,
                      "The boot sector was not changed.");
}

CommandResult insertPart(CommandContext& context, const MbrWish& wanted, Drive& drive,
                         MbrEditor& editor) {
  const std::size_t slot = *wanted.slot - 1;
  const PartitionEntry* entry = drive.findByListNumber(*wanted.insert);
  if (!entry || entry->isFree())
    return refused(format("There is no partition %u; 'list' shows the numbers.", *wanted.insert));
  if (entry->isVolume())
    return refused(
        "A volume of an extended partition cannot be put into the MBR; choose a "
        "partition outside of it.");
  const auto candidates = editor.candidates(slot);
  if (std::ranges::find(candidates, entry) == candidates.end())
    return refused(
        format("Partition %u is in another slot already; delete that one with "
               "--delete-slot.",
               *wanted.insert));
  if (!mayGiveUpSlot(context.ui, editor, slot)) return notConfirmed(context);
  if (!editor.insert(slot, *entry))
    return refused(
        "The partition lies beyond what a slot of the MBR can hold; choose one within "
        "the first 2^32 sectors.",
        Error::outsideUsableArea);
  return {};
}

// Everything that the command line asks for, done to the copy.
CommandResult edit(CommandContext& context, const MbrWish& wanted, Drive& drive,
                   MbrEditor& editor) {
  if (wanted.deleteSlot) {
    const std::size_t slot = *wanted.deleteSlot - 1;
    if (!mayGiveUpSlot(context.ui, editor, slot)) return notConfirmed(context);
    editor.remove(slot);
  }
  if (wanted.insert)
    if (CommandResult result = insertPart(context, wanted, drive, editor); !result.succeeded())
      return result;
  if (wanted.setActive) editor.setActive(*wanted.setActive - 1);
  if (wanted.fillEndChs) editor.fillEndChs();
  if (wanted.bootCode) editor.installBootCode(*wanted.bootCode);
  if (wanted.clearSignature) editor.clearSignature();
  if (wanted.signature) editor.setSignature(*wanted.signature);
  return {};
}

CommandResult change(CommandContext& context, const MbrWish& wanted, Target& target,
                     MbrEditor& editor) {
  Drive& drive = *target.drive;
  const bool hadErrors = drive.table().hasErrors();
  if (CommandResult result = edit(context, wanted, drive, editor); !result.succeeded())
    return result;
  if (!editor.isChanged()) {
    show(context, editor);
    return endChange(context, target, hadErrors, {});
  }
  if (!context.ui.confirm(Consent::general, "",
                          "The boot sector of this disk is changed.\nDisk: " +
                              describeDisk(drive.disk()) + "\nAre you sure you want to continue?"))
    return notConfirmed(context);
  std::string keptTable;
  const FlowResult flow =
      applyMbrEdit(context.session.context(context.ui), drive, editor, keptTable);
  CommandResult result = resultOfFlow(flow, context.ui, "The boot sector was not changed.");
  if (!result.succeeded()) return result;
  show(context, editor);
  return endChange(context, target, hadErrors, std::move(result));
}

class MbrCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  MbrWish wanted_;
};

void MbrCommand::declare(OptionSet& options, CommonOptions& common) {
  constexpr const char* kSlotForm = "a slot: 1 to 4";
  declareTarget(options, common);
  options.value("--set-active", "SLOT", wanted_.setActive, parseSlot, kSlotForm,
                "Make this slot, 1 to 4, the only active one");
  options.value("--boot-code", "CODE", wanted_.bootCode, parseBootCode,
                "a boot code: standard, new",
                "Install boot code: standard, or new (measures into a TPM)");
  DeclaredOption insert =
      options.value("--insert", "N", wanted_.insert, parseCount, "a partition's number",
                    "Put partition N into the slot of --slot");
  DeclaredOption slot = options.value("--slot", "SLOT", wanted_.slot, parseSlot, kSlotForm,
                                      "The slot, 1 to 4, that --insert fills");
  insert.needs(slot);
  slot.needs(insert);
  options.value("--delete-slot", "SLOT", wanted_.deleteSlot, parseSlot, kSlotForm,
                "Clear this slot, 1 to 4");
  options.flag("--fill-echs", wanted_.fillEndChs,
               "Make the last CHS address of every used slot the largest");
  const DeclaredOption clear =
      options.flag("--clear-signature", wanted_.clearSignature, "Clear the disk signature");
  options
      .value("--signature", "NUMBER", wanted_.signature, parseSignature, "a number of 32 bits",
             "Set the disk signature: decimal, 0x hexadecimal or 0 octal")
      .excludes(clear);
  options.flag("--overwrite", wanted_.overwrite,
               "Also give up a GPT whose place holder is in the slot");
  declareWriting(options, common);
}

CommandResult MbrCommand::run(CommandContext& context) {
  context.ui.offerInsistence("or with --overwrite");
  if (wanted_.overwrite) context.ui.agreeTo(Consent::insist);
  const bool changes = wanted_.changesAnything();
  Target target;
  if (CommandResult result =
          openTarget(context, changes ? TargetUse::change : TargetUse::look, target);
      !result.succeeded())
    return result;
  if (target.drive->table().isWholeDisk() && !target.drive->table().isBesideVolume())
    return refused("This disk has no partition table; a file system fills all of it.");
  MbrEditor editor(*target.drive);
  if (const Failure error = editor.load(); error != Error::none)
    return failedBecause("The boot sector cannot be read.", error);
  if (changes) return change(context, wanted_, target, editor);
  show(context, editor);
  return {};
}

}  // namespace

const CommandRow kMbrCommand = {"mbr", "Show the four slots of the boot sector, or edit it",
                                makeCommand<MbrCommand>};

}  // namespace tallowin
