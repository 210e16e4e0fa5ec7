// Partitions that no table names any more, looked for in sectors that nobody has.
#pragma once

#include <optional>
#include <vector>

#include "base/job.h"
#include "probe/lost_volume.h"
#include "ptable/drive.h"

namespace tallowin {

// Where partitions are looked for, and may lie. Sectors of the disk, the last one inclusive.
struct LostSearch {
  u64 firstSector = 0;
  u64 lastSector = 0;
  bool isInsideExtended = false;
};

struct LostPartition {
  std::string kind;  // "FAT32", "ext4", "Extended"
  u16 type = 0;      // for the table of the drive, in its CHS or LBA form
  u64 startSector = 0;
  u64 endSector = 0;  // inclusive
  // False: what was found does not say it, and it is taken to reach to the next one.
  bool isSizeKnown = true;
  std::string label;  // UTF-8
  Confidence confidence = Confidence::sure;
  // What lies in it, or around it, names its place just as well: one of them is of an earlier time.
  bool isContested = false;
  // What lies in it, or around it, was used after it.
  bool isEarlier = false;
  // It lies in another one and does not say where it belongs: it may be an image in a file.
  bool isInside = false;
  u64 usedAt = 0;       // see LostVolume
  u32 volumeCount = 0;  // of an extended partition, which comes back with them
  // Inside an extended partition, where its EBR can go; nothing: there is no room for one.
  std::optional<u64> ebrSector;

  bool meets(const LostPartition& other) const {
    return startSector <= other.endSector && other.startSector <= endSector;
  }
};

struct LostReport {
  // By their first sector. Those that are not doubtful do not meet each other.
  std::vector<LostPartition> found;
  u64 unreadableSectors = 0;  // which were passed over
  bool isStopped = false;     // by the job: what was found until then
};

// Reads all of the search's sectors, but for those of partitions that were found with certainty,
// and changes nothing. Asked by the job: phase searching. outOfMemory.
Failure findLostPartitions(Drive& drive, const LostSearch& search, Job& job, LostReport& report);

}  // namespace tallowin
