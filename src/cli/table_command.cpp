// table: keeps the partition table in a file, and puts it back.
#include <cstdio>
#include <filesystem>

#include "cli/commands.h"
#include "cli/target.h"
#include "ops/properties_flow.h"
#include "ops/restore_table_flow.h"
#include "ops/synchronize_flow.h"
#include "ptable/table_backup.h"

namespace tallowin {
namespace {

// Only a kept table gives way to another one.
CommandResult checkPlace(CommandContext& context, const std::string& file) {
  std::error_code failure;
  const std::filesystem::file_status status = std::filesystem::status(file, failure);
  if (!std::filesystem::exists(status)) return {};
  const std::string other = "; choose another name.";
  if (std::filesystem::equivalent(file, context.options.target, failure))
    return refused("'" + file + "' is the disk itself" + other);
  if (!std::filesystem::is_regular_file(status))
    return refused("'" + file + "' is no regular file" + other);
  if (!isTableBackup(file)) return refused("'" + file + "' is there and is no kept table" + other);
  if (context.ui.confirm(Consent::general, "", "Replace the file '" + file + "'?")) return {};
  return refused("'" + file + "' is there already; choose another name, or replace it with --yes.");
}

CommandResult backup(CommandContext& context, const std::string& file) {
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::look, target); !result.succeeded())
    return result;
  if (CommandResult result = checkPlace(context, file); !result.succeeded()) return result;
  TableBackup table;
  Failure error = takeTableBackup(*target.drive, context.session.host().secondsSinceEpoch(), table);
  if (error != Error::none) return failedBecause("The table could not be kept.", error);
  error = writeTableBackup(table, file);
  if (error != Error::none) return failedBecause("'" + file + "' could not be written.", error);
  if (context.options.json) {
    context.json.text("file", file);
    context.json.number("sectors", table.sectors.size());
  } else {
    std::printf("Kept %zu sectors of the partition table in %s\n", table.sectors.size(),
                file.c_str());
  }
  return {};
}

CommandResult restore(CommandContext& context, const std::string& file, bool otherDisk) {
  context.ui.offerInsistence("or with --other-disk");
  if (otherDisk) context.ui.agreeTo(Consent::insist);
  TableBackup table;
  if (const Failure error = readTableBackup(file, table); error != Error::none)
    return failedBecause("'" + file + "' cannot be put back.", error);
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  const FlowResult flow =
      restoreTableFlow(context.session.context(context.ui), *target.drive, table);
  CommandResult result = resultOfFlow(flow, context.ui, "The table was not put back.");
  if (!result.succeeded()) return result;
  if (context.options.json)
    context.json.number("restored_sectors", table.sectors.size());
  else
    std::printf("Put back %zu sectors of the partition table\n", table.sectors.size());
  // The table that is put back may have had errors when it was kept.
  return endChange(context, target, true, std::move(result));
}

void reportRepair(CommandContext& context, const Drive& drive, const std::string& before) {
  if (context.options.json) {
    context.json.text("health_before", before);
    context.json.textOrNull("gpt_health", gptHealthFor(drive));
  } else if (before == gptHealthFor(drive)) {
    std::printf("Both copies of the GPT are sound; there is nothing to repair.\n");
  } else {
    std::printf("Repaired the GPT (%s): both copies are sound.\n", before.c_str());
  }
}

CommandResult repair(CommandContext& context) {
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  if (drive.changesAllowed() != Error::none)
    return refused(onOneLine(drive.changeRefusal()), drive.changesAllowed());
  if (!drive.gptHealth())
    return refused("This disk has no GPT; only a GPT has two copies that can be repaired.",
                   Error::unsupportedForm);
  const std::string before = gptHealthWord(*drive.gptHealth());
  const bool hadErrors = drive.table().hasErrors();
  CommandResult result;
  if (!drive.gptHealth()->isSound()) {
    const FlowResult flow = repairGptFlow(context.session.context(context.ui), drive);
    // Its number is shared with a code of file systems, which has other words.
    if (flow.code == Error::backupOverlaps)
      return refused(
          "A partition lies where the backup of the table belongs. Nothing was changed. Give the "
          "disk its old size, or delete that partition first.",
          flow.code);
    result = resultOfFlow(flow, context.ui, "The table was not repaired.");
    if (!result.succeeded()) return result;
    if (!drive.gptHealth() || !drive.gptHealth()->isSound())
      return refused("The GPT was written, but is not sound when it is read back; list it.",
                     Error::gptTableCheck);
  }
  reportRepair(context, drive, before);
  return endChange(context, target, hadErrors, std::move(result));
}

CommandResult synchronize(CommandContext& context) {
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  if (!drive.isEmbr())
    return refused("This disk has no EMBR; only an EMBR repeats what the boot sector says.",
                   Error::unsupportedForm);
  const bool hadErrors = drive.table().hasErrors();
  EmbrSync sync;
  const FlowResult flow = synchronizeEmbrFlow(context.session.context(context.ui), drive, sync);
  const char* const notDone = "The EMBR was not brought up to date.";
  if (flow.end == FlowEnd::failed) return failedBecause(notDone, flow.code);
  CommandResult result = resultOfFlow(flow, context.ui, notDone);
  if (!result.succeeded()) return result;
  if (sync.mayOverlap)
    context.ui.noticeBox("A partition is new or has grown and may overlap another one; list it.");
  if (context.options.json)
    context.json.boolean("synchronized", sync.wrote);
  else
    std::puts(sync.wrote ? "The EMBR now says what the boot sector says."
                         : "The EMBR says what the boot sector says; nothing was to be done.");
  if (sync.tableFull)
    return refused("A partition of the boot sector found no entry: the EMBR is full. Delete one.",
                   Error::noFreeEntry);
  return endChange(context, target, hadErrors, std::move(result));
}

enum class TableAction { backup, restore, repair, synchronize };

std::optional<TableAction> parseTableAction(std::string_view text) {
  if (text == "backup") return TableAction::backup;
  if (text == "restore") return TableAction::restore;
  if (text == "repair") return TableAction::repair;
  if (text == "synchronize") return TableAction::synchronize;
  return std::nullopt;
}

class TableCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  TableAction action_ = TableAction::backup;
  std::string file_;
  bool otherDisk_ = false;
};

void TableCommand::declare(OptionSet& options, CommonOptions& common) {
  options
      .value("ACTION", "", action_, parseTableAction, "backup, restore, repair or synchronize",
             "backup: keep the partition table in FILE; restore: put it back; repair: make both "
             "copies of a GPT sound; synchronize: an EMBR follows the boot sector that another "
             "program changed")
      .required();
  declareTarget(options, common);
  options.text("FILE", "TEXT", file_, "The file that holds the table, of backup and restore");
  options.flag("--other-disk", otherDisk_, "restore: also a table that was kept of another disk");
  declareWriting(options, common);
  options.check([this]() -> std::string {
    const bool takesFile = action_ == TableAction::backup || action_ == TableAction::restore;
    if (takesFile && file_.empty()) return "FILE is required";
    if (otherDisk_ && action_ != TableAction::restore) return "--other-disk is for restore";
    return !takesFile && !file_.empty() ? "FILE is for backup and restore" : "";
  });
}

CommandResult TableCommand::run(CommandContext& context) {
  switch (action_) {
    case TableAction::backup:
      return backup(context, file_);
    case TableAction::restore:
      return restore(context, file_, otherDisk_);
    case TableAction::repair:
      return repair(context);
    case TableAction::synchronize:
      break;
  }
  return synchronize(context);
}

}  // namespace

const CommandRow kTableCommand = {"table",
                                  "Keep the partition table in a file, put it back, or repair it",
                                  makeCommand<TableCommand>};

}  // namespace tallowin
