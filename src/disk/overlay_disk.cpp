#include "disk/overlay_disk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/bytes.h"

namespace tallowin {
bool OverlayDisk::isInside(u64 lba, u64 count) {
  const u64 sectors = inner_.sectorCount().value_or(0);
  return lba <= sectors && count <= sectors - lba;
}

Failure OverlayDisk::transferIn(u64 lba, void* buffer, u32 count) {
  const std::size_t sector = sectorSize();
  auto* out = static_cast<u8*>(buffer);
  const u64 end = lba + count;
  auto run = runs_.upper_bound(lba);
  if (run != runs_.begin() && std::prev(run)->first + std::prev(run)->second.count > lba) --run;
  for (u64 at = lba; at < end;) {
    const bool isWritten = run != runs_.end() && run->first <= at;
    const u64 next = run == runs_.end() ? end
                     : isWritten        ? run->first + run->second.count
                                        : run->first;
    const u64 take = std::min(end, next) - at;
    u8* const target = out + (at - lba) * sector;
    if (!isWritten) {
      if (const Failure failed = inner_.readSectors(at, target, take); failed.code != Error::none)
        return failed;
    } else if (run->second.bytes.empty()) {
      std::memset(target, 0, take * sector);
    } else {
      std::memcpy(target, run->second.bytes.data() + (at - run->first) * sector, take * sector);
    }
    at += take;
    if (isWritten) ++run;
  }
  return {};
}

Failure OverlayDisk::transferOut(u64 lba, const void* buffer, u32 count) {
  if (!isInside(lba, count)) return {Error::write, 0, lba};
  const auto* bytes = static_cast<const u8*>(buffer);
  const std::size_t size = std::size_t{count} * sectorSize();
  if (overwriteInPlace(lba, bytes, count)) return {};
  if (isAllZero({bytes, size})) {
    addZeros(lba, count);
    return {};
  }
  if (storedBytes_ + size > maxBytes_) {
    full_ = true;
    return {Error::outOfMemory, 0, lba};
  }
  makeRoom(lba, count);
  runs_.emplace(lba, Run{count, {bytes, bytes + size}});
  storedBytes_ += size;
  return {};
}

std::optional<Failure> OverlayDisk::zeroFast(u64 lba, u64 count) {
  if (!isInside(lba, count)) return Failure(Error::write, 0, lba);
  addZeros(lba, count);
  return Failure();
}

Failure OverlayDisk::flush() {
  ++flushes_;
  return {};
}

KernelTable OverlayDisk::tellKernel(std::span<const KernelPartition> wanted) {
  static_cast<void>(wanted);
  return KernelTable::upToDate;
}

// The common case of tables and directories: the same few sectors again and again.
bool OverlayDisk::overwriteInPlace(u64 lba, const u8* bytes, u32 count) {
  auto run = runs_.upper_bound(lba);
  if (run == runs_.begin()) return false;
  --run;
  const u64 inRun = lba - run->first;
  if (run->second.bytes.empty() || inRun >= run->second.count || count > run->second.count - inRun)
    return false;
  std::memcpy(run->second.bytes.data() + inRun * sectorSize(), bytes,
              std::size_t{count} * sectorSize());
  return true;
}

// Takes the range out of all runs; what they hold before and behind it stays.
void OverlayDisk::makeRoom(u64 lba, u64 count) {
  const std::size_t sector = sectorSize();
  const u64 end = lba + count;
  auto run = runs_.upper_bound(lba);
  if (run != runs_.begin()) --run;
  while (run != runs_.end() && run->first < end) {
    const u64 runEnd = run->first + run->second.count;
    if (runEnd <= lba) {
      ++run;
      continue;
    }
    const u64 start = run->first;
    Run old = std::move(run->second);
    storedBytes_ -= old.bytes.size();
    run = runs_.erase(run);
    const auto keep = [&](u64 first, u64 last) {
      Run kept{last - first, {}};
      if (!old.bytes.empty()) {
        const auto* from = old.bytes.data() + (first - start) * sector;
        kept.bytes.assign(from, from + kept.count * sector);
        storedBytes_ += kept.bytes.size();
      }
      runs_.emplace(first, std::move(kept));
    };
    if (start < lba) keep(start, lba);
    if (runEnd > end) keep(end, runEnd);
  }
}

void OverlayDisk::addZeros(u64 lba, u64 count) {
  makeRoom(lba, count);
  auto run = runs_.emplace(lba, Run{count, {}}).first;
  // Long runs of zeros arrive in pieces; kept as one they stay a single node.
  if (const auto next = std::next(run);
      next != runs_.end() && next->first == lba + count && next->second.bytes.empty()) {
    run->second.count += next->second.count;
    runs_.erase(next);
  }
  if (run == runs_.begin()) return;
  const auto previous = std::prev(run);
  if (previous->first + previous->second.count == lba && previous->second.bytes.empty()) {
    previous->second.count += run->second.count;
    runs_.erase(run);
  }
}

std::vector<OverlayDisk::SectorRange> OverlayDisk::writtenRanges() const {
  std::vector<SectorRange> ranges;
  for (const auto& [first, run] : runs_) {
    if (!ranges.empty() && ranges.back().first + ranges.back().count == first) {
      ranges.back().count += run.count;
    } else {
      ranges.push_back({first, run.count});
    }
  }
  return ranges;
}

u64 OverlayDisk::writtenBytes() const {
  u64 sectors = 0;
  for (const auto& run : runs_) sectors += run.second.count;
  return sectors * sectorSize();
}

}  // namespace tallowin
