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
    } else if (const Failure failed = readRun(run, at, {target, take * sector})) {
      return failed;
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
  if (const auto overwritten = overwriteInPlace(lba, bytes, count)) return *overwritten;
  if (isAllZero({bytes, size})) {
    addZeros(lba, count);
    return {};
  }
  if (storedBytes_ + size > maxBytes_) {
    if (const Failure failed = spill(lba, {bytes, size})) return failed;
    addPlain(lba, {count, {}, true});
    return {};
  }
  makeRoom(lba, count);
  runs_.emplace(lba, Run{count, {bytes, bytes + size}, false});
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

Failure OverlayDisk::spill(u64 lba, std::span<const u8> bytes) {
  const Failure failed =
      spill_ ? spill_->write(lba * sectorSize(), bytes) : Failure(Error::outOfMemory);
  if (!failed) return {};
  full_ = true;
  return {failed.code, failed.systemError, lba};
}

Failure OverlayDisk::readRun(Runs::const_iterator run, u64 lba, std::span<u8> bytes) const {
  if (run->second.isSpilled) return spill_->read(lba * sectorSize(), bytes);
  if (run->second.isZero())
    std::memset(bytes.data(), 0, bytes.size());
  else
    std::memcpy(bytes.data(), run->second.bytes.data() + (lba - run->first) * sectorSize(),
                bytes.size());
  return {};
}

// The common case of tables and directories: the same few sectors again and again.
std::optional<Failure> OverlayDisk::overwriteInPlace(u64 lba, const u8* bytes, u32 count) {
  auto run = runs_.upper_bound(lba);
  if (run == runs_.begin()) return std::nullopt;
  --run;
  const u64 inRun = lba - run->first;
  const std::size_t size = std::size_t{count} * sectorSize();
  if (run->second.isZero() || inRun >= run->second.count || count > run->second.count - inRun)
    return std::nullopt;
  if (run->second.isSpilled) return spill(lba, {bytes, size});
  std::memcpy(run->second.bytes.data() + inRun * sectorSize(), bytes, size);
  return Failure();
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
      Run kept{last - first, {}, old.isSpilled};
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

// Long runs of zeros, or of what was spilled, arrive in pieces; kept as one they stay a single
// node.
void OverlayDisk::addPlain(u64 lba, Run run) {
  makeRoom(lba, run.count);
  const u64 end = lba + run.count;
  auto added = runs_.emplace(lba, std::move(run)).first;
  if (const auto next = std::next(added);
      next != runs_.end() && next->first == end && next->second.isLike(added->second)) {
    added->second.count += next->second.count;
    runs_.erase(next);
  }
  if (added == runs_.begin()) return;
  const auto previous = std::prev(added);
  if (previous->first + previous->second.count == lba && previous->second.isLike(added->second)) {
    previous->second.count += added->second.count;
    runs_.erase(added);
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
