// The entries of the FAT, through the window cache.
#include <algorithm>
#include <cstring>

#include "fat/fat_volume.h"

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

u32 FatVolume::badMark() const {
  return kind_ == FatKind::fat12 ? 0xFF7 : kind_ == FatKind::fat16 ? 0xFFF7 : 0x0FFFFFF7;
}

bool FatVolume::setupFatCache(u32 windowSectors, u32 savedWindows) {
  readAhead_ = {};
  error_ = false;
  if (!valid_ || windowSectors == 0) return false;
  const u64 fatBytes = u64{sectorsPerFat()} * bytesPerSector();
  if (kind_ == FatKind::fat12) {
    const u32 wholeFat = (kFat12Bytes + bytesPerSector() - 1) / bytesPerSector();
    windowSectors_ = std::max(windowSectors, wholeFat);
    entriesInFat_ = std::min<u64>(kFat12Entries, fatBytes * 2 / 3);
    return cache_.setUp(u64{windowSectors_} * bytesPerSector(), kFat12Entries, 0);
  }
  const u32 entryBytes = isFat32() ? 4 : 2;
  windowSectors_ = std::min(windowSectors, sectorsPerFat());
  entriesPerSector_ = bytesPerSector() / entryBytes;
  entriesInFat_ = fatBytes / entryBytes;
  const u64 windowBytes = u64{windowSectors_} * bytesPerSector();
  return windowBytes <= kAllOnes32 &&
         cache_.setUp(windowBytes, windowSectors_ * entriesPerSector_, savedWindows);
}

bool FatVolume::resetFatCache(u32 windowSectors, u32 savedWindows) {
  cache_ = FatWindowCache();
  return setupFatCache(windowSectors, savedWindows);
}

void FatVolume::setFatStartOverride(u64 lba) {
  fatStartOverride_ = lba;
  readAhead_ = {};
}

// --- Entries

u32 FatVolume::getFat(u32 cluster) {
  const u8* entry = loadEntry(cluster);
  if (entry == nullptr) return 1;
  if (isFat32()) return *recordAt<Le32>(std::span(entry, 4)) & 0x0FFFFFFF;
  const u32 word = *recordAt<Le16>(std::span(entry, 2));
  if (kind_ == FatKind::fat16) return word;
  return cluster % 2 != 0 ? word >> 4 : word & 0xFFF;
}

void FatVolume::setFat(u32 cluster, u32 value) {
  if (error_) return;
  u8* entry = loadEntry(cluster);
  if (entry == nullptr) return;
  if (isFat32()) {
    Le32& field = *recordAt<Le32>(std::span(entry, 4));
    field = value | (field & 0xF0000000);
  } else {
    Le16& field = *recordAt<Le16>(std::span(entry, 2));
    if (kind_ == FatKind::fat16)
      field = static_cast<u16>(value);
    else if (cluster % 2 != 0)
      field = static_cast<u16>((field & 0x000F) | (value << 4));
    else
      field = static_cast<u16>((field & 0xF000) | (value & 0x0FFF));
  }
  cache_.markDirty(cluster);
}

u8* FatVolume::loadEntry(u32 cluster) {
  FatWindowCache::Window* window = cache_.find(cluster);
  if (cluster >= entriesInFat_ ||
      (window == nullptr && (window = loadWindow(cluster)) == nullptr)) {
    error_ = error_ || !ignoreErrors_;
    return nullptr;
  }
  return window->bytes + entryOffset(kind_, cluster - window->firstEntry);
}

// --- Windows

bool FatVolume::ReadAhead::holds(u64 first, u64 count, u32 sectorBytes) const {
  return first >= firstSector && first + count <= firstSector + bytes.size() / sectorBytes;
}

bool FatVolume::ReadAhead::touches(u64 first, u64 count, u32 sectorBytes) const {
  return first < firstSector + bytes.size() / sectorBytes && firstSector < first + count;
}

FatWindowCache::Window* FatVolume::loadWindow(u32 cluster) {
  if (!cache_.isSetUp()) return nullptr;
  if (!cache_.hasRoom() && !writeDirtyWindows() && !ignoreErrors_) return nullptr;
  FatWindowCache::Window& window = cache_.take(cluster);
  if (newFatMode_ || readWindow(window)) return &window;
  cache_.discardCurrent();
  return nullptr;
}

bool FatVolume::readWindow(FatWindowCache::Window& window) {
  const u32 first = static_cast<u32>(window.firstEntry / entriesPerSector_);
  const u32 sectors = std::min(windowSectors_, sectorsPerFat() - first);
  const bool follows = first == nextWindowSector_;
  nextWindowSector_ = first + sectors;
  if (copyReadAhead(first, sectors, window.bytes)) return true;
  if (follows && fillReadAhead(first, sectors) && copyReadAhead(first, sectors, window.bytes))
    return true;
  const u64 lba = fatStartLba() + first;
  return disk_.readSectors(lba, window.bytes, sectors) == Error::none ||
         (ignoreErrors_ && rescueWindow(lba, window.bytes, sectors));
}

bool FatVolume::copyReadAhead(u32 first, u32 sectors, u8* to) const {
  if (!readAhead_.holds(first, sectors, bytesPerSector())) return false;
  std::memcpy(
      to, readAhead_.bytes.data() + std::size_t{first - readAhead_.firstSector} * bytesPerSector(),
      std::size_t{sectors} * bytesPerSector());
  return true;
}

bool FatVolume::fillReadAhead(u32 first, u32 windowSectors) {
  const u32 sectors = std::min(kReadAheadBytes / bytesPerSector(), sectorsPerFat() - first);
  if (sectors <= windowSectors) return false;
  readAhead_.firstSector = first;
  readAhead_.bytes.resize(std::size_t{sectors} * bytesPerSector());
  if (disk_.readSectors(fatStartLba() + first, readAhead_.bytes.data(), sectors) == Error::none)
    return true;
  readAhead_ = {};
  return false;
}

u32 FatVolume::fatCopies() const { return fatStartOverride_ != 0 ? 1 : numberOfFats(); }

// Sector by sector, each from the first FAT copy that gives it; what none gives stays zero.
bool FatVolume::rescueWindow(u64 lba, u8* buffer, u32 sectors) {
  for (u32 i = 0; i < sectors; ++i) {
    u8* sector = buffer + std::size_t{i} * bytesPerSector();
    bool found = false;
    for (u32 copy = 0; copy < fatCopies() && !found; ++copy)
      found = disk_.readSectors(lba + i + u64{copy} * sectorsPerFat(), sector, 1) == Error::none;
    if (!found) std::memset(sector, 0, bytesPerSector());
  }
  return true;
}

// --- Writing

FatVolume::DirtyRun FatVolume::dirtyRunOf(const FatWindowCache::Window& window) const {
  if (kind_ == FatKind::fat12) return {0, std::min(windowSectors_, sectorsPerFat()), window.bytes};
  const u32 low = window.dirtyLow / entriesPerSector_;
  const u32 high = window.dirtyHigh / entriesPerSector_;
  return {static_cast<u32>(window.firstEntry / entriesPerSector_) + low, high - low + 1,
          window.bytes + std::size_t{low} * bytesPerSector()};
}

// Dirty ranges that touch go out in one write.
bool FatVolume::writeDirtyWindows() {
  const std::vector<FatWindowCache::Window*> dirty = cache_.dirtyWindows();
  std::vector<DirtyRun> runs;
  runs.reserve(dirty.size());
  for (const FatWindowCache::Window* window : dirty) runs.push_back(dirtyRunOf(*window));
  bool ok = true;
  for (std::size_t first = 0, end = 0; first < runs.size(); first = end) {
    end = first + 1;
    while (end < runs.size() && runs[end].firstSector == runs[end - 1].endSector()) ++end;
    ok = writeRuns(std::span(runs).subspan(first, end - first)) && ok;
    if (!ok && !ignoreErrors_) return false;
  }
  for (FatWindowCache::Window* window : dirty) window->clean();
  return ok;
}

bool FatVolume::writeRuns(std::span<const DirtyRun> runs) {
  const u32 first = runs.front().firstSector;
  const u32 sectors = runs.back().endSector() - first;
  const u8* bytes = runs.front().bytes;
  std::vector<u8> joined;
  if (runs.size() > 1) {
    for (const DirtyRun& run : runs)
      joined.insert(joined.end(), run.bytes, run.bytes + u64{run.sectors} * bytesPerSector());
    bytes = joined.data();
  }
  if (readAhead_.touches(first, sectors, bytesPerSector())) readAhead_ = {};

  bool ok = true;
  for (u32 copy = 0; copy < fatCopies() && (ok || ignoreErrors_); ++copy)
    ok = writeCopy(fatStartLba() + first + u64{copy} * sectorsPerFat(), bytes, sectors) && ok;
  return ok;
}

bool FatVolume::writeCopy(u64 lba, const u8* bytes, u32 sectors) {
  if (disk_.writeSectors(lba, bytes, sectors) == Error::none) return true;
  for (u32 i = 0; ignoreErrors_ && i < sectors; ++i)
    static_cast<void>(disk_.writeSectors(lba + i, bytes + std::size_t{i} * bytesPerSector(), 1));
  return false;
}

}  // namespace tallowin
