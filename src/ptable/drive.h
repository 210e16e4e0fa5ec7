// One opened disk with its partition table: the model that every flow works on.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "base/error.h"
#include "base/geometry.h"
#include "base/host.h"
#include "disk/disk_device.h"
#include "ptable/alignment.h"
#include "ptable/entry_move.h"
#include "ptable/gpt/gpt_health.h"
#include "ptable/partition_entry.h"

namespace tallowin {

enum DriveFlags : u32 {
  kDriveReadVolumes = 0x1,   // always set when a front end opens a drive
  kDrivePreferLabels = 0x2,  // setting VolumeLabels
  kDriveEmbr = 0x8,
  kDriveChanged = 0x10,  // the model must be read again
  kDriveReread = 0x20,   // read again; the views must be refilled
  kDriveGpt = 0x40,
  kDriveAligned1MiB = 0x80,        // detected
  kDriveSequentialIds = 0x100,     // setting SeqVolID
  kDriveWholeDiskAllowed = 0x200,  // always set when a front end opens a drive
  kDriveAlignOnEnd = 0x400,        // settings AlignOnEnd, AlignEndHS, AlignHSOnTrunc
  kDriveChsForceEnd = 0x800,
  kDriveChsEndIfTruncated = 0x1000,
  kDriveGeometryModeMask = 0x700000,
};
inline constexpr u32 kDriveGeometryModeShift = 20;

// The name of a whole-disk volume whose file system has no label.
inline constexpr const char* kUnlabelledWholeDisk = "----->";

class TableScheme;
struct TableContext;
struct TableReading;

enum class Scheme { mbr, gpt, embr, wholeDisk };

// Reads the label of the file system in a partition; empty when there is none. Registered by
// the folders above, which know file systems.
using LabelReader = std::function<std::string(DiskDevice&, const PartitionEntry&)>;

struct DriveOpenOptions {
  u32 flags = kDriveReadVolumes | kDriveWholeDiskAllowed;
  Geometry geometryOverride;  // zero fields keep the computed value
  i64 alignment = AlignmentRules::kDefaultUnit;
  u32 driveNumber = 0;  // class in bits 16..23, index in bits 0..14
  LabelReader labelReader;
};

// Whether what another program keeps behind the MBR is given up where a table has to go there.
enum class TrackContent { keep, overwrite };

// A partition that is to be. What its table has no place for is left out.
struct NewEntry {
  u64 startSector = 0;
  u64 endSector = 0;  // inclusive
  // A volume's EBR goes here, before its first sector and inside an extended partition; without it
  // the partition goes to the top level. Both are absolute.
  std::optional<u64> ebrSector = {};
  u16 type = 0;
  std::string name = {};    // UTF-8; cut to what the table holds
  PartitionId id = 1;       // a wish, raised until it is unique
  u64 attributes = 0;       // GPT attribute bits, or the flags of an EMBR entry
  Guid typeGuid = {};       // GPT; zero: one that fits the type
  Guid uniqueGuid = {};     // GPT; zero: a new one
  bool keepsChain = false;  // an extended partition whose volumes are there already
};

// A partition that takes all of a free block of the top level or of an extended partition.
NewEntry newEntryIn(const PartitionEntry& block);

// How a change arrived: on the medium, and in the kernel.
struct [[nodiscard]] Settled {
  Failure failure;  // of the flush: what was written may not be on the medium
  KernelTable kernel = KernelTable::upToDate;
};

// What can be changed in an entry without moving it. Only what is set is changed.
struct EntryProperties {
  std::optional<u16> type = {};          // the type byte; of a GPT that of an MBR slot, and 0xEF
  std::optional<std::string> name = {};  // UTF-8; cut to what the table holds
  std::optional<Guid> typeGuid = {};     // GPT
  std::optional<u64> attributes = {};    // GPT attribute bits, or the flags of an EMBR entry
  std::optional<bool> active = {};       // of entries with an MBR slot; takes the others' marks
  std::optional<u64> endSector = {};     // inclusive

  bool operator==(const EntryProperties&) const = default;
};

struct SectorRegion {
  u64 first = 0;
  u64 last = 0;  // inclusive
};

// The disk is shared with the drive-handle table; the drive owns its table and all entries.
// Only what is named a change writes. After one the entries on hand are stale: reread() replaces
// them.
class Drive {
 public:
  // Never fails because of what is on the disk; outOfMemory, geometryNotAvailable (also: the
  // size cannot be found out).
  static Failure open(std::shared_ptr<DiskDevice> disk, Host& host, const DriveOpenOptions& options,
                      std::unique_ptr<Drive>& drive);

  // The drive on another disk device that stands for the same disk, read anew, with all that is set
  // here. Errors of open.
  Failure openOn(std::shared_ptr<DiskDevice> disk, std::unique_ptr<Drive>& drive) const;

  DiskDevice& disk() { return *disk_; }
  const PartitionTable& table() const { return *table_; }
  PartitionTable& table() { return *table_; }
  Scheme scheme() const;
  // "MBR", "GPT", "EMBR" or "VOL".
  const char* schemeName() const;
  bool isGpt() const { return (flags_ & kDriveGpt) != 0; }
  bool isEmbr() const { return (flags_ & kDriveEmbr) != 0; }

  u32 diskSignature() const { return diskSignature_; }
  const Guid& diskGuid() const { return diskGuid_; }
  // Nothing unless the disk has a GPT.
  const std::optional<GptHealth>& gptHealth() const { return gptHealth_; }
  const Geometry& geometry() const { return geometry_; }
  u64 lastChsSector() const { return lastChsSector_; }
  u64 firstUsableSector() const { return firstUsableSector_; }
  u64 lastUsableSector() const { return lastUsableSector_; }
  u64 lastLba() const { return lastLba_; }
  u32 sectorSize() const { return disk_->sectorSize(); }
  u32 flags() const { return flags_; }
  void setFlags(u32 mask, u32 value) { flags_ = (flags_ & ~mask) | (value & mask); }
  // The first sector of a partition whose move or resize was cut short; nothing is the rule. Told
  // by the folders above, which find it out.
  void setUnfinished(std::optional<u64> startSector) { unfinishedStart_ = startSector; }
  bool hasUnfinished() const { return unfinishedStart_.has_value(); }
  bool isUnfinished(const PartitionEntry& entry) const {
    return !entry.isFree() && unfinishedStart_ == entry.startSector;
  }
  u32 driveNumber() const { return driveNumber_; }
  // The firmware's number, from kFirstBiosDisk; nothing: the firmware cannot start from this disk,
  // an image file or a device that is not in the list.
  std::optional<u8> biosNumber() const { return biosNumber_; }
  bool isFirstBiosDisk() const;

  // Zero fields keep the current value. Returns whether the geometry changed.
  bool setGeometry(Geometry geometry);
  // -1, or sectors when positive, or bytes when negative (rounded up to sectors); must be a
  // power of two and below the last usable sector, else false and nothing changes.
  bool setAlignment(i64 value);
  AlignmentRules alignment() const;

  // Whether the table may be changed: tableUnreadable for disks whose table cannot be read.
  // add, remove, changeProperties and ensureDiskSignature answer the same.
  Failure changesAllowed() const;
  // One sentence for the user, empty when changes are allowed.
  std::string changeRefusal() const;

  // Whether the disk still holds what was read, chains of volumes included, or still the file
  // system that fills it: tableChangedMeanwhile; read; tableReadFailed, there was nothing to
  // compare with.
  Failure checkUnchanged() const;
  // Why the disk keeps the kind of its table, as one sentence for the user; empty: it may change.
  std::string schemeChangeRefusal() const;

  // What every change of the table asks first: changesAllowed; unsupportedForm, there is no table,
  // or it could not be read; checkUnchanged.
  Failure checkChange() const;

  // Reads the table again; flag kDriveChanged is cleared and kDriveReread set.
  Failure reread();

  // Writes one new entry to the disk.
  // The step that makes it visible is the write of one sector, so that a power cut leaves the old
  // table or the new one. Nothing was written: noFreeEntry, all slots are used;
  // outsideUsableArea, the extent leaves its free region or the limits of the table; tableInError;
  // sectorsInUse, the table has to grow over what `content` keeps; and what checkChange answers.
  // read, write: the old table stands. writeFailedNewTable, writeFailedTableUnknown: see there.
  Failure add(const NewEntry& entry, TrackContent content = TrackContent::keep);
  // Removes an entry from the tables on disk; an extended partition goes with its volumes. A volume
  // that fills the disk goes with all that it is recognised by.
  // Errors as for add.
  Failure remove(const PartitionEntry& entry);
  // Where the entry may end: not before it begins, and an extended partition not before its volumes
  // do; not behind the free sectors after it, nor the limits of the table.
  SectorRegion endLimits(const PartitionEntry& entry);
  // Writes all that is wanted in one step. unsupportedForm: the table has no place for one of
  // them, and nothing was written; outsideUsableArea: the end leaves endLimits; otherwise as for
  // add.
  Failure changeProperties(const PartitionEntry& entry, const EntryProperties& wanted);
  // What a change of the table would answer. It is made on a copy of the disk that stays in memory;
  // nothing is written.
  Failure tryOut(const std::function<Failure(Drive& copy)>& change) const;
  // What finishMove has to know to let the entry begin elsewhere, at the same length; the sectors
  // are moved in between, all of those behind the EBR of a volume. Nothing is written.
  // outsideUsableArea: the new place leaves the free region around the entry, or the limits of the
  // table; sectorsInUse: it would run over a boot loader; unsupportedForm: the entry has no place
  // that could be changed; tableInError; and what checkChange answers.
  Failure planMove(const PartitionEntry& entry, u64 newStart, EntryMove& move);
  // The step that makes the new place visible. May be done again when it is not known whether it
  // was done. Volumes in an extended partition go with it. Errors as for add.
  Failure finishMove(const EntryMove& move);
  // Writes the EBRs of an extended partition again, with CHS addresses by the drive's geometry.
  // unsupportedForm: its chain is not clear; else as for add.
  Failure refreshChain(const PartitionEntry& container);
  // Ends a chain that is not clear behind the last EBR that could be read: what it leads to is not
  // in the table any more. tableInError: there is none. Else as for add.
  Failure truncateChain(const PartitionEntry& container);
  // Makes both copies of a GPT sound again: the backup moves to the last sector of the disk, and
  // both are written from the copy that was read. unsupportedForm: no GPT; backupOverlaps: a
  // partition lies where the backup belongs; else as for add.
  Failure repairGpt();
  // Of an EMBR disk: whether the table offers four slots only. With the limit every partition gets
  // a slot in the MBR, for what has none there would be dropped at the next start; and where no
  // slot is active, `makeFirstActive` marks the first. noTable: no EMBR; tooManyPartitions;
  // partitionBeyondTable, a slot cannot hold its sectors; else as for add.
  Failure setLimitPrimaries(bool limit, bool makeFirstActive);
  // Gives the disk a signature when it has none; `value` 0 makes a random one.
  Failure ensureDiskSignature(u32 value = 0);
  // Ends a change, once: flushes, drops what caches hold and tells the kernel about the table on
  // disk.
  Settled settle();

  // Top level and volumes, free blocks included; null when there is none.
  PartitionEntry* findById(PartitionId id);
  // The number that the kernel gives the partition: slot + 1, volumes from 5 in chain order,
  // 0 for a whole-disk volume; nothing for free blocks. The kernel knows no EMBR: of one it sees
  // what the MBR has a slot for, and the volumes in that. It looks into no extended partition of a
  // hidden type, so the volumes in one have no number either.
  std::optional<u32> kernelNumber(const PartitionEntry& entry) const;
  PartitionEntry* findByKernelNumber(u32 number);
  // The number that lists show and scripts name: the id on an EMBR disk, else the kernel's; volumes
  // in extended partitions of a hidden type are numbered on behind the last one that it counts.
  std::optional<u32> listNumber(const PartitionEntry& entry) const;
  PartitionEntry* findByListNumber(u32 number);
  // The extended partition that holds a volume or an inner free block; null on the top level.
  TableEntry* containerOf(const PartitionEntry& entry);
  // The extended partition that a sector lies in; null where none is.
  TableEntry* containerAt(u64 sector);
  u32 partitionCount() const;  // entries and volumes that are not free
  // Of all used partitions; nothing on an empty disk.
  std::optional<SectorRegion> usedRegion() const;

  // The free region around an entry: from the first sector after the previous entry to the
  // last before the next one, else the bounds of the drive or of the extended partition.
  SectorRegion freeRegionAround(const PartitionEntry& entry);
  // The gap between a volume's EBR and its first sector; 0 for primaries.
  u64 volumeGap(const PartitionEntry& entry) const;
  // `type` in its CHS or LBA variant, by whether `endSector` lies beyond the last CHS sector.
  u16 typeForEnd(u16 type, u64 endSector) const;
  // What the readers and writers of tables need to know of this drive, while it lives.
  TableContext tableContext() const;

 private:
  Drive(std::shared_ptr<DiskDevice> disk, Host& host, const DriveOpenOptions& options);

  bool prepare(const DriveOpenOptions& options);
  void readTable(TableReading& reading);
  void addWholeDisk(u16 type, TableReading& reading) const;
  void adopt(TableReading reading);
  void addFreeBlocks();
  Failure whyNotMoved(const PartitionEntry& entry, const EntryMove& move);
  Failure addVolumeOf(const NewEntry& entry, TrackContent content);
  std::vector<KernelPartition> kernelPartitions() const;
  bool isWhollyRead() const;
  Failure finishChange(Failure error);

  std::shared_ptr<DiskDevice> disk_;
  Host& host_;
  const TableScheme* scheme_;
  std::unique_ptr<PartitionTable> table_;
  u32 diskSignature_ = 0;
  Guid diskGuid_;
  std::optional<GptHealth> gptHealth_;
  Geometry geometry_;
  u64 lastChsSector_ = 0;
  u64 firstUsableSector_ = 1;
  u64 lastUsableSector_ = 0;
  u64 lastLba_ = 0;
  u32 flags_ = 0;
  i64 alignment_ = AlignmentRules::kDefaultUnit;
  u32 driveNumber_ = 0;
  std::optional<u64> unfinishedStart_;
  std::optional<u8> biosNumber_;
  LabelReader labelReader_;
};

}  // namespace tallowin
