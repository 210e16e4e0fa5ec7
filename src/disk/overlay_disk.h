// A rehearsal's disk: reads fall through, writes stay in memory.
#pragma once

#include <map>
#include <vector>

#include "disk/disk_wrapper.h"

namespace tallowin {

// Nothing ever reaches the inner disk: no write, no flush, no lock, no word to the kernel.
// Zeros take no room, wherever they come from. A write that needs more memory than `maxBytes`
// in all fails like one that the medium refuses, and isFull() says why.
class OverlayDisk : public DiskWrapper {
 public:
  struct SectorRange {
    u64 first = 0;
    u64 count = 0;
    friend bool operator==(const SectorRange&, const SectorRange&) = default;
  };

  explicit OverlayDisk(DiskDevice& inner, u64 maxBytes = kGiB)
      : DiskWrapper(inner), maxBytes_(maxBytes) {
    traits_.readOnly = false;
  }

  // What would be written: ascending, adjoining ranges merged.
  std::vector<SectorRange> writtenRanges() const;
  u64 writtenBytes() const;
  u64 flushes() const { return flushes_; }
  bool isFull() const { return full_; }
  // Memory held for contents.
  u64 storedBytes() const { return storedBytes_; }

  Failure flush() override;
  void dropCaches() override {}
  KernelTable tellKernel(std::span<const KernelPartition> wanted) override;

 protected:
  bool acquireLock() override { return true; }
  void releaseLock() override {}
  Failure transferIn(u64 lba, void* buffer, u32 count) override;
  Failure transferOut(u64 lba, const void* buffer, u32 count) override;
  std::optional<Failure> zeroFast(u64 lba, u64 count) override;

 private:
  struct Run {
    u64 count = 0;
    std::vector<u8> bytes;  // empty: zeros
  };
  using Runs = std::map<u64, Run>;  // by first sector; they never overlap

  bool isInside(u64 lba, u64 count);
  bool overwriteInPlace(u64 lba, const u8* bytes, u32 count);
  void makeRoom(u64 lba, u64 count);
  void addZeros(u64 lba, u64 count);

  u64 maxBytes_;
  u64 storedBytes_ = 0;
  u64 flushes_ = 0;
  bool full_ = false;
  Runs runs_;
};

}  // namespace tallowin
