// The entries of a FAT, through a window cache.
#pragma once

#include <span>
#include <vector>

#include "disk/sector_range.h"
#include "fat/fat_layout.h"
#include "fat/fat_window_cache.h"

namespace tallowin {

// Reads windows of the first FAT copy on demand and writes what was changed to all of them.
// Changes are on the disk after flush(), or when room for another window is needed; what was not
// flushed is lost with the object.
class FatTable {
 public:
  struct Options {
    u32 windowSectors = 24;  // of the FAT in a window; a FAT12 is held whole
    u32 savedWindows = 32;
    // An LBA other than 0 moves the FAT there, for one copy.
    u64 elsewhereLba = 0;
    // Windows begin zeroed instead of being read: for a FAT that is built from its first entry on.
    // A window that was evicted begins zeroed again.
    bool isNew = false;
    // What one copy does not give is read from the next, and what none gives is 0; what cannot be
    // written is passed over.
    bool rescues = false;
  };

  // `layout` must be that of the range, see FatBootArea::layoutIn.
  FatTable(const SectorRange& range, const FatLayout& layout);

  // To be called first, and again to change the options; forgets what was not flushed.
  // outOfMemory.
  Failure setUp(const Options& options);
  Failure setUp() { return setUp(Options()); }

  bool isSetUp() const { return cache_.isSetUp(); }

  const FatLayout& layout() const { return layout_; }

  // The entry of `cluster`, on FAT32 without its top 4 bits. corrupt: it lies behind the end of
  // the FAT; read. As well of get as of set: write, noSpaceLeft, when changes had to make room.
  Failure get(u32 cluster, u32& value);
  // FAT32: `value` is ORed with the entry's old top bits.
  Failure set(u32 cluster, u32 value);
  Failure markBad(u32 cluster) { return set(cluster, layout_.badMark()); }
  Failure markEnd(u32 cluster) { return set(cluster, layout_.endMark()); }
  // After a failure the changes are still held and can be flushed again; with `rescues` all that
  // can be written is, and the changes are not held any more.
  Failure flush() { return writeDirtyWindows(); }

 private:
  // Changed sectors of the FAT, counted from its start, as they lie in a window.
  struct DirtyRun {
    u32 firstSector = 0;
    u32 sectors = 0;
    const u8* bytes = nullptr;
    u32 endSector() const { return firstSector + sectors; }
  };
  // Sectors of the FAT behind the windows that were loaded last.
  struct ReadAhead {
    u64 firstSector = 0;
    std::vector<u8> bytes;
    bool holds(u64 first, u64 count, u32 sectorBytes) const;
    bool touches(u64 first, u64 count, u32 sectorBytes) const;
  };

  DiskDevice& disk() const { return range_.disk; }
  u32 sectorBytes() const { return layout_.bytesPerSector; }
  u64 startLba() const;
  u32 copies() const { return options_.elsewhereLba != 0 ? 1 : layout_.numberOfFats; }
  Failure findEntry(u32 cluster, u8*& entry);
  Failure loadWindow(u32 cluster);
  Failure readWindow(FatWindowCache::Window& window);
  bool copyReadAhead(u32 first, u32 sectors, u8* to) const;
  bool fillReadAhead(u32 first, u32 windowSectors);
  void rescueWindow(u64 lba, u8* buffer, u32 sectors);
  DirtyRun dirtyRunOf(const FatWindowCache::Window& window) const;
  Failure writeDirtyWindows();
  Failure writeRuns(std::span<const DirtyRun> runs);
  Failure writeCopy(u64 lba, const u8* bytes, u32 sectors);

  SectorRange range_;
  FatLayout layout_;
  Options options_;
  FatWindowCache cache_;
  u32 windowSectors_ = 0;
  u32 entriesPerSector_ = 1;  // not of a FAT12, whose entries straddle sectors
  u64 entriesInFat_ = 0;
  ReadAhead readAhead_;
  u32 nextWindowSector_ = kAllOnes32;
};

}  // namespace tallowin
