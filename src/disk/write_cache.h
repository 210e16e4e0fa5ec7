// `WriteCache`: holds small writes back until they are flushed.
#pragma once

#include <map>
#include <vector>

#include "disk/disk_wrapper.h"

namespace tallowin {

// A write of at most one block stays here until the next flush, or until the cache is full; a
// longer one goes to the disk at once. What is written back goes a block at a time; a block that
// fails goes again sector by sector, so that no sector is lost but those that fail by themselves.
class WriteCache : public DiskWrapper {
 public:
  static constexpr u32 kBlockBytes = 64 * 1024;
  static constexpr u64 kCapacityBytes = 4 * kMiB;

  explicit WriteCache(DiskDevice& inner, u64 capacityBytes = kCapacityBytes);
  // What was not flushed is dropped.
  ~WriteCache() override = default;

  // Writes everything back, and what was written is on the medium. The first failure of either;
  // what could not be written is not tried again.
  Failure flush() override;

  // Those that were held back and could not be written, ascending.
  const std::vector<u64>& lostSectors() const { return lost_; }

 protected:
  Failure transferIn(u64 lba, void* buffer, u32 count) override;
  Failure transferOut(u64 lba, const void* buffer, u32 count) override;
  std::optional<Failure> zeroFast(u64, u64) override { return std::nullopt; }

 private:
  // Read when it is made; of its sectors those from the first to the last dirty one are written.
  struct Block {
    std::vector<u8> bytes;
    u32 firstDirty = 0;  // sectors of the block
    u32 endDirty = 0;
  };
  using Blocks = std::map<u64, Block>;  // by number

  u64 sectorsIn(u64 number) const;
  Failure hold(u64 lba, const u8* bytes, u32 count);
  Failure holdPart(u64 number, u32 offset, const u8* bytes, u32 count);
  void overwrite(u64 lba, const u8* bytes, u32 count);
  Failure writeBack();
  Failure writeBlock(u64 number, const Block& block);

  u64 capacity_;  // in blocks
  u32 blockSectors_;
  u64 diskSectors_ = 0;
  Blocks blocks_;
  std::vector<u64> lost_;
};

}  // namespace tallowin
