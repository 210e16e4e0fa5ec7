// A disk that logs every write and flush, so that a power cut can be played back.
#pragma once

#include <vector>

#include "disk/disk_wrapper.h"
#include "disk/memory_disk.h"

namespace tallowin {

// The log of a RecordingDisk. A step is a write, sectors made zero, or a flush.
class WriteLog {
 public:
  struct Step {
    bool isFlush = false;
    u64 lba = 0;
    u64 count = 0;          // sectors
    std::vector<u8> bytes;  // empty: zeros, made by the medium's own fast way
  };

  std::size_t size() const { return steps_.size(); }
  const std::vector<Step>& steps() const { return steps_; }
  void add(Step step) { steps_.push_back(std::move(step)); }

 private:
  std::vector<Step> steps_;
};

enum class Arrival {
  whole,
  half  // of its bytes, the first: a single sector is torn
};

// The step happens once more, on a disk of the same size. A flush changes nothing.
void play(const WriteLog::Step& step, MemoryDisk& disk, Arrival arrival = Arrival::whole);

class RecordingDisk : public DiskWrapper {
 public:
  using DiskWrapper::DiskWrapper;

  Failure flush() override;
  const WriteLog& log() const { return log_; }

 protected:
  Failure transferOut(u64 lba, const void* buffer, u32 count) override;
  std::optional<Failure> zeroFast(u64 lba, u64 count) override;

 private:
  WriteLog log_;
};

}  // namespace tallowin
