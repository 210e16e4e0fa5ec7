#include "fat/fat_table.h"

#include <algorithm>
#include <cstring>

namespace tallowin {
namespace {

// All entries that a FAT12 can have, in one window.
constexpr u32 kFat12Entries = 4087;
constexpr u32 kFat12Bytes = (kFat12Entries * 3 + 1) / 2;
// So much is read at once when windows are loaded one after the other.
constexpr u32 kReadAheadBytes = DiskDevice::kBulkBytes;

u32 entryOffset(FatKind kind, u64 index) {
  if (kind == FatKind::fat12) return static_cast<u32>(index * 3 / 2);
  return static_cast<u32>(index * (kind == FatKind::fat16 ? 2 : 4));
}

}  // namespace

FatTable::FatTable(const SectorRange& range, const FatLayout& layout)
    : range_(range), layout_(layout) {}

Failure FatTable::setUp(const Options& options) {
  options_ = options;
  cache_ = FatWindowCache();
  readAhead_ = {};
  nextWindowSector_ = kAllOnes32;
  const u64 fatBytes = u64{layout_.sectorsPerFat} * sectorBytes();
  bool ok = false;
  if (layout_.kind == FatKind::fat12) {
    const u32 wholeFat = (kFat12Bytes + sectorBytes() - 1) / sectorBytes();
    windowSectors_ = std::max(options.windowSectors, wholeFat);
    entriesInFat_ = std::min<u64>(kFat12Entries, fatBytes * 2 / 3);
    ok = cache_.setUp(u64{windowSectors_} * sectorBytes(), kFat12Entries, 0);
  } else {
    const u32 entryBytes = layout_.isFat32() ? 4 : 2;
    windowSectors_ = std::min(options.windowSectors, layout_.sectorsPerFat);
    entriesPerSector_ = sectorBytes() / entryBytes;
    entriesInFat_ = fatBytes / entryBytes;
    ok = cache_.setUp(u64{windowSectors_} * sectorBytes(), windowSectors_ * entriesPerSector_,
                      options.savedWindows);
  }
  return ok ? Error::none : Error::outOfMemory;
}

u64 FatTable::startLba() const {
  return options_.elsewhereLba != 0 ? options_.elsewhereLba
                                    : range_.firstSector + layout_.reservedSectors;
}

// --- Entries

Failure FatTable::get(u32 cluster, u32& value) {
  u8* entry = nullptr;
  if (const Failure failed = findEntry(cluster, entry)) return failed;
  if (layout_.isFat32()) {
    value = *recordAt<Le32>(std::span(entry, 4)) & 0x0FFFFFFF;
    return {};
  }
  value = *recordAt<Le16>(std::span(entry, 2));
  if (layout_.kind == FatKind::fat12) value = cluster % 2 != 0 ? value >> 4 : value & 0xFFF;
  return {};
}

Failure FatTable::set(u32 cluster, u32 value) {
  u8* entry = nullptr;
  if (const Failure failed = findEntry(cluster, entry)) return failed;
  if (layout_.isFat32()) {
    Le32& field = *recordAt<Le32>(std::span(entry, 4));
    field = value | (field & 0xF0000000);
  } else {
    Le16& field = *recordAt<Le16>(std::span(entry, 2));
    if (layout_.kind == FatKind::fat16)
      field = static_cast<u16>(value);
    else if (cluster % 2 != 0)
      field = static_cast<u16>((field & 0x000F) | (value << 4));
    else
      field = static_cast<u16>((field & 0xF000) | (value & 0x0FFF));
  }
  cache_.markDirty(cluster);
  return {};
}

Failure FatTable::findEntry(u32 cluster, u8*& entry) {
  if (cluster >= entriesInFat_) return Error::corrupt;
  FatWindowCache::Window* window = cache_.find(cluster);
  if (window == nullptr) {
    if (const Failure failed = loadWindow(cluster)) return failed;
    window = cache_.current();
  }
  entry = window->bytes + entryOffset(layout_.kind, cluster - window->firstEntry);
  return {};
}

// --- Windows

bool FatTable::ReadAhead::holds(u64 first, u64 count, u32 sectorBytes) const {
  return first >= firstSector && first + count <= firstSector + bytes.size() / sectorBytes;
}

bool FatTable::ReadAhead::touches(u64 first, u64 count, u32 sectorBytes) const {
  return first < firstSector + bytes.size() / sectorBytes && firstSector < first + count;
}

Failure FatTable::loadWindow(u32 cluster) {
  if (!cache_.isSetUp()) return Error::outOfMemory;
  if (!cache_.hasRoom())
    if (const Failure failed = writeDirtyWindows(); failed && !options_.rescues) return failed;
  FatWindowCache::Window& window = cache_.take(cluster);
  if (options_.isNew) return {};
  const Failure failed = readWindow(window);
  if (failed) cache_.discardCurrent();
  return failed;
}

Failure FatTable::readWindow(FatWindowCache::Window& window) {
  const u32 first = static_cast<u32>(window.firstEntry / entriesPerSector_);
  const u32 sectors = std::min(windowSectors_, layout_.sectorsPerFat - first);
  const bool follows = first == nextWindowSector_;
  nextWindowSector_ = first + sectors;
  if (copyReadAhead(first, sectors, window.bytes)) return {};
  if (follows && fillReadAhead(first, sectors) && copyReadAhead(first, sectors, window.bytes))
    return {};
  const u64 lba = startLba() + first;
  const Failure failed = disk().readSectors(lba, window.bytes, sectors);
  if (!failed || !options_.rescues) return failed;
  rescueWindow(lba, window.bytes, sectors);
  return {};
}

bool FatTable::copyReadAhead(u32 first, u32 sectors, u8* to) const {
  if (!readAhead_.holds(first, sectors, sectorBytes())) return false;
  std::memcpy(to,
              readAhead_.bytes.data() + std::size_t{first - readAhead_.firstSector} * sectorBytes(),
              std::size_t{sectors} * sectorBytes());
  return true;
}

// False where it cannot help; the window is then read by itself, and tells what is wrong.
bool FatTable::fillReadAhead(u32 first, u32 windowSectors) {
  const u32 sectors = std::min(kReadAheadBytes / sectorBytes(), layout_.sectorsPerFat - first);
  if (sectors <= windowSectors) return false;
  readAhead_.firstSector = first;
  readAhead_.bytes.resize(std::size_t{sectors} * sectorBytes());
  if (!disk().readSectors(startLba() + first, readAhead_.bytes.data(), sectors)) return true;
  readAhead_ = {};
  return false;
}

// Sector by sector, each from the first FAT copy that gives it; what none gives stays zero.
void FatTable::rescueWindow(u64 lba, u8* buffer, u32 sectors) {
  for (u32 i = 0; i < sectors; ++i) {
    u8* sector = buffer + std::size_t{i} * sectorBytes();
    bool found = false;
    for (u32 copy = 0; copy < copies() && !found; ++copy)
      found = !disk().readSectors(lba + i + u64{copy} * layout_.sectorsPerFat, sector, 1);
    if (!found) std::memset(sector, 0, sectorBytes());
  }
}

// --- Writing

FatTable::DirtyRun FatTable::dirtyRunOf(const FatWindowCache::Window& window) const {
  if (layout_.kind == FatKind::fat12)
    return {0, std::min(windowSectors_, layout_.sectorsPerFat), window.bytes};
  const u32 low = window.dirtyLow / entriesPerSector_;
  const u32 high = window.dirtyHigh / entriesPerSector_;
  return {static_cast<u32>(window.firstEntry / entriesPerSector_) + low, high - low + 1,
          window.bytes + std::size_t{low} * sectorBytes()};
}

// Dirty ranges that touch go out in one write.
Failure FatTable::writeDirtyWindows() {
  const std::vector<FatWindowCache::Window*> dirty = cache_.dirtyWindows();
  std::vector<DirtyRun> runs;
  runs.reserve(dirty.size());
  for (const FatWindowCache::Window* window : dirty) runs.push_back(dirtyRunOf(*window));
  Failure first;
  for (std::size_t begin = 0, end = 0; begin < runs.size(); begin = end) {
    end = begin + 1;
    while (end < runs.size() && runs[end].firstSector == runs[end - 1].endSector()) ++end;
    const Failure failed = writeRuns(std::span(runs).subspan(begin, end - begin));
    if (failed && !options_.rescues) return failed;
    if (!first) first = failed;
  }
  for (FatWindowCache::Window* window : dirty) window->clean();
  return first;
}

Failure FatTable::writeRuns(std::span<const DirtyRun> runs) {
  const u32 first = runs.front().firstSector;
  const u32 sectors = runs.back().endSector() - first;
  const u8* bytes = runs.front().bytes;
  std::vector<u8> joined;
  if (runs.size() > 1) {
    for (const DirtyRun& run : runs)
      joined.insert(joined.end(), run.bytes, run.bytes + u64{run.sectors} * sectorBytes());
    bytes = joined.data();
  }
  if (readAhead_.touches(first, sectors, sectorBytes())) readAhead_ = {};

  Failure firstFailure;
  for (u32 copy = 0; copy < copies(); ++copy) {
    const Failure failed =
        writeCopy(startLba() + first + u64{copy} * layout_.sectorsPerFat, bytes, sectors);
    if (failed && !options_.rescues) return failed;
    if (!firstFailure) firstFailure = failed;
  }
  return firstFailure;
}

Failure FatTable::writeCopy(u64 lba, const u8* bytes, u32 sectors) {
  const Failure failed = disk().writeSectors(lba, bytes, sectors);
  for (u32 i = 0; failed && options_.rescues && i < sectors; ++i)
    // What still fails was told by the whole.
    static_cast<void>(disk().writeSectors(lba + i, bytes + std::size_t{i} * sectorBytes(), 1));
  return failed;
}

}  // namespace tallowin
