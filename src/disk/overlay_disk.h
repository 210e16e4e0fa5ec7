// A rehearsal's disk: reads fall through, writes stay above.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "disk/disk_wrapper.h"
#include "disk/spill_file.h"

namespace tallowin {

// Nothing ever reaches the inner disk: no write, no flush, no lock, no word to the kernel.
// Zeros take no room, wherever they come from. Contents stay in memory up to `maxBytes`, and what
// needs more goes to the spill file. Without one, or when that has no room left, a write fails like
// one that the medium refuses, and isFull() says why.
class OverlayDisk : public DiskWrapper {
 public:
  struct SectorRange {
    u64 first = 0;
    u64 count = 0;
    friend bool operator==(const SectorRange&, const SectorRange&) = default;
  };

  static constexpr u64 kMaxBytes = 32 * kMiB;

  explicit OverlayDisk(DiskDevice& inner, u64 maxBytes = kMaxBytes,
                       std::optional<SpillFile> spill = std::nullopt)
      : DiskWrapper(inner), maxBytes_(maxBytes), spill_(std::move(spill)) {
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
    std::vector<u8> bytes;   // empty: zeros, or
    bool isSpilled = false;  // in the spill file, at the sectors' own place
    bool isZero() const { return bytes.empty() && !isSpilled; }
    bool isLike(const Run& other) const {
      return bytes.empty() && other.bytes.empty() && isSpilled == other.isSpilled;
    }
  };
  using Runs = std::map<u64, Run>;  // by first sector; they never overlap

  bool isInside(u64 lba, u64 count);
  std::optional<Failure> overwriteInPlace(u64 lba, const u8* bytes, u32 count);
  Failure spill(u64 lba, std::span<const u8> bytes);
  Failure readRun(Runs::const_iterator run, u64 lba, std::span<u8> bytes) const;
  void makeRoom(u64 lba, u64 count);
  void addZeros(u64 lba, u64 count) { addPlain(lba, {count, {}, false}); }
  void addPlain(u64 lba, Run run);

  u64 maxBytes_;
  std::optional<SpillFile> spill_;
  u64 storedBytes_ = 0;
  u64 flushes_ = 0;
  bool full_ = false;
  Runs runs_;
};

}  // namespace tallowin
