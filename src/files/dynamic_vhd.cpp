#include "files/dynamic_vhd.h"

#include <algorithm>
#include <cstring>

namespace tallowin {
namespace {

// How far ahead the footer is put: one flush of the file, which waits for all that was written,
// for so many bytes of new blocks.
constexpr u64 kRoomBytes = 256 * kMiB;
constexpr u64 kEntriesInSector = 512 / sizeof(VhdTableEntry);

}  // namespace

// The part of a request that lies in one block.
struct DynamicVhd::Run {
  u64 block = 0;
  u32 firstSector = 0;  // in the block
  u32 count = 0;
  u64 offset = 0;  // in the request, bytes
  u64 bytes() const { return u64{count} * kSectorBytes; }
};

DynamicVhd::DynamicVhd(std::unique_ptr<ImageFile> file, Layout layout)
    : ImageContainer(std::move(file)),
      layout_(std::move(layout)),
      bitmaps_(static_cast<u32>(layout_.table.size()), layout_.blockSectors),
      nextBlockOffset_((file_->sizeBytes() - 1) / kSectorBytes * kSectorBytes),
      footerOffset_(nextBlockOffset_),
      unallocatedBlocks_(static_cast<u64>(
          std::count(layout_.table.begin(), layout_.table.end(), kVhdNotAllocated))) {}

DynamicVhd::~DynamicVhd() {
  if (isChanged_) static_cast<void>(flush());
}

template <typename Step>
Failure DynamicVhd::forEachRun(u64 sector, u64 count, Step step) {
  for (u64 done = 0; done < count;) {
    Run run;
    run.block = (sector + done) / layout_.blockSectors;
    run.firstSector = static_cast<u32>((sector + done) % layout_.blockSectors);
    run.count =
        static_cast<u32>(std::min<u64>(count - done, layout_.blockSectors - run.firstSector));
    run.offset = done * kSectorBytes;
    if (Failure failed = step(run)) {
      failed.lba = sector + done;
      return failed;
    }
    done += run.count;
  }
  return {};
}

u64 DynamicVhd::dataOffset(const Run& run) const {
  return bitmapOffset(run.block) + bitmaps_.bitmapBytes() + u64{run.firstSector} * kSectorBytes;
}

Failure DynamicVhd::read(u64 sector, std::span<u8> bytes) {
  const u64 count = bytes.size() / kSectorBytes;
  if (!isInside(sector, count)) return {Error::read, 0, sector};
  return forEachRun(sector, count, [&](const Run& run) -> Failure {
    const std::span<u8> part = bytes.subspan(run.offset, run.bytes());
    if (isAllocated(run.block)) return file_->readAt(dataOffset(run), part);
    std::memset(part.data(), 0, part.size());
    return {};
  });
}

Failure DynamicVhd::write(u64 sector, std::span<const u8> bytes) {
  const u64 count = bytes.size() / kSectorBytes;
  if (const Failure refused = beginChange(sector, count)) return refused;
  return forEachRun(sector, count, [&](const Run& run) -> Failure {
    const std::span<const u8> part = bytes.subspan(run.offset, run.bytes());
    if (!isAllocated(run.block)) return writeNewBlock(run, part);
    if (const Failure failed = bitmaps_.mark(*file_, static_cast<u32>(run.block),
                                             bitmapOffset(run.block), run.firstSector, run.count))
      return failed;
    return file_->writeAt(dataOffset(run), part);
  });
}

Failure DynamicVhd::clear(u64 sector, u64 count) {
  if (const Failure refused = beginChange(sector, count)) return refused;
  return forEachRun(sector, count, [&](const Run& run) {
    return isAllocated(run.block) ? clearRange(*file_, dataOffset(run), run.bytes()) : Failure();
  });
}

u64 DynamicVhd::newDataOffset(u64 offset) const {
  const u64 behindBitmap = offset + bitmaps_.bitmapBytes();
  // Small blocks would be more gaps than data, and are never written directly.
  return blockBytes() % kDataAlignment == 0 ? roundUp(behindBitmap, kDataAlignment) : behindBitmap;
}

u64 DynamicVhd::endOfBlocks(u64 offset, u64 count) const {
  const u64 firstEnd = newDataOffset(offset) + blockBytes();
  const u64 stride = newDataOffset(firstEnd) + blockBytes() - firstEnd;
  return firstEnd + (count - 1) * stride;
}

Failure DynamicVhd::writeNewBlock(const Run& run, std::span<const u8> bytes) {
  if (const Failure failed = makeRoom()) return failed;
  const u64 dataOffset = newDataOffset(nextBlockOffset_);
  if (const Failure failed = writeBlockAt(dataOffset, run, bytes)) {
    growthFailed_ = true;
    static_cast<void>(cutRoom());
    return failed;
  }
  layout_.table[run.block] = static_cast<u32>((dataOffset - bitmaps_.bitmapBytes()) / kSectorBytes);
  changedTableSectors_.insert(run.block / kEntriesInSector);
  nextBlockOffset_ = dataOffset + blockBytes();
  --unallocatedBlocks_;
  return {};
}

// What lies before the data is written with it where that makes one direct request.
Failure DynamicVhd::writeBlockAt(u64 dataOffset, const Run& run, std::span<const u8> bytes) {
  struct alignas(kDataAlignment) Page {
    u8 bytes[kDataAlignment] = {};
  };
  const u64 headBytes = dataOffset - nextBlockOffset_;
  std::vector<Page> pages(roundUp(headBytes, kDataAlignment) / kDataAlignment);
  const std::span<u8> head(pages.data()->bytes, headBytes);
  const VhdBitmaps::Bitmap bitmap = bitmaps_.withRun(run.firstSector, run.count);
  const std::span<const u8> bits = VhdBitmaps::bytesOf(bitmap);
  std::ranges::copy(bits, head.last(bits.size()).begin());
  if (run.firstSector == 0 && nextBlockOffset_ % kDataAlignment == 0)
    return file_->writeAt(nextBlockOffset_, head, bytes);
  const Failure failed = file_->writeAt(nextBlockOffset_, head);
  return failed ? failed : file_->writeAt(dataOffset + u64{run.firstSector} * kSectorBytes, bytes);
}

// Room for one block at least, zeros but for an old footer before the next block's data.
Failure DynamicVhd::makeRoom() {
  if (growthFailed_)
    if (const Failure failed = cutRoom()) return failed;
  if (footerOffset_ >= endOfBlocks(nextBlockOffset_, 1)) return {};
  if (newDataOffset(nextBlockOffset_) / kSectorBytes > kVhdNotAllocated) return Error::fileTooLarge;
  const u64 oldSize = file_->sizeBytes();
  const u64 generous = std::min(std::max<u64>(kRoomBytes / blockBytes(), 1), unallocatedBlocks_);
  Failure failed;
  // Where the file may not become that large, one block may still fit.
  for (const u64 blocks : {generous, u64{1}}) {
    const u64 newFooterOffset = endOfBlocks(nextBlockOffset_, blocks);
    failed = file_->writeAt(newFooterOffset, bytesOf(layout_.footer));
    if (!failed) failed = file_->flush();
    if (!failed) {
      footerOffset_ = newFooterOffset;
      return {};
    }
    if (file_->resize(oldSize)) {
      growthFailed_ = true;
      break;
    }
  }
  return failed;
}

Failure DynamicVhd::writeFooter() {
  return file_->writeAt(nextBlockOffset_, bytesOf(layout_.footer));
}

// Puts the footer directly behind the last block, which makes a hole of what follows it.
Failure DynamicVhd::cutRoom() {
  if (const Failure failed = writeFooter()) return failed;
  if (const Failure failed = file_->flush()) return failed;
  if (const Failure failed = file_->resize(nextBlockOffset_ + sizeof(VhdFooter))) return failed;
  footerOffset_ = nextBlockOffset_;
  growthFailed_ = false;
  return {};
}

Failure DynamicVhd::writeTable() {
  while (!changedTableSectors_.empty()) {
    // Neighbouring sectors in one request.
    const u64 first = *changedTableSectors_.begin();
    auto end = changedTableSectors_.begin();
    u64 sectors = 0;
    for (; end != changedTableSectors_.end() && *end == first + sectors; ++end) ++sectors;
    const u64 entry = first * kEntriesInSector;
    const u64 entries = std::min(sectors * kEntriesInSector, layout_.table.size() - entry);
    const std::span<const u8> bytes(reinterpret_cast<const u8*>(&layout_.table[entry]),
                                    entries * sizeof(VhdTableEntry));
    if (const Failure failed =
            file_->writeAt(layout_.tableOffset + entry * sizeof(VhdTableEntry), bytes))
      return failed;
    changedTableSectors_.erase(changedTableSectors_.begin(), end);
  }
  return {};
}

Failure DynamicVhd::flush() {
  if (isReadOnly()) return {};
  if (const Failure failed = bitmaps_.flush(*file_)) return failed;
  if (const Failure failed = file_->flush()) return failed;
  if (!changedTableSectors_.empty()) {
    if (const Failure failed = writeTable()) return failed;
    // Cutting the room flushes too.
    if (!hasRoom())
      if (const Failure failed = file_->flush()) return failed;
  }
  if (hasRoom())
    if (const Failure failed = cutRoom()) return failed;
  isChanged_ = false;
  return {};
}

}  // namespace tallowin
