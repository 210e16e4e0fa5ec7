#include "cli/read_once_disk.h"

#include <cstring>

namespace tallowin {

bool ReadOnceDisk::transferIn(u64 lba, void* buffer, u32 count) {
  const auto known = kept_.find({lba, count});
  if (known != kept_.end()) {
    std::memcpy(buffer, known->second.data(), known->second.size());
    return true;
  }
  if (!DiskWrapper::transferIn(lba, buffer, count)) return false;
  const std::size_t bytes = std::size_t{count} * sectorSize();
  if (bytes > kMaxReadBytes || bytes > kMaxKeptBytes - keptBytes_) return true;
  const u8* const first = static_cast<const u8*>(buffer);
  kept_.emplace(std::pair(lba, count), std::vector<u8>(first, first + bytes));
  keptBytes_ += bytes;
  return true;
}

}  // namespace tallowin
