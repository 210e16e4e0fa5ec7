#include "disk/recording_disk.h"

#include <algorithm>

namespace tallowin {
namespace {

void apply(MemoryDisk& disk, const WriteLog::Step& step, std::size_t bytes) {
  const u32 sectorSize = disk.sectorSize();
  for (std::size_t done = 0; done < bytes; done += sectorSize) {
    const u64 lba = step.lba + done / sectorSize;
    std::vector<u8> sector = disk.sector(lba);
    std::copy_n(step.bytes.begin() + static_cast<std::ptrdiff_t>(done),
                std::min<std::size_t>(sectorSize, bytes - done), sector.begin());
    disk.setSector(lba, sector);
  }
}

}  // namespace

MemoryDisk WriteLog::replay(const MemoryDisk& before, std::size_t count) const {
  MemoryDisk disk = before.copy();
  for (std::size_t i = 0; i < std::min(count, steps_.size()); ++i)
    apply(disk, steps_[i], steps_[i].bytes.size());
  return disk;
}

std::size_t WriteLog::firstUnflushed(std::size_t count) const {
  std::size_t first = std::min(count, steps_.size());
  while (first != 0 && !steps_[first - 1].isFlush) --first;
  return first;
}

std::size_t WriteLog::unflushedBefore(std::size_t count) const {
  return std::min(count, steps_.size()) - firstUnflushed(count);
}

MemoryDisk WriteLog::replaySubset(const MemoryDisk& before, std::size_t count, u64 subset,
                                  std::size_t tornStep) const {
  const std::size_t first = firstUnflushed(count);
  MemoryDisk disk = replay(before, first);
  for (std::size_t i = first; i < std::min(count, steps_.size()); ++i) {
    const std::size_t unflushed = i - first;
    if (unflushed < 64 && (subset >> unflushed & 1) == 0) continue;
    const std::size_t bytes = steps_[i].bytes.size();
    apply(disk, steps_[i], unflushed == tornStep ? bytes / 2 : bytes);
  }
  return disk;
}

Failure RecordingDisk::flush() {
  log_.add({.isFlush = true, .lba = 0, .bytes = {}});
  return inner_.flush();
}

Failure RecordingDisk::transferOut(u64 lba, const void* buffer, u32 count) {
  const auto* bytes = static_cast<const u8*>(buffer);
  log_.add(
      {.isFlush = false, .lba = lba, .bytes = {bytes, bytes + std::size_t{count} * sectorSize()}});
  return inner_.writeSectors(lba, buffer, count);
}

}  // namespace tallowin
