#include "disk/faulty_disk.h"

#include <algorithm>

namespace tallowin {

bool FaultyDisk::touches(const std::vector<SectorRange>& ranges, u64 lba, u32 count) {
  return std::any_of(ranges.begin(), ranges.end(), [&](const SectorRange& range) {
    return lba <= range.last && range.first <= lba + (count - 1);
  });
}

bool FaultyDisk::flush() {
  ++flushes_;
  return !failFlush_ && inner_.flush();
}

bool FaultyDisk::transferIn(u64 lba, void* buffer, u32 count) {
  if (readFault_.hits(reads_++) || touches(badReads_, lba, count)) return false;
  return inner_.readSectors(lba, buffer, count);
}

bool FaultyDisk::transferOut(u64 lba, const void* buffer, u32 count) {
  const bool fails = writeFault_.hits(writes_++) || touches(badWrites_, lba, count);
  if (!fails) return inner_.writeSectors(lba, buffer, count);
  if (afterWriteFault_ == After::halfWritten)
    static_cast<void>(inner_.writeSectors(lba, buffer, count / 2));
  return false;
}

}  // namespace tallowin
