// What stands around every change of a disk's partition table.
#pragma once

#include <optional>
#include <string>

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Before: the disk is locked against other programs, for the life of the object, and a copy of the
// old table is kept. After: everything is on the medium, the kernel knows the new table, and the
// drive was read again.
//
//   TableChange change(context, drive);
//   if (auto stopped = change.begin()) return *stopped;
//   const Failure error = drive.remove(entry);
//   change.end();
class TableChange {
 public:
  TableChange(const OperationContext& context, Drive& drive) : context_(context), drive_(drive) {}

  // Nothing: go on. Else the reason was told, and nothing was changed.
  std::optional<FlowResult> begin();
  // Entries on hand are stale afterwards. Says when a restart is needed.
  void end();

  // The file with the old table; empty when the user went on without one.
  const std::string& keptTable() const { return keptTable_; }

 private:
  const OperationContext& context_;
  Drive& drive_;
  std::optional<DiskChangeLock> lock_;
  std::string keptTable_;
};

// Locks a disk whose sectors are changed but not its table. Nothing: `lock` is held.
std::optional<FlowResult> lockForChange(const OperationContext& context, Drive& drive,
                                        std::optional<DiskChangeLock>& lock);

// The used partition or volume that starts at `startSector`; null when there is none. For entries
// that went stale.
PartitionEntry* findByStart(Drive& drive, u64 startSector);

}  // namespace tallowin
