// The finishing stage of a copy: boot records, tables and label, within a change of the table.
#pragma once

#include "ops/move_partition.h"
#include "ops/table_change.h"
#include "ops/unfinished_work.h"

namespace tallowin {

// The new entry of a copy of `source` that takes these sectors of `block`.
NewEntry copiedEntry(Drive& sourceDrive, const PartitionEntry& source, Drive& drive,
                     const PartitionEntry& block, const SectorExtent& extent);

// What finishCopy would answer of the tables, before anything is copied; nothing is written.
// sectorsInUse: something of another program lies there, which `content` keeps.
Failure tryCopy(const Drive& drive, const CopyPlan& plan, TrackContent content);

// Whatever else lies where the copy goes was given up before. Locks the target's disk, keeps the
// old table, and writes all that makes the copy a partition. A source that is to go is taken out of
// the table first, and put back when the copy cannot take its place. What failed is told;
// tableNotUpdated, or which table is on the disk.
FlowResult finishCopy(const OperationContext& context, Drive& drive, const CopyPlan& plan);

// What a journal has to hold for finishCopy to be done again, on the source's own disk.
WorkRecord recordOf(const CopyPlan& plan);
CopyPlan copyPlanOf(const WorkRecord& record, Drive& drive);

}  // namespace tallowin
