#include "ptable/sector_swap.h"

#include <algorithm>

namespace tallowin {

Failure TableSectorImage::load() {
  old_.assign(disk_.sectorSize(), 0);
  if (disk_.readSectors(lba_, old_.data(), 1) != Error::none) return Error::read;
  now_ = old_;
  return Error::none;
}

bool TableSectorImage::put(std::span<const u8> bytes) {
  return disk_.writeSectors(lba_, bytes.data(), 1) == Error::none && disk_.flush() == Error::none;
}

bool TableSectorImage::isOnDisk(std::span<const u8> bytes) {
  std::vector<u8> found(bytes.size());
  return disk_.readSectors(lba_, found.data(), 1) == Error::none &&
         std::ranges::equal(found, bytes);
}

Failure TableSectorImage::store() {
  // What the new sector points at must be on the medium before it.
  if (disk_.flush() != Error::none) return Error::write;
  if (put(now_)) return Error::none;
  if (put(old_)) return Error::write;
  // Nothing can be written any more. What the disk answers is the best that is known, and only
  // when it can be flushed it is more than what a cache says.
  disk_.dropCaches();
  if (disk_.flush() != Error::none) return Error::writeFailedTableUnknown;
  if (isOnDisk(old_)) return Error::write;
  return isOnDisk(now_) ? Error::writeFailedNewTable : Error::writeFailedTableUnknown;
}

}  // namespace tallowin
