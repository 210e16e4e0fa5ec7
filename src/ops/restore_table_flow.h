// Puts a kept partition table back.
#pragma once

#include "ops/operation_context.h"
#include "ptable/table_backup.h"

namespace tallowin {

// Asks, keeps the table that is there now, and writes `backup` in its place. A disk that has grown
// since then is accepted, and one of the same size whose identity was lost; any other disk has to
// be insisted on. refused: in use, or the copy does not fit, or lies in a partition of the disk;
// nothing was written. failed: as the code says, see restoreTable.
FlowResult restoreTableFlow(const OperationContext& context, Drive& drive,
                            const TableBackup& backup);

// Says what was done to the table and where the old one is kept, beside a button that puts it back.
void tellWithUndo(const OperationContext& context, Drive& drive, const std::string& title,
                  const std::string& what, const std::string& keptTable);

}  // namespace tallowin
