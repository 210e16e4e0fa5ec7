// A disk that is only looked at, each of its places once.
#pragma once

#include <map>
#include <utility>
#include <vector>

#include "disk/disk_wrapper.h"

namespace tallowin {

// Keeps what small reads gave (zeros take no room), for a command that neither writes nor waits:
// reading the table, the drive's settings and the contents of partitions ask for the same sectors
// again and again. Takes at most kMaxKeptBytes; reads beyond that, and failed ones, go to the disk
// every time. Refuses to write.
class ReadOnceDisk : public DiskWrapper {
 public:
  static constexpr std::size_t kMaxKeptBytes = kMiB;  // 128 partitions and their table
  static constexpr std::size_t kMaxReadBytes = 32 * kKiB;

  explicit ReadOnceDisk(DiskDevice& inner) : DiskWrapper(inner) { traits_.readOnly = true; }

 protected:
  Failure transferIn(u64 lba, void* buffer, u32 count) override;
  Failure transferOut(u64, const void*, u32) override { return Error::readOnlyDisk; }

 private:
  // By first sector and count; empty for zeros.
  std::map<std::pair<u64, u32>, std::vector<u8>> kept_;
  std::size_t keptBytes_ = 0;
};

}  // namespace tallowin
