// Overwrites sectors with zeros, once.
#pragma once

#include "base/job.h"
#include "disk/disk_device.h"
#include "ops/placement.h"

namespace tallowin {

struct WipeReport {
  u64 sectorsDone = 0;    // from the start of the extent; those passed over count as done
  u64 sectorsFailed = 0;  // of these, that could not be written
};

// Really writes: no hole, no fast way. What was done is on the medium when it returns, unless the
// answer is `flush`. cancelled; write and the like, with the sector, when the job stopped at it.
Failure zeroWipe(DiskDevice& disk, const SectorExtent& extent, Job& job, WipeReport& report);

}  // namespace tallowin
