// `DiskDevice`: the one way to a sector, whatever lies below it.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "base/error.h"
#include "base/geometry.h"
#include "base/types.h"

namespace tallowin {

enum class DiskType : u8 {
  scsiGeneric = 6,
  blockDevice = 130,
  rawImage = 144,
  vhdImage = 145,
  vmdkImage = 146,
};

enum class MediaFlag : u8 { fixed = 1, removable = 2 };

enum class DiskAccess { readWrite, readOnly };

inline constexpr u8 kHardDiskKind = 0;
inline constexpr u8 kOpticalKind = 5;

// What is fixed from open to close.
struct DiskTraits {
  u8 kindByte = 8;  // 8 block device, 0xFE image file or SCSI generic
  u8 deviceKind = kHardDiskKind;
  DiskType type = DiskType::blockDevice;
  MediaFlag media = MediaFlag::fixed;
  u16 commandTimeoutSeconds = 20;
  u32 sectorSizeBytes = 512;
  u8 deviceClass = 255;  // 255 block device, 8 image file, 6 SCSI generic
  u32 maxTransferBytes = 4 * kMiB;
  bool readOnly = false;
  std::string path;
  u64 startOffset = 0;   // sectors; inside an underlying disk, encrypted mappings only
  u64 deviceNumber = 0;  // st_rdev of a block device
};

inline constexpr u32 kBiosNumberUnknown = 0;           // not yet determined
inline constexpr u32 kBiosNumberNoMatch = kAllOnes32;  // no firmware disk matched

// One sector transfer that may be under way beside others: see DiskDevice::begin.
struct DiskTransfer {
  enum class Direction { read, write };
  Direction direction = Direction::read;
  u64 lba = 0;
  void* buffer = nullptr;
  u32 count = 0;         // sectors; count x sector size is at most the maximum transfer
  Failure failure = {};  // valid after finish
  u64 ticket = 0;        // owned by the device between begin and finish
};

// A partition as the kernel is to see it, for DiskDevice::tellKernel. Units: device sectors.
struct KernelPartition {
  u32 number = 0;
  u64 startSector = 0;
  u64 sectorCount = 0;
  bool isExtended = false;  // holds volumes; the kernel keeps only the first sectors of it
};

// A track of a disc that holds data.
struct DataTrack {
  u64 firstSector = 0;
  u64 endSector = 0;
};

enum class KernelTable {
  upToDate,      // the kernel knows the new table, or has none of this disk (image files)
  restartNeeded  // neither re-reading nor telling partition by partition worked
};

// One open disk. Sector numbers are LBAs in units of sectorSize() bytes.
//
// A failed transfer failed as a whole, and any part of it may have been done; the failure names the
// first sector of the chunk that failed. Nothing is retried here. Writes are on the medium only
// after flush(). Requests of kBulkBytes and more from buffers aligned to kBulkAlignment go past the
// page cache where the medium allows it, so bulk work should use such pieces (see TransferBuffer).
class DiskDevice {
 public:
  static constexpr u32 kBulkBytes = 256 * 1024;
  static constexpr u32 kBulkAlignment = 4096;

  virtual ~DiskDevice() = default;
  DiskDevice(const DiskDevice&) = delete;
  DiskDevice& operator=(const DiskDevice&) = delete;

  const DiskTraits& traits() const { return traits_; }
  u32 sectorSize() const { return traits_.sectorSizeBytes; }

  // The chunking front end of all engines: a request above the maximum transfer is cut into
  // chunks of that size, and the first failing chunk ends it. Zero sectors succeed at once.
  // read, write, noSpaceLeft, readOnlyDisk.
  Failure readSectors(u64 lba, void* buffer, u64 count);
  Failure writeSectors(u64 lba, const void* buffer, u64 count);
  // Writes zeros over what is there, as a wipe has to.
  Failure writeZeros(u64 lba, u64 count);
  // Makes the sectors read as zeros, by the medium's own fast way where it has one: what was there
  // may stay on the medium.
  Failure clearSectors(u64 lba, u64 count);

  // A transfer that may overlap with others: begin, do something else, finish. A device without
  // overlapping requests does the work in begin. The transfer object and its buffer must stay
  // where they are until finish has returned; every begun transfer must be finished.
  virtual void begin(DiskTransfer& transfer);
  virtual Failure finish(DiskTransfer& transfer);

  // These sectors are read soon, by requests below kBulkBytes: a medium that can fetch several
  // places at a time may begin now.
  virtual void willRead(u64 lba, u64 count) {
    static_cast<void>(lba);
    static_cast<void>(count);
  }

  // Everything written so far is on the medium.
  virtual Failure flush() = 0;
  // Forgets what caches hold of this disk, so that the next read comes from the medium.
  // Called after flush; a failure loses nothing.
  virtual void dropCaches() {}
  // The same, and for what caches hold of partitions with sectors in this range: the kernel keeps
  // buffers of its own for each partition's node.
  virtual void dropCachesOf(u64 lba, u64 count) {
    static_cast<void>(lba);
    static_cast<void>(count);
    dropCaches();
  }

  // Whether it still is the disk that was opened, before something is written to it. deviceChanged:
  // the path leads to another one or to none by now, or the disk has become smaller.
  virtual Failure checkSameDisk() { return {}; }

  // Sectors of the disk; nothing when the size cannot be found out.
  virtual std::optional<u64> sectorCount() = 0;
  // The last one in the table of contents of a disc in a drive; nothing for everything else.
  virtual std::optional<DataTrack> lastDataTrack() { return std::nullopt; }
  virtual std::string displayName() { return traits_.path; }
  // Vendor and model as one text, and the serial number; empty when unknown.
  virtual std::string model() { return {}; }
  virtual std::string serial() { return {}; }

  // The firmware's geometry; false when it had to be defaulted (1023/254/63). Computed once.
  virtual bool firmwareGeometry(Geometry& geometry) = 0;
  // The firmware's disk number 0x80..0x9F, or kBiosNumberNoMatch.
  virtual u32 biosNumber() { return kBiosNumberNoMatch; }

  // Advisory lock against other programs while an operation changes the disk. False when
  // somebody else holds it. Operations inside others hold it again, and the last one lets it go.
  // See DiskChangeLock for the guard.
  [[nodiscard]] bool lockForChange();
  void unlockAfterChange();
  // Makes the kernel's picture of the table that of the disk; `wanted` is the table now on
  // disk, used partition by partition when a re-read is refused.
  virtual KernelTable tellKernel(std::span<const KernelPartition> wanted) {
    static_cast<void>(wanted);
    return KernelTable::upToDate;
  }

 protected:
  explicit DiskDevice(DiskTraits traits) : traits_(std::move(traits)) {}
  DiskDevice() = default;

  // At most the maximum transfer, at least one sector.
  virtual Failure transferIn(u64 lba, void* buffer, u32 count) = 0;
  virtual Failure transferOut(u64 lba, const void* buffer, u32 count) = 0;
  // Nothing, and nothing was done: the medium has no fast way, so zeros have to be written.
  virtual std::optional<Failure> zeroFast(u64 lba, u64 count) {
    static_cast<void>(lba);
    static_cast<void>(count);
    return std::nullopt;
  }

  // The lock itself, asked for the first hold and given back after the last.
  [[nodiscard]] virtual bool acquireLock() { return true; }
  virtual void releaseLock() {}

  DiskTraits traits_;

 private:
  u32 sectorsPerChunk() const;
  template <typename Byte, typename Transfer>
  Failure inChunks(u64 lba, Byte* bytes, u64 count, Transfer transfer);

  u32 lockHolds_ = 0;
};

// Holds the advisory lock of a disk for one operation.
class DiskChangeLock {
 public:
  explicit DiskChangeLock(DiskDevice& disk) : disk_(disk), held_(disk.lockForChange()) {}
  ~DiskChangeLock() {
    if (held_) disk_.unlockAfterChange();
  }
  DiskChangeLock(const DiskChangeLock&) = delete;
  DiskChangeLock& operator=(const DiskChangeLock&) = delete;

  bool held() const { return held_; }

 private:
  DiskDevice& disk_;
  bool held_;
};

}  // namespace tallowin
