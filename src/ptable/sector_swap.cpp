#include "ptable/sector_swap.h"

#include <algorithm>

namespace tallowin {

Failure TableSectorImage::load() {
  old_.assign(disk_.sectorSize(), 0);
  if (const Failure failed = disk_.readSectors(lba_, old_.data(), 1)) return failed.as(Error::read);
  now_ = old_;
  return {};
}

Failure TableSectorImage::put(std::span<const u8> bytes) {
  if (const Failure failed = disk_.writeSectors(lba_, bytes.data(), 1)) return failed;
  return disk_.flush();
}

bool TableSectorImage::isOnDisk(std::span<const u8> bytes) {
  std::vector<u8> found(bytes.size());
  return !disk_.readSectors(lba_, found.data(), 1) && std::ranges::equal(found, bytes);
}

Failure TableSectorImage::store() {
  // What the new sector points at must be on the medium before it.
  if (const Failure failed = disk_.flush()) return failed.as(Error::write);
  const Failure failed = put(now_);
  if (!failed) return {};
  if (!put(old_)) return failed.as(Error::write);
  // Nothing can be written any more. What the disk answers is the best that is known, and only
  // when it can be flushed it is more than what a cache says.
  disk_.dropCaches();
  if (disk_.flush()) return failed.as(Error::writeFailedTableUnknown);
  if (isOnDisk(old_)) return failed.as(Error::write);
  return failed.as(isOnDisk(now_) ? Error::writeFailedNewTable : Error::writeFailedTableUnknown);
}

}  // namespace tallowin
