#include "disk/write_cache.h"

#include <algorithm>
#include <cstring>

namespace tallowin {
namespace {

constexpr u64 kLeastBlocks = 2;

}  // namespace

WriteCache::WriteCache(DiskDevice& inner, u64 capacityBytes)
    : DiskWrapper(inner),
      capacity_(std::max(kLeastBlocks, capacityBytes / kBlockBytes)),
      blockSectors_(kBlockBytes / inner.sectorSize()),
      diskSectors_(inner.sectorCount().value_or(kAllOnes64)) {}

// The last block of a disk may be shorter.
u64 WriteCache::sectorsIn(u64 number) const {
  const u64 first = number * blockSectors_;
  return first >= diskSectors_ ? 0 : std::min<u64>(blockSectors_, diskSectors_ - first);
}

Failure WriteCache::transferIn(u64 lba, void* buffer, u32 count) {
  if (const Failure failed = inner_.readSectors(lba, buffer, count)) return failed;
  const u32 size = sectorSize();
  auto* bytes = static_cast<u8*>(buffer);
  for (auto held = blocks_.lower_bound(lba / blockSectors_);
       held != blocks_.end() && held->first * blockSectors_ < lba + count; ++held) {
    const u64 base = held->first * blockSectors_;
    const u64 first = std::max(lba, base + held->second.firstDirty);
    const u64 end = std::min(lba + count, base + held->second.endDirty);
    if (first < end)
      std::memcpy(bytes + (first - lba) * size, held->second.bytes.data() + (first - base) * size,
                  (end - first) * size);
  }
  return {};
}

Failure WriteCache::transferOut(u64 lba, const void* buffer, u32 count) {
  const auto* bytes = static_cast<const u8*>(buffer);
  if (count <= blockSectors_) return hold(lba, bytes, count);
  if (const Failure failed = inner_.writeSectors(lba, buffer, count)) return failed;
  overwrite(lba, bytes, count);
  return {};
}

Failure WriteCache::hold(u64 lba, const u8* bytes, u32 count) {
  while (count != 0) {
    const u64 number = lba / blockSectors_;
    const u32 offset = static_cast<u32>(lba % blockSectors_);
    const u32 part = std::min(count, blockSectors_ - offset);
    if (const Failure failed = holdPart(number, offset, bytes, part)) return failed;
    lba += part;
    count -= part;
    bytes += std::size_t{part} * sectorSize();
  }
  return {};
}

Failure WriteCache::holdPart(u64 number, u32 offset, const u8* bytes, u32 count) {
  const u64 first = number * blockSectors_;
  if (offset + count > sectorsIn(number)) return {Error::write, 0, first + offset};
  auto held = blocks_.find(number);
  if (held == blocks_.end()) {
    if (blocks_.size() >= capacity_)
      if (const Failure failed = writeBack()) return failed;
    Block block;
    block.bytes.resize(sectorsIn(number) * sectorSize());
    if (inner_.readSectors(first, block.bytes.data(), sectorsIn(number))) {
      // A block that cannot be read whole is no place to hold a part of it.
      return inner_.writeSectors(first + offset, bytes, count);
    }
    block.firstDirty = offset;
    block.endDirty = offset;
    held = blocks_.emplace(number, std::move(block)).first;
  }
  Block& block = held->second;
  std::memcpy(block.bytes.data() + std::size_t{offset} * sectorSize(), bytes,
              std::size_t{count} * sectorSize());
  block.firstDirty = std::min(block.firstDirty, offset);
  block.endDirty = std::max(block.endDirty, offset + count);
  return {};
}

// What a long write has put on the disk is what the blocks hold too.
void WriteCache::overwrite(u64 lba, const u8* bytes, u32 count) {
  const u32 size = sectorSize();
  for (auto held = blocks_.lower_bound(lba / blockSectors_);
       held != blocks_.end() && held->first * blockSectors_ < lba + count; ++held) {
    const u64 base = held->first * blockSectors_;
    const u64 first = std::max(lba, base);
    const u64 end = std::min(lba + count, base + sectorsIn(held->first));
    std::memcpy(held->second.bytes.data() + (first - base) * size, bytes + (first - lba) * size,
                (end - first) * size);
  }
}

Failure WriteCache::writeBack() {
  Failure first;
  for (const auto& [number, block] : blocks_)
    if (const Failure failed = writeBlock(number, block); failed && !first) first = failed;
  blocks_.clear();
  std::sort(lost_.begin(), lost_.end());
  return first;
}

// From the first to the last sector that was written: those around them may be somebody else's, and
// have changed since.
Failure WriteCache::writeBlock(u64 number, const Block& block) {
  const u64 base = number * blockSectors_;
  const auto at = [&](u32 sector) {
    return block.bytes.data() + std::size_t{sector} * sectorSize();
  };
  const u32 count = block.endDirty - block.firstDirty;
  if (!inner_.writeSectors(base + block.firstDirty, at(block.firstDirty), count)) return {};
  Failure first;
  for (u32 sector = block.firstDirty; sector < block.endDirty; ++sector) {
    const Failure failed = inner_.writeSectors(base + sector, at(sector), 1);
    if (!failed) continue;
    lost_.push_back(base + sector);
    if (!first) first = Failure(Error::write, failed.systemError, base + sector);
  }
  return first;
}

Failure WriteCache::flush() {
  const Failure lost = writeBack();
  const Failure unflushed = inner_.flush();
  return lost ? lost : unflushed;
}

}  // namespace tallowin
