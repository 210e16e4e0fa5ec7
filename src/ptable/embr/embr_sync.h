// Bringing an EMBR up to date after another program changed the MBR.
#pragma once

#include <functional>

#include "ptable/drive.h"

namespace tallowin {

struct EmbrSync {
  bool wrote = false;       // something differed, and was written
  bool mayOverlap = false;  // a partition is new, or grew
  bool tableFull = false;   // a new partition found no entry
};

// The MBR is the source of truth. Nothing is done without an EMBR, without a signature in sector 0,
// or while a slot there is the place holder of a GPT. `beforeWrite` is called once when something
// differs; it answers whether to go on. read, tableWriteFailed; cancelled by `beforeWrite`;
// noFreeEntry, sectorsInUse: the EMBR has to grow and cannot.
Failure synchronizeEmbr(Drive& drive, const std::function<bool()>& beforeWrite, EmbrSync& done);

}  // namespace tallowin
