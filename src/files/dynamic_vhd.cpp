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
  if (isReadOnly()) return;
  if (flush() == Error::none && footerOffset_ != nextBlockOffset_)
    static_cast<void>(giveRoomBack());
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
    if (const Failure error = step(run); error != Error::none) return error;
    done += run.count;
  }
  return Error::none;
}

u64 DynamicVhd::dataOffset(const Run& run) const {
  return bitmapOffset(run.block) + bitmaps_.bitmapBytes() + u64{run.firstSector} * kSectorBytes;
}

Failure DynamicVhd::read(u64 sector, std::span<u8> bytes) {
  const u64 count = bytes.size() / kSectorBytes;
  if (!isInside(sector, count)) return Error::read;
  return forEachRun(sector, count, [&](const Run& run) -> Failure {
    const std::span<u8> part = bytes.subspan(run.offset, run.bytes());
    if (isAllocated(run.block)) return file_->readAt(dataOffset(run), part);
    std::memset(part.data(), 0, part.size());
    return Error::none;
  });
}

Failure DynamicVhd::write(u64 sector, std::span<const u8> bytes) {
  const u64 count = bytes.size() / kSectorBytes;
  if (isReadOnly() || !isInside(sector, count)) return Error::write;
  return forEachRun(sector, count, [&](const Run& run) -> Failure {
    const std::span<const u8> part = bytes.subspan(run.offset, run.bytes());
    if (run.block >= layout_.table.size()) return Error::fileTooLarge;
    if (!isAllocated(run.block)) return writeNewBlock(run, part);
    if (const Failure error = bitmaps_.mark(*file_, static_cast<u32>(run.block),
                                            bitmapOffset(run.block), run.firstSector, run.count);
        error != Error::none)
      return error;
    return file_->writeAt(dataOffset(run), part);
  });
}

Failure DynamicVhd::writeZeros(u64 sector, u64 count) {
  if (isReadOnly() || !isInside(sector, count)) return Error::write;
  const u64 tableEnd = layout_.table.size() * u64{layout_.blockSectors};
  const u64 known = sector < tableEnd ? std::min(count, tableEnd - sector) : 0;
  return forEachRun(sector, known, [&](const Run& run) {
    return isAllocated(run.block) ? writeZerosAt(*file_, dataOffset(run), run.bytes())
                                  : Error::none;
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
  if (const Failure error = makeRoom(); error != Error::none) return error;
  const u64 dataOffset = newDataOffset(nextBlockOffset_);
  if (const Failure error = writeBlockAt(dataOffset, run, bytes); error != Error::none) {
    growthFailed_ = giveRoomBack() != Error::none;
    return error;
  }
  layout_.table[run.block] = static_cast<u32>((dataOffset - bitmaps_.bitmapBytes()) / kSectorBytes);
  changedTableSectors_.insert(run.block / kEntriesInSector);
  nextBlockOffset_ = dataOffset + blockBytes();
  --unallocatedBlocks_;
  return Error::none;
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
  const Failure error = file_->writeAt(nextBlockOffset_, head);
  return error != Error::none
             ? error
             : file_->writeAt(dataOffset + u64{run.firstSector} * kSectorBytes, bytes);
}

// Room for one block at least, zeros but for an old footer before the next block's data.
Failure DynamicVhd::makeRoom() {
  if (growthFailed_) return Error::write;
  if (footerOffset_ >= endOfBlocks(nextBlockOffset_, 1)) return Error::none;
  if (newDataOffset(nextBlockOffset_) / kSectorBytes > kVhdNotAllocated) return Error::fileTooLarge;
  const u64 oldSize = file_->sizeBytes();
  const u64 generous = std::min(std::max<u64>(kRoomBytes / blockBytes(), 1), unallocatedBlocks_);
  Failure error = Error::none;
  // Where the file may not become that large, one block may still fit.
  for (const u64 blocks : {generous, u64{1}}) {
    const u64 newFooterOffset = endOfBlocks(nextBlockOffset_, blocks);
    error = file_->writeAt(newFooterOffset, bytesOf(layout_.footer));
    if (error == Error::none) error = file_->flush();
    if (error == Error::none) {
      footerOffset_ = newFooterOffset;
      return Error::none;
    }
    if (file_->resize(oldSize) != Error::none) {
      growthFailed_ = true;
      break;
    }
  }
  return error;
}

// Puts the footer directly behind the last block, which makes a hole of what follows it.
Failure DynamicVhd::giveRoomBack() {
  Failure error = file_->writeAt(nextBlockOffset_, bytesOf(layout_.footer));
  if (error == Error::none) error = file_->flush();
  if (error == Error::none) error = file_->resize(nextBlockOffset_ + sizeof(VhdFooter));
  if (error == Error::none) footerOffset_ = nextBlockOffset_;
  return error;
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
    if (const Failure error =
            file_->writeAt(layout_.tableOffset + entry * sizeof(VhdTableEntry), bytes);
        error != Error::none)
      return error;
    changedTableSectors_.erase(changedTableSectors_.begin(), end);
  }
  return Error::none;
}

Failure DynamicVhd::flush() {
  if (isReadOnly()) return Error::none;
  Failure error = bitmaps_.flush(*file_);
  if (error == Error::none) error = file_->flush();
  if (error != Error::none || changedTableSectors_.empty()) return error;
  error = writeTable();
  return error == Error::none ? file_->flush() : error;
}

}  // namespace tallowin
