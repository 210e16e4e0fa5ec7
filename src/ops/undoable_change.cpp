#include "ops/undoable_change.h"

#include "move/undo_log.h"
#include "ops/error_text.h"
#include "ops/rehearsal.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

constexpr u64 kLogOffset = 0;  // in the body of the journal

FlowResult refuse(const OperationContext& context, const Failure& failure) {
  context.ui.errorBox(errorText(failure) + "\n\nNothing was changed.");
  return {FlowEnd::refused, failure};
}

// Everything that was put back is what other programs see too.
Failure putBack(Drive& drive, WorkJournal& journal) {
  if (const Failure failed = playUndoLog(journal.file(), kLogOffset, drive.disk())) return failed;
  const Failure unread = drive.reread();
  const Settled settled = drive.settle();
  return settled.failure ? settled.failure : unread;
}

std::string laterText(const WorkJournal& journal) {
  return "The journal " + journal.path() +
         "\nis kept. Continue or undo the operation when the disk can be written again.";
}

FlowResult runLogged(const OperationContext& context, Drive& drive, const UndoableWish& wish,
                     const ExtentList& inUse, WorkJournal& journal, const DriveChange& change,
                     UndoTold& told) {
  UndoLogDisk logged(drive.disk(), journal.file(), kLogOffset);
  if (wish.volume)
    logged.keepOnly(wish.volume->startSector, wish.volume->endSector - wish.volume->startSector + 1,
                    inUse);
  std::unique_ptr<Drive> onLog;
  // The drive goes before the disk that it stands on.
  const std::shared_ptr<DiskDevice> shared(&logged, [](DiskDevice*) {});
  if (const Failure failed = drive.openOn(shared, onLog)) return refuse(context, failed);
  const FlowResult result = change(*onLog);
  const Failure unflushed = logged.flush();
  // Nothing was overwritten that could be missed.
  if (logged.isEmpty()) told = UndoTold::onFailure;
  if (result.succeeded() && unflushed) {
    context.ui.errorBox(errorText(unflushed));
    return {FlowEnd::failed, unflushed};
  }
  return result;
}

}  // namespace

FlowResult undoByLog(const OperationContext& context, Drive& drive, WorkJournal& journal,
                     UndoTold told) {
  if (const Failure failed = putBack(drive, journal)) {
    context.ui.errorBox("What was changed could not be put back.\n" + errorText(failed) + "\n\n" +
                        laterText(journal));
    return {FlowEnd::failed, failed};
  }
  if (const Failure failed = journal.end()) {
    context.ui.errorBox("All is as it was before, but the journal could not be removed.\n" +
                        errorText(failed));
    return {FlowEnd::failed, failed};
  }
  if (told == UndoTold::always)
    context.ui.noticeBox("What was changed was put back: all is as it was before.");
  return {};
}

FlowResult runUndoable(const OperationContext& context, Drive& drive, const UndoableWish& wish,
                       const DriveChange& change) {
  DiskWriteScope scope(context, drive);
  if (const auto stopped = scope.begin(wish.target)) return *stopped;
  if (!context.options.keepJournal || isRehearsal(drive)) {
    const FlowResult result = change(drive);
    static_cast<void>(drive.reread());
    return result;
  }
  ExtentList inUse;
  if (wish.volume)
    if (const Failure failed = wish.inUse(drive, inUse)) return refuse(context, failed);
  WorkRecord record = wish.record;
  if (wish.target.extent()) setArea(*wish.target.extent(), record);
  std::unique_ptr<WorkJournal> journal;
  if (const Failure failed = WorkJournal::begin(context, drive, wish.operation, wish.what,
                                                std::move(record), {}, {}, journal))
    return refuse(context, failed);
  UndoTold told = UndoTold::always;
  const FlowResult result = runLogged(context, drive, wish, inUse, *journal, change, told);
  if (result.succeeded()) {
    if (const Failure failed = journal->end())
      context.ui.noticeBox("The journal could not be removed.\n" + errorText(failed));
    static_cast<void>(drive.reread());
    return result;
  }
  const FlowResult undone = undoByLog(context, drive, *journal, told);
  if (!undone.succeeded()) return undone;
  // Whatever table was there, it is the old one now.
  const bool namesTable =
      result.code == Error::writeFailedNewTable || result.code == Error::writeFailedTableUnknown;
  return namesTable ? FlowResult{result.end, result.code.as(Error::tableNotUpdated)} : result;
}

}  // namespace tallowin
