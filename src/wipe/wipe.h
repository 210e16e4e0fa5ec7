// Overwrites sectors, so that what they held cannot be read back.
#pragma once

#include <functional>
#include <vector>

#include "base/host.h"
#include "base/job.h"
#include "disk/sector_range.h"
#include "wipe/random_pool.h"
#include "wipe/wipe_pattern.h"

namespace tallowin {

struct WipeWish {
  std::vector<WipePass> passes;
  // Read-back found other bytes than were written, at this sector. True: go on, and validate
  // nothing more.
  std::function<bool(u64 lba)> goesOnAfterMismatch = [](u64) { return false; };
};

// What one pass came to, in sectors.
struct WipePassReport {
  WipePass::Kind kind = WipePass::Kind::fixed;
  u64 done = 0;        // written or verified, from the start of the range; passed over ones too
  u64 failed = 0;      // of these, could not be written or read
  u64 mismatched = 0;  // of a validation: pieces that differed, then it was left off
  bool isWhole = false;
};

struct WipeReport {
  std::vector<WipePassReport> passes;  // that were begun
  u64 sectors = 0;                     // of the range

  bool isWhole() const;
  u64 failedSectors() const;
  // From the start of the range, by a writing pass that was the last to come so far.
  u64 sectorsDone() const { return passes.empty() ? 0 : passes.front().done; }
};

// Really writes: no hole, no fast way. The phase is wiping, with a pass for each. What was done is
// on the medium when it returns, unless the answer is `flush`. cancelled; read, write and the like,
// with the sector, when the job stopped at it; wipeMismatch; outOfMemory.
Failure wipeRange(const SectorRange& range, const WipeWish& wish, RandomPool& pool, Host& host,
                  Job& job, WipeReport& report);

}  // namespace tallowin
