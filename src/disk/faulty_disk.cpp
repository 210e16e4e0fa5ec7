#include "disk/faulty_disk.h"

#include <algorithm>
#include <cerrno>

namespace tallowin {

bool FaultyDisk::touches(const std::vector<SectorRange>& ranges, u64 lba, u64 count) {
  return std::any_of(ranges.begin(), ranges.end(), [&](const SectorRange& range) {
    return lba <= range.last && range.first <= lba + (count - 1);
  });
}

Failure FaultyDisk::flush() {
  ++flushes_;
  return failFlush_ ? Failure(Error::flush, EIO) : inner_.flush();
}

Failure FaultyDisk::transferIn(u64 lba, void* buffer, u32 count) {
  if (readFault_.hits(reads_++) || touches(badReads_, lba, count)) return {Error::read, EIO, lba};
  return inner_.readSectors(lba, buffer, count);
}

Failure FaultyDisk::transferOut(u64 lba, const void* buffer, u32 count) {
  if (!failsWrite(lba, count)) return inner_.writeSectors(lba, buffer, count);
  if (afterWriteFault_ == After::halfWritten)
    static_cast<void>(inner_.writeSectors(lba, buffer, count / 2));
  return {Error::write, EIO, lba};
}

std::optional<Failure> FaultyDisk::zeroFast(u64 lba, u64 count) {
  if (!failsWrite(lba, count)) return inner_.clearSectors(lba, count);
  if (afterWriteFault_ == After::halfWritten)
    static_cast<void>(inner_.clearSectors(lba, count / 2));
  return Failure(Error::write, EIO, lba);
}

bool FaultyDisk::failsWrite(u64 lba, u64 count) {
  return writeFault_.hits(writes_++) || touches(badWrites_, lba, count);
}

}  // namespace tallowin
