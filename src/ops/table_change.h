// What stands around everything that writes to a disk.
#pragma once

#include <optional>
#include <string>

#include "ops/operation_context.h"
#include "ops/placement.h"
#include "ptable/drive.h"

namespace tallowin {

// What is about to be written, besides the table itself.
class WriteTarget {
 public:
  // Nothing that a mounted partition would mind.
  static WriteTarget tableOnly() { return {}; }
  // Sectors that nothing may use: a partition that goes, changes or is made there.
  static WriteTarget sectors(const SectorExtent& extent) {
    WriteTarget target;
    target.extent_ = extent;
    return target;
  }
  // All of the disk, of which nothing may be in use.
  static WriteTarget wholeDisk() {
    WriteTarget target;
    target.isWholeDisk_ = true;
    return target;
  }

  const std::optional<SectorExtent>& extent() const { return extent_; }
  bool isWholeDisk() const { return isWholeDisk_; }

 private:
  WriteTarget() = default;

  std::optional<SectorExtent> extent_;
  bool isWholeDisk_ = false;
};

// The shared beginning of every operation that writes. The world changes while a question stands:
// the disk is locked against other programs, for the life of the object, then it must still be the
// one that was opened, the table the one that was read, and the target still free.
class DiskWriteScope {
 public:
  DiskWriteScope(const OperationContext& context, Drive& drive)
      : context_(context), drive_(drive) {}

  // Nothing: go on. Else the reason was told, and nothing was changed.
  std::optional<FlowResult> begin(const WriteTarget& target);
  // The same without taking the lock again, after a question that could not be asked before: other
  // programs need not mind the lock.
  std::optional<FlowResult> lookAgain();

 private:
  const OperationContext& context_;
  Drive& drive_;
  WriteTarget target_ = WriteTarget::tableOnly();
  std::optional<DiskChangeLock> lock_;
};

// A change of the partition table. Before: a DiskWriteScope, and a copy of the old table is kept.
// After: everything is on the medium, the kernel knows the new table, and the drive was read again.
//
//   TableChange change(context, drive);
//   if (auto stopped = change.begin(WriteTarget::sectors(extent))) return *stopped;
//   const Failure failed = change.end(drive.remove(entry));
class TableChange {
 public:
  TableChange(const OperationContext& context, Drive& drive)
      : context_(context), drive_(drive), scope_(context, drive) {}

  // Nothing: go on. Else the reason was told, and nothing was changed.
  std::optional<FlowResult> begin(const WriteTarget& target);
  // See DiskWriteScope; while nothing was written.
  std::optional<FlowResult> lookAgain() { return scope_.lookAgain(); }
  // Takes the end of the change and gives it back; or writeFailedNewTable, when the change went
  // well and cannot be made safe. Entries on hand are stale afterwards. Says when a restart is
  // needed, and names the kept table when nobody knows which table is in place. The disk stays
  // locked.
  Failure end(const Failure& changed);

  // The file with the old table; empty when the user went on without one.
  const std::string& keptTable() const { return keptTable_; }

 private:
  std::optional<FlowResult> keepTable();

  const OperationContext& context_;
  Drive& drive_;
  DiskWriteScope scope_;
  std::string keptTable_;
};

// A free block that has some of these sectors, in the table as it is now; null when there is none.
PartitionEntry* findFreeBlock(Drive& drive, const SectorExtent& extent);

// The used partition or volume that starts at `startSector`; null when there is none. For entries
// that went stale.
PartitionEntry* findByStart(Drive& drive, u64 startSector);

}  // namespace tallowin
