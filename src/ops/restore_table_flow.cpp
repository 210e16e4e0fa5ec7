#include "ops/restore_table_flow.h"

#include <ctime>

#include "base/text.h"
#include "ops/error_text.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

FlowResult refuse(const OperationContext& context, const std::string& text, Failure code) {
  context.ui.errorBox(text);
  return {FlowEnd::refused, code};
}

std::string dateText(u64 secondsSinceEpoch) {
  const auto seconds = static_cast<std::time_t>(secondsSinceEpoch);
  std::tm date = {};
  if (!::localtime_r(&seconds, &date)) return "an unknown date";
  return format("%04d-%02d-%02d %02d:%02d", date.tm_year + 1900, date.tm_mon + 1, date.tm_mday,
                date.tm_hour, date.tm_min);
}

std::string question(Drive& drive, const TableBackup& backup) {
  std::string text =
      format("The partition table that was kept on %s\nreplaces the present one.\n",
             dateText(backup.savedAt).c_str()) +
      "Partitions that were made or changed since then can no longer be reached.\n\nDisk: " +
      describeDisk(drive.disk()) + "\n\nAre you sure you want to continue?";
  return text;
}

std::string otherDiskQuestion(Drive& drive, const TableBackup& backup) {
  return format(
             "The partition table that was kept on %s is that of another disk.\n"
             "The partitions of this disk can no longer be reached when it replaces their table."
             "\n\nKept from: %s, %s\n",
             dateText(backup.savedAt).c_str(), backup.diskName.c_str(),
             sizeText(0, backup.diskSectors - 1, backup.sectorSizeBytes).c_str()) +
         "Written to: " + describeDisk(drive.disk()) + "\n\nAre you sure you want to continue?";
}

// What no answer makes possible.
std::optional<FlowResult> refuseWhenNotFit(const OperationContext& context, Drive& drive,
                                           const TableBackup& backup) {
  if (backup.sectorSizeBytes != drive.sectorSize())
    return refuse(context,
                  format("The kept partition table is that of a disk with sectors of %u bytes.\n"
                         "Nothing was changed.",
                         backup.sectorSizeBytes),
                  Error::backupOfOtherDisk);
  if (const PartitionEntry* entry = overwrittenByRestore(drive, backup))
    return refuse(context,
                  "A part of the kept partition table would be written into this partition:\n" +
                      describeTarget(drive, *entry) +
                      "\nNothing was changed. Delete the partition first if it is not needed.",
                  Error::sectorsInUse);
  return std::nullopt;
}

}  // namespace

FlowResult restoreTableFlow(const OperationContext& context, Drive& drive,
                            const TableBackup& backup) {
  if (const auto stopped = refuseWhenReadOnlyDisk(context, drive)) return *stopped;
  if (const auto stopped = refuseWhenDriveInUse(context, drive)) return *stopped;
  if (const auto stopped = refuseWhenNotFit(context, drive, backup)) return *stopped;
  const bool isOther = isOfOtherDisk(drive, backup);
  if (!context.ui.confirm(isOther ? Consent::insist : Consent::general, "Restore Partition Table",
                          isOther ? otherDiskQuestion(drive, backup) : question(drive, backup)))
    return {FlowEnd::cancelled, Error::cancelled};

  TableChange change(context, drive);
  if (const auto stopped = change.begin(WriteTarget::wholeDisk())) return *stopped;
  const Failure error = change.end(restoreTable(drive, backup, {.otherDisk = isOther}));
  if (error == Error::none) return {};
  if (error == Error::corrupt)
    return refuse(context, "The kept partition table does not fit this disk.\nNothing was changed.",
                  error);
  context.ui.errorBox(tableErrorText(error));
  return {FlowEnd::failed, error};
}

void tellWithUndo(const OperationContext& context, Drive& drive, const std::string& title,
                  const std::string& what, const std::string& keptTable) {
  const ChoiceBox box{title,
                      MessageKind::notice,
                      what + "\n\nThe old partition table is kept in\n" + keptTable,
                      {"\x1B&OK", "&Undo the Change"}};
  if (context.ui.choiceBox(box) == 0) return;
  TableBackup backup;
  if (readTableBackup(keptTable, backup))
    return context.ui.errorBox("The kept partition table could not be read.\nNothing was changed.");
  // It tells how it ended.
  static_cast<void>(restoreTableFlow(context, drive, backup));
}

}  // namespace tallowin
