// The way back from a GPT to the MBR that the disk had before.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ptable/table_backup.h"

namespace tallowin {

// A kept table that fits what the disk holds now.
struct EarlierMbr {
  u64 savedAt = 0;                 // seconds since 1970, UTC
  std::vector<TableSector> chain;  // boot records of volumes, and what belongs to them
  TableSector mbr;                 // with the types that the partitions have by now
  std::vector<TableSector> track;  // what the GPT was written over
};

// Of the tables kept in `folder` the newest that was an MBR of this disk and had just the
// partitions that its GPT has now, a reserved partition without content apart. Types that were
// changed since, or that the content contradicts, are taken from the GPT. Nothing when there is
// none.
std::optional<EarlierMbr> findEarlierMbr(Drive& drive, const std::string& folder);

// Puts it back, with boot code, disk signature, active mark and volumes. The boot sector decides: a
// power cut leaves the GPT or the MBR. Errors as for convertToMbr.
Failure restoreEarlierMbr(Drive& drive, const EarlierMbr& earlier);

}  // namespace tallowin
