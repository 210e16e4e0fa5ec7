#include "cli/read_once_disk.h"

#include <cstring>
#include <span>

#include "base/bytes.h"

namespace tallowin {

Failure ReadOnceDisk::transferIn(u64 lba, void* buffer, u32 count) {
  const auto known = kept_.find({lba, count});
  if (known != kept_.end()) {
    const std::size_t bytes = std::size_t{count} * sectorSize();
    if (known->second.empty())
      std::memset(buffer, 0, bytes);
    else
      std::memcpy(buffer, known->second.data(), bytes);
    return {};
  }
  const Failure failed = DiskWrapper::transferIn(lba, buffer, count);
  if (failed.code != Error::none) return failed;
  const std::size_t bytes = std::size_t{count} * sectorSize();
  if (bytes > kMaxReadBytes || bytes > kMaxKeptBytes - keptBytes_) return {};
  const std::span<const u8> read(static_cast<const u8*>(buffer), bytes);
  std::vector<u8>& kept = kept_[{lba, count}];
  if (isAllZero(read)) return {};
  kept.assign(read.begin(), read.end());
  keptBytes_ += bytes;
  return {};
}

}  // namespace tallowin
