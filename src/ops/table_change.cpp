#include "ops/table_change.h"

#include "base/text.h"
#include "ops/error_text.h"
#include "ops/target_text.h"
#include "ptable/table_backup.h"
#include "settings/program_folders.h"

namespace tallowin {

std::optional<FlowResult> lockForChange(const OperationContext& context, Drive& drive,
                                        std::optional<DiskChangeLock>& lock) {
  lock.emplace(drive.disk());
  if (lock->held()) return std::nullopt;
  context.ui.errorBox(
      format("Another program is changing this disk (%s).\n"
             "Nothing was changed. Please try again when it has ended.",
             describeDisk(drive.disk()).c_str()));
  return FlowResult{FlowEnd::refused, Error::lockNotMade, 0};
}

std::optional<FlowResult> TableChange::begin() {
  if (auto stopped = lockForChange(context_, drive_, lock_)) return stopped;
  const std::string folder = context_.folders.backupFolder();
  const Failure error = makeFolders(folder)
                            ? keepOldTable(drive_, folder, context_.host, &keptTable_)
                            : Error::cannotCreate;
  if (error == Error::none) return std::nullopt;
  if (error == Error::read) {
    context_.ui.errorBox(tableErrorText(error));
    return FlowResult{FlowEnd::failed, error, 0};
  }
  const bool goesOn =
      context_.ui.confirm(Consent::withoutCopy, "",
                          format("A copy of the old partition table could not be kept in\n%s.\n\n"
                                 "Do you want to continue without it?",
                                 folder.c_str()),
                          MessageKind::warning, ButtonSet::continueCancel);
  if (goesOn) return std::nullopt;
  return FlowResult{FlowEnd::cancelled, Error::cancelled, 0};
}

void TableChange::end() {
  const Settled settled = drive_.settle();
  static_cast<void>(drive_.reread());
  if (settled.failure)
    context_.ui.errorBox("The disk did not confirm that the change is stored:\n" +
                         tableErrorText(settled.failure));
  if (settled.kernel == KernelTable::upToDate) return;
  context_.ui.noticeBox(
      "The partition table was changed, but Linux still uses the old one,\n"
      "because a partition of this disk is in use.\n\n"
      "Please restart the computer before you use this disk.");
}

PartitionEntry* findByStart(Drive& drive, u64 startSector) {
  const auto starts = [startSector](const PartitionEntry& entry) {
    return !entry.isFree() && entry.startSector == startSector;
  };
  for (const auto& entry : drive.table().entries) {
    if (starts(*entry)) return entry.get();
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries)
      if (starts(*volume)) return volume.get();
  }
  return nullptr;
}

}  // namespace tallowin
