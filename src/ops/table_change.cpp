#include "ops/table_change.h"

#include "base/stop_request.h"
#include "base/text.h"
#include "move/undo_log.h"
#include "ops/error_text.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/unfinished_work.h"
#include "ptable/table_backup.h"
#include "settings/program_folders.h"

namespace tallowin {
namespace {

FlowResult refuse(const OperationContext& context, const Failure& failure) {
  context.ui.errorBox(tableErrorText(failure));
  return {FlowEnd::refused, failure};
}

// Whether the disk still holds what the drive was read from, as far as that could be read.
Failure checkTable(const Drive& drive) {
  if (drive.changesAllowed()) return {};
  const Failure failed = drive.checkUnchanged();
  return failed == Error::tableReadFailed ? Failure() : failed;
}

// Something that was cut short comes first; what carries it on stands on its log.
std::optional<FlowResult> refuseWhenUnfinished(const OperationContext& context, Drive& drive) {
  if (dynamic_cast<const UndoLogDisk*>(&drive.disk())) return std::nullopt;
  const std::optional<UnfinishedWork> work = unfinishedWorkOn(context.folders, drive);
  if (!work) return std::nullopt;
  context.ui.errorBox(unfinishedText(*work));
  return FlowResult{FlowEnd::refused, Error::unfinishedWork};
}

// The first row of the table for which `isIt` holds; null when there is none.
template <typename Condition>
PartitionEntry* findRow(Drive& drive, Condition isIt) {
  for (const auto& entry : drive.table().entries) {
    if (isIt(*entry)) return entry.get();
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries)
      if (isIt(*volume)) return volume.get();
  }
  return nullptr;
}

}  // namespace

std::optional<FlowResult> DiskWriteScope::begin(const WriteTarget& target) {
  lock_.emplace(drive_.disk());
  if (!lock_->held()) {
    context_.ui.errorBox(
        format("Another program is changing this disk (%s).\n"
               "Nothing was changed. Please try again when it has ended.",
               describeDisk(drive_.disk()).c_str()));
    return FlowResult{FlowEnd::refused, Error::lockNotMade};
  }
  if (auto stopped = refuseWhenUnfinished(context_, drive_)) return stopped;
  target_ = target;
  return lookAgain();
}

std::optional<FlowResult> DiskWriteScope::lookAgain() {
  if (stopRequested()) return FlowResult{FlowEnd::cancelled, Error::cancelled};
  if (const Failure failed = drive_.disk().checkSameDisk()) return refuse(context_, failed);
  if (const Failure failed = checkTable(drive_)) return refuse(context_, failed);
  // Nobody knows whose those sectors are.
  const bool isBoth = drive_.table().isBesideVolume();
  if (isBoth && (target_.isWholeDisk() || target_.extent()))
    return refuseWhenReadOnlyTable(context_, drive_);
  if (target_.isWholeDisk()) return refuseWhenDriveInUse(context_, drive_);
  if (!target_.extent()) return std::nullopt;
  return refuseWhenInUse(context_, drive_, *target_.extent());
}

std::optional<FlowResult> TableChange::begin(const WriteTarget& target) {
  if (auto stopped = scope_.begin(target)) return stopped;
  if (auto stopped = keepTable()) return stopped;
  // The last moment at which nothing was written.
  if (stopRequested()) return FlowResult{FlowEnd::cancelled, Error::cancelled};
  return std::nullopt;
}

std::optional<FlowResult> TableChange::keepTable() {
  const std::string folder = context_.folders.backupFolder();
  if (folder.empty()) return std::nullopt;  // none is wanted
  Failure failed = makeFolders(folder);
  if (!failed) failed = keepOldTable(drive_, folder, context_.host, &keptTable_);
  if (!failed) return std::nullopt;
  if (failed == Error::read) return refuse(context_, failed);
  const bool goesOn = context_.ui.confirm(
      Consent::withoutCopy, "",
      format("A copy of the old partition table of this disk (%s)\n"
             "could not be kept in %s.\n%s\n\nDo you want to continue without it?",
             describeDisk(drive_.disk()).c_str(), folder.c_str(), errorText(failed).c_str()),
      MessageKind::warning, ButtonSet::continueCancel);
  if (goesOn) return lookAgain();
  return FlowResult{FlowEnd::cancelled, Error::cancelled};
}

Failure TableChange::end(const Failure& changed) {
  const Settled settled = drive_.settle();
  const Failure unread = drive_.reread();
  if (settled.kernel == KernelTable::restartNeeded)
    context_.ui.noticeBox(
        "The partition table was changed, but Linux still uses the old one,\n"
        "because a partition of this disk is in use.\n\n"
        "Please restart the computer before you use this disk.");
  if (changed == Error::writeFailedTableUnknown && !keptTable_.empty())
    context_.ui.noticeBox("The table as it was before is kept in\n" + keptTable_);
  if (changed) return changed;
  // The change itself was flushed when it was made; what came after it may not be on the medium.
  return settled.failure ? settled.failure.as(Error::writeFailedNewTable) : unread;
}

PartitionEntry* findFreeBlock(Drive& drive, const SectorExtent& extent) {
  return findRow(drive, [&extent](const PartitionEntry& entry) {
    return entry.isFree() && entry.startSector <= extent.endSector &&
           extent.startSector <= entry.endSector;
  });
}

PartitionEntry* findByStart(Drive& drive, u64 startSector) {
  return findRow(drive, [startSector](const PartitionEntry& entry) {
    return !entry.isFree() && entry.startSector == startSector;
  });
}

}  // namespace tallowin
