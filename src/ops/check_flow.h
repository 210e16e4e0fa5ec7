// Checking a file system, and mending what needs no choice between its files.
#pragma once

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Only reads, and locks nothing. done: `report` says what was found, a fault or none; else it could
// not be looked at.
FlowResult checkFlow(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                     CheckReport& report);

enum class LostClusters { keep, free };

// The next step for who has a mend that says why not.
inline constexpr char kMakeRoom[] =
    "Please copy some files elsewhere and delete them here, or have the clusters freed "
    "('--lost free').";

// What of a check's mends is to be done.
std::vector<Mend> mendsFor(const CheckReport& report, LostClusters lost);

// Asks about each mend before anything is written; what is not agreed to stays as it is. done:
// what was agreed to is mended and the check finds no fault; failed with corrupt: there still is
// one, which was told. refused: nothing can be mended, one of the mends is not possible, or the
// volume is in use or has changed since it was looked at.
FlowResult repairFlow(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                      LostClusters lost, RepairReport& report);

}  // namespace tallowin
