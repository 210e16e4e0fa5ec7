// The first track of an EMBR disk in memory: MBR, header, MPT, and the boot manager's tables.
#pragma once

#include <span>
#include <vector>

#include "base/error.h"
#include "base/geometry.h"
#include "disk/disk_device.h"
#include "ptable/embr/embr_record.h"

namespace tallowin {

// Changes are made in the image, which is then written back from LBA 0 on. Entry positions are
// 0 .. entryCount().
class EmbrImage {
 public:
  static constexpr std::size_t kMaxBytes = 32 * kKiB;
  static constexpr u32 kMaxSectors = 63;

  // notThisFormat: the disk carries no valid EMBR; the image then still holds its first sectors.
  // tableReadFailed, outOfMemory.
  static Failure read(DiskDevice& disk, EmbrImage& image);
  // The same from the first sectors of a disk in memory.
  static Failure parse(std::span<const u8> track, u32 sectorSizeBytes, EmbrImage& image);
  // Puts a new empty header into the first sectors that read() brought (or into zeros with
  // `fresh`). Nothing is written.
  void create(const Geometry& geometry, bool fresh);

  u32 entryCount() const { return header().mptCount; }
  MptEntryRecord& entry(u32 position) {
    return *recordAt<MptEntryRecord>(image(), entryAt(position));
  }
  const MptEntryRecord& entry(u32 position) const {
    return const_cast<EmbrImage*>(this)->entry(position);
  }
  // `wanted`, raised until no entry has it; 255 is followed by 1.
  u8 freeId(u32 wanted) const;
  // noFreeEntry: 255 entries, or the area would pass the first track; nothing changed then.
  Failure insert(u32 position, const MptEntryRecord& entry);
  void remove(u32 position);

  bool limitsPrimaries() const { return (header().mptFlags & kMptLimitPrimaries) != 0; }
  void setLimitsPrimaries(bool limit);
  // The first sector behind the EMBR: the first usable sector of the disk.
  u32 endSector() const { return header().endSector; }
  u32 headerSector() const { return headerSector_; }
  // A sector of the image, below endSector().
  std::span<const u8> sector(u32 lba) const;
  std::span<u8> mbr() { return image().first(sectorSize_); }
  // The first `count` sectors, as far as the image holds them.
  std::span<const u8> firstSectors(u32 count) const;
  // Whether the device was large enough for an EMBR.
  bool hasRoom() const { return !bytes_.empty(); }
  std::span<const u8> bootManagerTables() const;
  // Whether both have the same sectors behind the MBR.
  bool holdsSameTable(const EmbrImage& other) const;

  // Writes LBA 0 .. endSector() - 1, at most the first track. tableWriteFailed.
  Failure write(DiskDevice& disk);
  // Turns a disk with another table into one with this EMBR: the write of the header's sector is
  // what decides, the MBR comes last.
  Failure writeAsNewTable(DiskDevice& disk);
  // The same without sector 0, which stays as it is on the disk.
  Failure writeBehindMbr(DiskDevice& disk);

 private:
  EmbrHeaderRecord& header() { return *recordAt<EmbrHeaderRecord>(image(), headerAt()); }
  const EmbrHeaderRecord& header() const { return const_cast<EmbrImage*>(this)->header(); }
  std::span<u8> image() { return bytes_; }
  std::size_t headerAt() const { return std::size_t{headerSector_} * sectorSize_; }
  std::size_t entryAt(u32 position) const;
  std::size_t areaEnd() const;
  u32 trackSectors() const;
  // Finds the end of the items, or 0 when a count or length leaves the area.
  std::size_t locateEnd() const;
  std::size_t skipItems(std::size_t at, u32 count, std::size_t fixedBytes) const;
  bool check();
  bool grow();
  void clearUnused();
  Failure writeRun(DiskDevice& disk, u32 first, u32 end);

  u32 sectorSize_ = kEmbrSectorBytes;
  u32 headerSector_ = 1;
  std::size_t usedEnd_ = 0;  // end of the last item, in the image
  std::vector<u8> bytes_;
};

}  // namespace tallowin
