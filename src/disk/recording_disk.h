// A disk that logs every write and flush, so that a power cut can be played back.
#pragma once

#include <vector>

#include "disk/disk_wrapper.h"
#include "disk/memory_disk.h"

namespace tallowin {

// The log of a RecordingDisk. A step is a write or a flush.
class WriteLog {
 public:
  struct Step {
    bool isFlush = false;
    u64 lba = 0;
    std::vector<u8> bytes;
  };

  std::size_t size() const { return steps_.size(); }
  const std::vector<Step>& steps() const { return steps_; }
  void add(Step step) { steps_.push_back(std::move(step)); }

  // The disk after a power cut: the first `count` steps happened.
  MemoryDisk replay(const MemoryDisk& before, std::size_t count) const;
  // The harder cut: of the first `count` steps, all up to the last flush among them happened,
  // and of the writes behind it those whose bit in `subset` is set (bit 0 = the first of them).
  // With `tornStep` (an index into those writes) only the first half of that write's bytes
  // arrived, which tears a sector when the write is a single one.
  MemoryDisk replaySubset(const MemoryDisk& before, std::size_t count, u64 subset,
                          std::size_t tornStep = kNoTornStep) const;
  // Writes behind the last flush among the first `count` steps.
  std::size_t unflushedBefore(std::size_t count) const;

  static constexpr std::size_t kNoTornStep = static_cast<std::size_t>(-1);

 private:
  std::size_t firstUnflushed(std::size_t count) const;
  std::vector<Step> steps_;
};

class RecordingDisk : public DiskWrapper {
 public:
  using DiskWrapper::DiskWrapper;

  Failure flush() override;
  const WriteLog& log() const { return log_; }

 protected:
  Failure transferOut(u64 lba, const void* buffer, u32 count) override;

 private:
  WriteLog log_;
};

}  // namespace tallowin
