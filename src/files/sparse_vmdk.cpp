#include "files/sparse_vmdk.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "base/text.h"
#include "files/ini_text.h"

namespace tallowin {
namespace {

constexpr u64 kMaxTableBytesInMemory = 64 * kMiB;
// New grains start at multiples of this, which keeps them fit for direct I/O.
constexpr u64 kGrowthAlignment = 4096;

std::span<const u8> bytesOfEntries(const std::vector<VmdkEntry>& entries) {
  return {reinterpret_cast<const u8*>(entries.data()), entries.size() * sizeof(VmdkEntry)};
}

}  // namespace

// A part of a request that lies in one piece in the file, or nowhere.
struct SparseVmdk::Run {
  bool isAllocated = false;
  u64 fileOffset = 0;
  u64 count = 0;   // sectors
  u64 offset = 0;  // in the request, bytes
  u64 bytes() const { return count * kSectorBytes; }
};

SparseVmdk::SparseVmdk(std::unique_ptr<ImageFile> file, Layout layout)
    : ImageContainer(std::move(file)),
      layout_(std::move(layout)),
      tables_(layout_.directory.size()),
      nextOffset_(roundUp(std::max(file_->sizeBytes(), layout_.endSector * kSectorBytes),
                          kGrowthAlignment)) {}

SparseVmdk::~SparseVmdk() {
  if (isChanged_) static_cast<void>(flush());
}

std::optional<Geometry> SparseVmdk::geometry() const { return vmdkGeometry(layout_.descriptor); }

// The table from memory or from the file; null when the directory has none.
Failure SparseVmdk::table(u64 index, Table*& found) {
  found = tables_[index].get();
  if (found != nullptr || layout_.directory[index] == kVmdkNotAllocated) return {};
  if ((tablesInMemory_ + 1) * tableBytes() > kMaxTableBytesInMemory) {
    for (u64 i = 0; i < tables_.size(); ++i)
      if (!changedTables_.contains(i)) tables_[i].reset();
    tablesInMemory_ = changedTables_.size();
  }
  auto fresh = std::make_unique<Table>(layout_.entriesPerTable);
  const std::span<u8> bytes(reinterpret_cast<u8*>(fresh->data()), tableBytes());
  if (const Failure failed = file_->readAt(u64{layout_.directory[index]} * kSectorBytes, bytes))
    return failed;
  if (layout_.hasZeroedGrains)
    std::replace(fresh->begin(), fresh->end(), VmdkEntry(kVmdkZeroGrain),
                 VmdkEntry(kVmdkNotAllocated));
  found = fresh.get();
  tables_[index] = std::move(fresh);
  ++tablesInMemory_;
  return {};
}

Failure SparseVmdk::entry(u64 grain, u32& fileSector) {
  Table* found = nullptr;
  const Failure failed = table(grain / layout_.entriesPerTable, found);
  fileSector =
      found != nullptr ? u32{(*found)[grain % layout_.entriesPerTable]} : kVmdkNotAllocated;
  return failed;
}

// The longest run from `sector` on whose grains follow each other in the file, or are all missing.
Failure SparseVmdk::findRun(u64 sector, u64 count, Run& run) {
  u64 grain = sector / layout_.grainSectors;
  const u64 inGrain = sector % layout_.grainSectors;
  u32 fileSector = kVmdkNotAllocated;
  if (const Failure failed = entry(grain, fileSector)) return failed;
  run.isAllocated = fileSector != kVmdkNotAllocated;
  run.fileOffset = (fileSector + inGrain) * kSectorBytes;
  u64 expected = fileSector;
  u64 covered = 0;  // sectors from the start of the first grain
  do {
    const u64 grains = std::max<u64>(missingGrains(grain), 1);
    covered += grains * layout_.grainSectors;
    grain += grains;
    if (covered - inGrain >= count) break;
    expected += run.isAllocated ? layout_.grainSectors : 0;
    if (const Failure failed = entry(grain, fileSector)) return failed;
  } while (fileSector == expected);
  run.count = std::min(count, covered - inGrain);
  return {};
}

// Grains from `grain` on that are missing because their whole table is.
u64 SparseVmdk::missingGrains(u64 grain) const {
  const u64 index = grain / layout_.entriesPerTable;
  if (tables_[index] || layout_.directory[index] != kVmdkNotAllocated) return 0;
  return layout_.entriesPerTable - grain % layout_.entriesPerTable;
}

template <typename Step>
Failure SparseVmdk::forEachRun(u64 sector, u64 count, Step step) {
  for (u64 done = 0; done < count;) {
    Run run;
    run.offset = done * kSectorBytes;
    Failure failed = findRun(sector + done, count - done, run);
    if (!failed) failed = step(sector + done, run);
    if (failed) {
      failed.lba = sector + done;
      return failed;
    }
    done += run.count;
  }
  return {};
}

Failure SparseVmdk::read(u64 sector, std::span<u8> bytes) {
  const u64 count = bytes.size() / kSectorBytes;
  if (!isInside(sector, count)) return {Error::read, 0, sector};
  return forEachRun(sector, count, [&](u64, const Run& run) -> Failure {
    const std::span<u8> part = bytes.subspan(run.offset, run.bytes());
    if (run.isAllocated) return file_->readAt(run.fileOffset, part);
    std::memset(part.data(), 0, part.size());
    return {};
  });
}

Failure SparseVmdk::write(u64 sector, std::span<const u8> bytes) {
  const u64 count = bytes.size() / kSectorBytes;
  if (const Failure refused = beginChange(sector, count)) return refused;
  if (const Failure failed = renewContentId()) return failed;
  return forEachRun(sector, count, [&](u64 first, const Run& run) -> Failure {
    const std::span<const u8> part = bytes.subspan(run.offset, run.bytes());
    return run.isAllocated ? file_->writeAt(run.fileOffset, part)
                           : writeNewGrains(first, run, part);
  });
}

Failure SparseVmdk::clear(u64 sector, u64 count) {
  if (const Failure refused = beginChange(sector, count)) return refused;
  if (const Failure failed = renewContentId()) return failed;
  return forEachRun(sector, count, [&](u64, const Run& run) -> Failure {
    return run.isAllocated ? clearRange(*file_, run.fileOffset, run.bytes()) : Failure();
  });
}

// All grains of the run in one piece at the end of the file. What the data does not cover of the
// first and the last is a hole.
Failure SparseVmdk::writeNewGrains(u64 sector, const Run& run, std::span<const u8> bytes) {
  const u64 firstGrain = sector / layout_.grainSectors;
  const u64 grains = (sector + run.count - 1) / layout_.grainSectors - firstGrain + 1;
  const u64 end = nextOffset_ + grains * grainBytes();
  if (growthFailed_) return Error::write;
  if (end / kSectorBytes > kAllOnes32) return Error::fileTooLarge;

  const u64 oldSize = file_->sizeBytes();
  Failure failed =
      file_->writeAt(nextOffset_ + sector % layout_.grainSectors * kSectorBytes, bytes);
  if (!failed && file_->sizeBytes() < end) failed = file_->resize(end);
  if (failed) {
    growthFailed_ = bool(file_->resize(oldSize));
    return failed;
  }
  for (u64 i = 0; i < grains; ++i) {
    const u64 index = (firstGrain + i) / layout_.entriesPerTable;
    Table* entries = nullptr;
    if (failed = table(index, entries); failed) break;
    if (entries == nullptr) {
      tables_[index] = std::make_unique<Table>(layout_.entriesPerTable);
      entries = tables_[index].get();
      ++tablesInMemory_;
    }
    changedTables_.insert(index);
    (*entries)[(firstGrain + i) % layout_.entriesPerTable] =
        static_cast<u32>((nextOffset_ + i * grainBytes()) / kSectorBytes);
  }
  nextOffset_ = roundUp(end, kGrowthAlignment);
  return failed;
}

// Gives a table that the directory lacks its place, in each directory.
Failure SparseVmdk::appendTable(u64 index) {
  for (std::vector<VmdkEntry>* directory : {&layout_.directory, &layout_.redundant}) {
    if (directory->empty() || (*directory)[index] != kVmdkNotAllocated) continue;
    const u64 end = nextOffset_ + roundUp(tableBytes(), kSectorBytes);
    if (end / kSectorBytes > kAllOnes32) return Error::fileTooLarge;
    if (const Failure failed = file_->resize(end)) return failed;
    (*directory)[index] = static_cast<u32>(nextOffset_ / kSectorBytes);
    nextOffset_ = roundUp(end, kGrowthAlignment);
    directoryChanged_ = true;
  }
  return {};
}

Failure SparseVmdk::writeTables() {
  for (const u64 index : changedTables_) {
    if (layout_.directory[index] == kVmdkNotAllocated)
      if (const Failure failed = appendTable(index)) return failed;
    for (const std::vector<VmdkEntry>* directory : {&layout_.redundant, &layout_.directory}) {
      if (directory->empty() || (*directory)[index] == kVmdkNotAllocated) continue;
      if (const Failure failed = file_->writeAt(u64{(*directory)[index]} * kSectorBytes,
                                                bytesOfEntries(*tables_[index])))
        return failed;
    }
  }
  return {};
}

Failure SparseVmdk::writeDirectory(u64 offset, const std::vector<VmdkEntry>& directory) {
  return directory.empty() ? Failure() : file_->writeAt(offset, bytesOfEntries(directory));
}

Failure SparseVmdk::flush() {
  if (isReadOnly()) return {};
  if (const Failure failed = file_->flush()) return failed;
  if (!changedTables_.empty()) {
    if (const Failure failed = writeTables()) return failed;
    if (const Failure failed = file_->flush()) return failed;
  }
  if (directoryChanged_) {
    if (const Failure failed = writeDirectory(layout_.directoryOffset, layout_.directory))
      return failed;
    if (const Failure failed = file_->flush()) return failed;
    if (const Failure failed = writeDirectory(layout_.redundantOffset, layout_.redundant))
      return failed;
    if (const Failure failed = file_->flush()) return failed;
  }
  directoryChanged_ = false;
  changedTables_.clear();
  isChanged_ = false;
  return {};
}

// A new content id, once before the first change, tells children and copies that this is no
// longer the disk they knew. Only the bytes that differ are written, with the zero that ends a text
// that grew: what lies behind the old end is not known.
Failure SparseVmdk::renewContentId() {
  if (contentIdIsNew_) return {};
  std::string renewed = layout_.descriptor;
  const std::string id = format("%08x", static_cast<u32>(std::time(nullptr)));
  if (!setValue(renewed, layout_.descriptorBytes, id, std::nullopt, "CID")) return Error::corrupt;
  std::string old = layout_.descriptor;
  std::string now = renewed;
  if (now.size() > old.size()) {
    now += '\0';
    old.resize(now.size(), '?');
  }
  now.resize(old.size());
  const auto first = std::mismatch(old.begin(), old.end(), now.begin()).first - old.begin();
  const auto behind = std::mismatch(old.rbegin(), old.rend(), now.rbegin()).first - old.rbegin();
  const auto length = std::max<std::ptrdiff_t>(std::ssize(old) - behind - first, 0);
  const std::span<const u8> changed(reinterpret_cast<const u8*>(now.data()) + first,
                                    static_cast<std::size_t>(length));
  if (!changed.empty())
    if (const Failure failed =
            file_->writeAt(layout_.descriptorOffset + static_cast<u64>(first), changed))
      return failed;
  layout_.descriptor = std::move(renewed);
  contentIdIsNew_ = true;
  return {};
}

}  // namespace tallowin
