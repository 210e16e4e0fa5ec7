// Where a partition goes together with what lies in it.
#pragma once

#include <optional>
#include <vector>

#include "base/types.h"

namespace tallowin {

// Of a volume in an extended partition.
struct MovedVolume {
  u64 containerStart = 0;
  u64 oldEbr = 0;
  u64 newEbr = 0;
  std::optional<u64> previousEbr = {};  // nothing: it begins the chain
  u8 slot = 0;                          // of its EBR
  std::vector<u8> ebr = {};             // the sector, as it lay at oldEbr
};

// A plain value, settled before the sectors are moved: on their way they may run over the EBR of a
// volume, and the table on the disk says less then than before. All positions are absolute.
//
//   | previous EBR | ...   | EBR | gap | volume ...          |
//                            oldEbr    oldStart              oldStart + sectorCount
struct EntryMove {
  u64 oldStart = 0;
  u64 newStart = 0;
  u64 sectorCount = 0;
  u8 type = 0;  // in its CHS or LBA variant for the new place

  using Volume = MovedVolume;
  std::optional<Volume> volume = {};  // nothing: an entry of the top level

  u64 newEnd() const { return newStart + sectorCount - 1; }  // inclusive
};

}  // namespace tallowin
