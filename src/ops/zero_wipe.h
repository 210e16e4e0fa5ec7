// Overwrites sectors with zeros, once.
#pragma once

#include "disk/disk_device.h"
#include "ops/operation_context.h"
#include "ops/placement.h"

namespace tallowin {

struct WipeResult {
  Failure code = Error::none;  // cancelled, write (not ignored, or the flush failed)
  u64 sectorsDone = 0;         // from the start of the extent; ignored failures count as done
  u64 sectorsFailed = 0;       // of these, that could not be written
};

// Shows its progress; the user may stop it, and may ignore write errors. What was done is on the
// medium when it returns. Says nothing at its end.
WipeResult zeroWipe(const OperationContext& context, DiskDevice& disk, const SectorExtent& extent);

}  // namespace tallowin
