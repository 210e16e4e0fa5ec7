#include "disk/recording_disk.h"

#include <algorithm>

namespace tallowin {

void play(const WriteLog::Step& step, MemoryDisk& disk, Arrival arrival) {
  const u32 sectorSize = disk.sectorSize();
  const u64 bytes = step.count * sectorSize / (arrival == Arrival::half ? 2 : 1);
  const u64 whole = bytes / sectorSize;
  const bool isZero = step.bytes.empty();
  // A step that the disk took once lies inside it.
  static_cast<void>(isZero ? disk.clearSectors(step.lba, whole)
                           : disk.writeSectors(step.lba, step.bytes.data(), whole));
  const u64 rest = bytes % sectorSize;
  if (rest == 0) return;
  std::vector<u8> torn = disk.sector(step.lba + whole);
  if (isZero)
    std::fill_n(torn.begin(), rest, u8{0});
  else
    std::copy_n(step.bytes.begin() + static_cast<std::ptrdiff_t>(whole * sectorSize), rest,
                torn.begin());
  disk.setSector(step.lba + whole, torn);
}

Failure RecordingDisk::flush() {
  log_.add({.isFlush = true, .lba = 0, .count = 0, .bytes = {}});
  return inner_.flush();
}

Failure RecordingDisk::transferOut(u64 lba, const void* buffer, u32 count) {
  const auto* bytes = static_cast<const u8*>(buffer);
  log_.add({.isFlush = false,
            .lba = lba,
            .count = count,
            .bytes = {bytes, bytes + std::size_t{count} * sectorSize()}});
  return inner_.writeSectors(lba, buffer, count);
}

std::optional<Failure> RecordingDisk::zeroFast(u64 lba, u64 count) {
  log_.add({.isFlush = false, .lba = lba, .count = count, .bytes = {}});
  return inner_.clearSectors(lba, count);
}

}  // namespace tallowin
