// `FatVolume`: one FAT12, FAT16 or FAT32 file system in a range of sectors, below the level of
// files.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "base/geometry.h"
#include "disk/disk_device.h"
#include "fat/fat_record.h"
#include "fat/fat_window_cache.h"

namespace tallowin {

class Drive;
class PartitionEntry;

enum class FatKind : u8 { fat12, fat16, fat32 };

// Where a volume lies and what is known of it from outside. Units: device sectors.
struct FatPlacement {
  u64 startSector = 0;
  u64 lengthSectors = 0;
  u8 typeId = 0;        // the partition type, unhidden
  Geometry geometry;    // for the boot sector's heads and sectors per track
  u32 hiddenValue = 0;  // a volume in an extended partition: the gap to its EBR; else 0
};

// The boot area in memory, the layout that follows from it, and the entries of the FAT through
// a window cache. The disk is borrowed and must outlive the volume.
//
// Nothing the boot sector says is believed before isValid(): on an invalid volume only that, the
// boot area and the plain fields may be used. On a valid one all of reserved area, FATs and root
// directory lie inside the partition.
class FatVolume {
 public:
  static constexpr u32 kBootAreaSectors = 3;
  static constexpr u32 kUsualWindowSectors = 24;  // what the engines set the FAT cache up with
  static constexpr u32 kUsualSavedWindows = 32;

  // Reads and classifies the boot area. Never null; a volume that could not be read is invalid.
  static std::unique_ptr<FatVolume> open(DiskDevice& disk, const FatPlacement& placement);
  static std::unique_ptr<FatVolume> open(Drive& drive, const PartitionEntry& entry);
  // A volume with an all-zero boot area, for buildBootSector to fill. Nothing is read.
  static std::unique_ptr<FatVolume> createEmpty(DiskDevice& disk, const FatPlacement& placement);

  // Writes dirty windows of the FAT. A failure cannot be told here: call flushFat() before.
  ~FatVolume();
  FatVolume(const FatVolume&) = delete;
  FatVolume& operator=(const FatVolume&) = delete;

  DiskDevice& disk() const { return disk_; }
  const FatPlacement& placement() const { return placement_; }
  u64 startSector() const { return placement_.startSector; }
  u64 lengthSectors() const { return placement_.lengthSectors; }
  u8 typeId() const { return placement_.typeId; }
  void setTypeId(u8 typeId) { placement_.typeId = typeId; }
  void setLengthSectors(u64 length) { placement_.lengthSectors = length; }

  bool isValid() const { return valid_; }
  FatKind kind() const { return kind_; }
  bool isFat32() const { return kind_ == FatKind::fat32; }
  void setKind(FatKind kind) { kind_ = kind; }
  // Derives the kind from the boot sector (and, where it does not say, from the type), and
  // whether it is valid. To be called after the boot sector was changed in memory.
  void classify();

  // --- Layout. Sector numbers are relative to the volume unless the name ends in Lba.
  u32 bytesPerSector() const { return bpb().bytesPerSector; }
  u32 sectorsPerCluster() const { return bpb().sectorsPerCluster; }
  u32 reservedSectors() const { return bpb().reservedSectors; }
  u32 numberOfFats() const { return bpb().numberOfFats; }
  u32 totalSectors() const;
  u32 sectorsPerFat() const;
  // Where the FAT is read and written: behind the reserved sectors, or at the override.
  u64 fatStartLba() const;
  u32 rootDirSectors() const;  // 0 on FAT32
  u64 rootDirSector() const;   // FAT12/16: the first sector behind the FATs
  u64 firstDataSector() const;
  u64 dataStartLba() const { return startSector() + firstDataSector(); }
  // 0 when the metadata leaves no room for a cluster.
  u32 clusterCount() const;
  u32 highestCluster() const { return clusterCount() + 1; }
  // `cluster` from 2 up.
  u64 clusterToLba(u32 cluster) const;
  // `lba` in the data area.
  u32 lbaToCluster(u64 lba) const;

  // --- The FAT. The cache must be set up first; it needs a valid volume.
  u32 badMark() const;
  u32 endMark() const { return badMark() + 8; }

  // `windowSectors` of the FAT in a window (FAT12: the whole FAT in one), `savedWindows` of
  // them kept. False when there is not so much memory, or the volume is not valid.
  [[nodiscard]] bool setupFatCache(u32 windowSectors, u32 savedWindows);
  // The same with a new size; changes that were not flushed are lost.
  [[nodiscard]] bool resetFatCache(u32 windowSectors, u32 savedWindows);

  // The entry of `cluster`, on FAT32 without its top 4 bits. 1 when it cannot be read or lies
  // behind the end of the FAT; the error flag is then set, unless errors are ignored.
  u32 getFat(u32 cluster);
  // Ignored while the error flag is set. FAT32: `value` is ORed with the entry's old top bits.
  void setFat(u32 cluster, u32 value);
  void markBad(u32 cluster) { setFat(cluster, badMark()); }
  void markEnd(u32 cluster) { setFat(cluster, endMark()); }
  // Writes all dirty windows to every FAT copy, or to the first alone while the FAT start is
  // overridden. After a failure the windows are still dirty; with errors ignored everything
  // that can be written is, the windows are clean, and the answer is still false.
  [[nodiscard]] bool flushFat() { return writeDirtyWindows(); }

  // An LBA other than 0 moves the FAT there, for one copy; 0 moves it back. To be changed only
  // while nothing is dirty, or before the cache is set up.
  void setFatStartOverride(u64 lba);
  // Windows begin zeroed instead of being read: for a FAT that is built from its first entry
  // on. A window that was evicted begins zeroed again.
  void setNewFatMode(bool on) { newFatMode_ = on; }
  bool hasError() const { return error_; }
  void clearError() { error_ = false; }
  void setIgnoreErrors(bool ignore) { ignoreErrors_ = ignore; }

  // --- The boot area.
  // Reads it and classifies the volume. False, with the volume invalid, when it is unreadable.
  [[nodiscard]] bool readBootArea();
  // FAT12/16: the boot sector. FAT32: boot sector, FSInfo and the third sector, at their places
  // and at the backup's, all inside the reserved sectors. False at the first failing transfer.
  [[nodiscard]] bool writeBootArea();

  std::span<u8> bootArea() { return bootArea_; }
  std::span<const u8> bootArea() const { return bootArea_; }
  // Sector 0, 1, or the third slot: sector 2, with NT-style boot code sector 12.
  std::span<u8> bootAreaSector(u32 slot);
  std::span<const u8> bootSector() const;

  FatBpbRecord& bpb() { return *recordAt<FatBpbRecord>(bootArea()); }
  const FatBpbRecord& bpb() const { return *recordAt<FatBpbRecord>(bootArea()); }
  Fat32BpbRecord& bpb32() { return *recordAt<Fat32BpbRecord>(bootArea(), kFat32BpbOffset); }
  const Fat32BpbRecord& bpb32() const {
    return *recordAt<Fat32BpbRecord>(bootArea(), kFat32BpbOffset);
  }
  // Drive number, serial, label and type text, where this kind has them.
  FatIdentityRecord& identity();
  const FatIdentityRecord& identity() const;
  bool hasExtendedBootSignature() const {
    return isFatExtendedSignature(identity().extendedSignature);
  }
  std::string_view label() const { return {identity().label, kFatLabelLength}; }
  std::string_view typeText() const { return {identity().typeText, 8}; }
  void setLabel(std::string_view elevenBytes);
  void setTypeText(std::string_view eightBytes);
  // FAT12/16 only; ignored on FAT32.
  void setRootEntries(u16 entries);
  // Null when the volume is not FAT32 or its second sector is no FSInfo sector.
  FatFsInfoRecord* fsInfo();

 private:
  FatVolume(DiskDevice& disk, const FatPlacement& placement);

  std::optional<FatKind> kindFromBootSector() const;
  bool isSound() const;

  bool stampSectorTwo();

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
  u8* loadEntry(u32 cluster);
  FatWindowCache::Window* loadWindow(u32 cluster);
  bool readWindow(FatWindowCache::Window& window);
  bool copyReadAhead(u32 first, u32 sectors, u8* to) const;
  bool fillReadAhead(u32 first, u32 windowSectors);
  bool rescueWindow(u64 lba, u8* buffer, u32 sectors);
  u32 fatCopies() const;
  DirtyRun dirtyRunOf(const FatWindowCache::Window& window) const;
  bool writeDirtyWindows();
  bool writeRuns(std::span<const DirtyRun> runs);
  bool writeCopy(u64 lba, const u8* bytes, u32 sectors);

  DiskDevice& disk_;
  FatPlacement placement_;
  std::vector<u8> bootArea_;
  FatKind kind_ = FatKind::fat16;
  bool valid_ = false;

  FatWindowCache cache_;
  u32 windowSectors_ = 0;
  u32 entriesPerSector_ = 1;  // not of a FAT12, whose entries straddle sectors
  u64 entriesInFat_ = 0;
  ReadAhead readAhead_;
  u32 nextWindowSector_ = kAllOnes32;
  u64 fatStartOverride_ = 0;
  bool newFatMode_ = false;
  bool error_ = false;
  bool ignoreErrors_ = false;
};

}  // namespace tallowin
