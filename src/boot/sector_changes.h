// Sectors that are to say something else, as a list that can be written and taken back.
#pragma once

#include <span>
#include <vector>

#include "disk/disk_device.h"

namespace tallowin {

struct SectorChange {
  u64 lba = 0;
  std::vector<u8> before;
  std::vector<u8> after;
};

// Several changes of a disk that build on each other: what is read has the changes in it.
class SectorChanges {
 public:
  explicit SectorChanges(DiskDevice& disk) : disk_(disk) {}

  // read.
  Failure read(u64 lba, std::vector<u8>& sector) const;
  // A sector that was read by read(); one that stays as it is is no change.
  Failure change(u64 lba, const std::vector<u8>& sector);

  bool empty() const { return changes_.empty(); }
  std::span<const SectorChange> all() const { return changes_; }

  // In their order, and flushed. What was written is taken back when one of them fails.
  // tableChangedMeanwhile: one of the sectors holds neither what was read nor what it is to hold,
  // and nothing was written; read: nothing was written; write, flush.
  Failure apply() const;
  // Writes what was there before. read, write, flush.
  Failure takeBack() const;

 private:
  const SectorChange* find(u64 lba) const;
  Failure checkBefore() const;

  DiskDevice& disk_;
  std::vector<SectorChange> changes_;
};

}  // namespace tallowin
