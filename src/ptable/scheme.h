// The seam between the partition model and the ways of writing a table on a disk.
#pragma once

#include <span>

#include "base/error.h"
#include "base/geometry.h"
#include "disk/disk_device.h"
#include "ptable/drive.h"

namespace tallowin {

// What the readers and writers of tables need to know of a drive.
struct TableContext {
  DiskDevice& disk;
  Geometry geometry;
  u64 lastLba = 0;
  u32 flags = 0;  // DriveFlags
  std::optional<u8> biosNumber;
  Host& host;
  const LabelReader& labelReader;  // may be empty

  std::string labelOf(const PartitionEntry& entry) const {
    return labelReader ? labelReader(disk, entry) : std::string();
  }
};

// What a reader found. Checks, free blocks and volumes are the same for all schemes and are
// added by the drive.
struct TableReading {
  PartitionTable table;
  u32 diskSignature = 0;
  Guid diskGuid;
  std::optional<GptHealth> gptHealth;
  u64 firstUsableSector = 1;
  u64 lastUsableSector = 0;
};

// One way of writing the top level of a table. Volumes in extended partitions are the same in
// all of them: see ebr_reader.h and ebr_writer.h.
class TableScheme {
 public:
  virtual ~TableScheme() = default;

  virtual Scheme kind() const = 0;
  // Fills the top level in the order of the table. `track` holds the first sectors of the disk,
  // whole ones, at least one. The last usable sector is preset. False: the disk does not carry
  // this scheme's table, and nothing was filled.
  virtual bool read(const TableContext& context, std::span<const u8> track,
                    TableReading& reading) const = 0;
  // Why tables of this scheme are not changed; empty when they are.
  virtual const char* changeRefusal() const { return ""; }

  // Whether the disk still holds the top level that was read: read, tableChangedMeanwhile.
  virtual Failure checkUnchanged(const TableContext& context,
                                 const PartitionTable& table) const = 0;

  // Writers of one entry of the top level: see Drive::add, remove, changeProperties.
  virtual Failure add(const TableContext& context, const NewEntry& entry,
                      TrackContent content) const = 0;
  virtual Failure remove(const TableContext& context, const TableEntry& entry) const = 0;
  virtual Failure changeProperties(const TableContext& context, const TableEntry& entry,
                                   const EntryProperties& wanted) const = 0;
  // Of an entry that lies where `move` says that it did: see Drive::finishMove.
  virtual Failure move(const TableContext& context, const TableEntry& entry,
                       const EntryMove& move) const = 0;
};

// All schemes, the more special ones first; the last one is on every disk. A GPT comes before an
// EMBR: where the boot sector says that there is a GPT, and there is one, other programs see
// nothing else, and a conversion between the two is decided by that sector for everybody.
std::span<const TableScheme* const> tableSchemes();

// Sorted into the table by start sector, behind entries with the same start.
TableEntry& insertSorted(PartitionTable& table, std::unique_ptr<TableEntry> entry);

// `wanted`, raised until no entry or volume of the table has it; 255 is followed by 1.
PartitionId unusedId(const PartitionTable& table, PartitionId wanted);
inline constexpr PartitionId kFirstFreeBlockId = 0x80;

}  // namespace tallowin
