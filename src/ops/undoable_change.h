// A change of a disk that can be undone as long as it is not finished, by a journal.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "move/extent_list.h"
#include "ops/operation_context.h"
#include "ops/table_change.h"
#include "ops/unfinished_work.h"
#include "ptable/drive.h"

namespace tallowin {

// The change itself, on a drive that keeps what is overwritten. What it answers is told by it.
using DriveChange = std::function<FlowResult(Drive& drive)>;

struct UndoableWish {
  std::string operation;  // by which ResumeFlow finds it again
  std::string what;       // a sentence for the user: "Resizing partition 1 'DATA' of ACME ..."
  WorkRecord record;      // what it needs to be done again
  WriteTarget target = WriteTarget::tableOnly();
  // Sectors of which only those in use are kept, and how these are found once the disk is locked.
  std::optional<SectorExtent> volume;
  std::function<Failure(Drive& drive, ExtentList& inUse)> inUse;
};

// Locks the disk, looks again, and runs the change. When it does not succeed everything is put back
// as it was, and told; a kill or a power cut leaves a journal that continues or undoes it. Without
// journals (Options::keepJournal) it just runs. The drive is read again at the end.
FlowResult runUndoable(const OperationContext& context, Drive& drive, const UndoableWish& wish,
                       const DriveChange& change);

// Puts back what the log of a journal holds and ends the journal. The drive is read again.
enum class UndoTold { always, onFailure };
FlowResult undoByLog(const OperationContext& context, Drive& drive, WorkJournal& journal,
                     UndoTold told);
inline FlowResult undoByLog(const OperationContext& context, Drive& drive, WorkJournal& journal) {
  return undoByLog(context, drive, journal, UndoTold::always);
}

}  // namespace tallowin
