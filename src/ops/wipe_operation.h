// Wiping as an operation of this program: its random bytes, and what is told of it.
#pragma once

#include <string>

#include "ops/operation_context.h"
#include "ops/placement.h"
#include "ptable/drive.h"
#include "wipe/wipe.h"

namespace tallowin {

// How a wipe is done; what a dialog or a command line chooses.
struct WipeMethodChoice {
  WipeType type = WipeType::zeros;
  std::string passesText;  // of userDefined
  bool verifies = false;   // a validation behind the last pass
};

// Its passes. invalidWipePattern; groups of bytes may be as long as a sector.
Failure passesFor(const WipeMethodChoice& choice, u32 sectorSizeBytes,
                  std::vector<WipePass>& passes);
// "Random - 4 Pass + 1", or the text of the user.
std::string methodText(const WipeMethodChoice& choice);

// All that is to be known of a wipe when it is over.
struct WipeRecord {
  WipeMethodChoice method;
  SectorExtent extent;
  WipeReport report;
  Failure ended;
  std::string startedAt;  // local date and time
  std::string endedAt;
};

// The disk must be locked. Gathers entropy where the passes need it. Errors of wipeRange and
// passesFor.
Failure wipeExtent(const OperationContext& context, Drive& drive, const SectorExtent& extent,
                   const WipeMethodChoice& method, WipeRecord& record);

// What was done, for the user and for a file: method, passes, sectors, times, the disk, and some of
// what is read back. It says done of nothing that was not.
std::string wipeCertificate(Drive& drive, const WipeRecord& record);

}  // namespace tallowin
