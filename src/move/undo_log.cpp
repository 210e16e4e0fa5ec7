#include "move/undo_log.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "base/crc32.h"
#include "move/journal_record.h"

namespace tallowin {
namespace {

constexpr u64 kPieceBytes = kMiB;

u32 headChecksum(const UndoRecord& record) {
  return crc32(bytesOf(record).first(offsetof(UndoRecord, checksum)));
}

bool isSound(const UndoRecord& record, u32 sectorBytes) {
  const UndoRecord wanted;
  return std::memcmp(record.magic, wanted.magic, sizeof(record.magic)) == 0 &&
         record.checksum == headChecksum(record) && record.sectors != 0 &&
         record.sectors <= kPieceBytes / sectorBytes;
}

}  // namespace

void SectorSet::add(u64 first, u64 end) {
  if (first >= end) return;
  auto range = ranges_.upper_bound(first);
  if (range != ranges_.begin() && std::prev(range)->second >= first) --range;
  while (range != ranges_.end() && range->first <= end) {
    first = std::min(first, range->first);
    end = std::max(end, range->second);
    range = ranges_.erase(range);
  }
  ranges_.emplace(first, end);
}

std::vector<std::pair<u64, u64>> SectorSet::missing(u64 first, u64 end) const {
  std::vector<std::pair<u64, u64>> gaps;
  auto range = ranges_.upper_bound(first);
  if (range != ranges_.begin()) first = std::max(first, std::prev(range)->second);
  for (; first < end; ++range) {
    const u64 next = range == ranges_.end() ? end : std::min(end, range->first);
    if (first < next) gaps.emplace_back(first, next);
    if (range == ranges_.end()) break;
    first = std::max(first, range->second);
  }
  return gaps;
}

void UndoLogDisk::keepOnly(u64 firstSector, u64 sectorCount, const ExtentList& inUse) {
  u64 at = firstSector;
  for (std::size_t index = 0; index < inUse.size(); ++index) {
    const ExtentList::Extent extent = inUse.at(index);
    kept_.add(at, std::max(at, extent.startSector));
    at = std::max(at, extent.endSector());
  }
  kept_.add(at, firstSector + sectorCount);
}

Failure UndoLogDisk::keepAhead(u64 lba, u64 count) {
  try {
    for (const auto& [first, end] : kept_.missing(lba, lba + count))
      if (const Failure failed = keepRange(first, end)) return failed;
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  return {};
}

Failure UndoLogDisk::keepRange(u64 first, u64 end) {
  const u64 most = kPieceBytes / sectorSize();
  for (u64 at = first; at < end; at = std::min(end, at + most))
    if (const Failure failed = keepPiece(at, std::min(end, at + most))) return failed;
  return {};
}

Failure UndoLogDisk::keepPiece(u64 first, u64 end) {
  const std::size_t bytes = (end - first) * sectorSize();
  buffer_.resize(sizeof(UndoRecord) + bytes);
  u8* const contents = buffer_.data() + sizeof(UndoRecord);
  if (const Failure failed = inner_.readSectors(first, contents, end - first)) return failed;
  UndoRecord record;
  record.sectors = static_cast<u32>(end - first);
  record.firstSector = first;
  record.dataChecksum = crc32({contents, bytes});
  record.checksum = headChecksum(record);
  std::memcpy(buffer_.data(), &record, sizeof(record));
  isSynced_ = false;
  isEmpty_ = false;
  if (const Failure failed = journal_.writeBody(offset_, buffer_))
    return failed.as(Error::journalFailed);
  offset_ += buffer_.size();
  kept_.add(first, end);
  return {};
}

Failure UndoLogDisk::transferOut(u64 lba, const void* buffer, u32 count) {
  if (const Failure failed = keepAhead(lba, count)) return failed;
  if (!isSynced_) {
    if (const Failure failed = journal_.sync()) return failed.as(Error::journalFailed);
    isSynced_ = true;
  }
  return inner_.writeSectors(lba, buffer, count);
}

namespace {

struct KeptSectors {
  UndoRecord record;
  std::vector<u8> contents;
};

// Nothing in `kept`: the log ends here.
Failure readRecord(JournalFile& journal, u64 offset, u32 sectorBytes,
                   std::optional<KeptSectors>& kept) {
  kept.reset();
  std::vector<u8> head(sizeof(UndoRecord));
  Failure unread = journal.readBody(offset, head);
  const auto& record = *recordAt<UndoRecord>(std::span<const u8>(head));
  if (!unread && !isSound(record, sectorBytes)) return {};
  KeptSectors found{record, {}};
  if (!unread) {
    found.contents.resize(std::size_t{record.sectors} * sectorBytes);
    unread = journal.readBody(offset + head.size(), found.contents);
  }
  if (unread) return unread == Error::seekFailed ? Failure() : unread;
  if (crc32(found.contents) == record.dataChecksum) kept = std::move(found);
  return {};
}

Failure playRecords(JournalFile& journal, u64 offset, DiskDevice& disk) {
  const u64 sectors = disk.sectorCount().value_or(0);
  for (std::optional<KeptSectors> kept;;) {
    if (const Failure failed = readRecord(journal, offset, disk.sectorSize(), kept)) return failed;
    if (!kept) return disk.flush();
    const u64 first = kept->record.firstSector;
    const u32 count = kept->record.sectors;
    if (first >= sectors || count > sectors - first) return Error::sectorSizeDiffers;
    if (const Failure failed = disk.writeSectors(first, kept->contents.data(), count))
      return failed;
    offset += sizeof(UndoRecord) + kept->contents.size();
  }
}

}  // namespace

Failure playUndoLog(JournalFile& journal, u64 bodyOffset, DiskDevice& disk) {
  try {
    return playRecords(journal, bodyOffset, disk);
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
}

}  // namespace tallowin
