// Wipes a partition, a free block or a whole drive.
#pragma once

#include <optional>
#include <string>

#include "ops/wipe_operation.h"

namespace tallowin {

// Asks for the method in the Wipe Pattern dialog; nothing: cancelled.
std::optional<WipeMethodChoice> chooseWipePattern(const OperationContext& context);

struct WipeOrder {
  // Nothing: all of the drive, its tables too.
  std::optional<SectorExtent> extent;
  std::string what;                        // for the question: "Partition 3 'DATA', 500 MiB"
  std::optional<WipeMethodChoice> method;  // without one the dialog is shown
  std::optional<std::string> certificateFile;
};

// Asks, naming the disk, and wipes; tells what was done, and offers the certificate. The drive is
// read again when its tables may be gone. refused: in use, or the disk cannot be written; nothing
// was. cancelled, failed: what was overwritten was told. doneWithLosses: some sectors were not.
FlowResult wipeFlow(const OperationContext& context, Drive& drive, const WipeOrder& order,
                    WipeRecord& record);

// How a wipe ended, for the user; what a flow answers then. `what` was overwritten: "The drive".
FlowResult tellWipe(const OperationContext& context, const std::string& what,
                    const WipeRecord& record, u32 sectorSizeBytes);

}  // namespace tallowin
