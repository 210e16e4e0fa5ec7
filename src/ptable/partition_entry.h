// The rows of the partition model: table entries, volumes in extended partitions, free blocks.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/guid.h"
#include "base/types.h"

namespace tallowin {

class Drive;

using PartitionId = u16;

enum EntryStatus : u32 {
  kEntryIsVolume = 0x1,
  kEntryErrorMask = 0xF8000000,
  kEntryForeign = 0x08000000,      // in the MBR, by another program, and not in the EMBR
  kEntryBrokenChain = 0x10000000,  // its chain of volumes could not be followed or understood
  kEntryUnclear = 0x20000000,      // its EBR holds more than a volume and a link; its slot no type
  kEntryOverlaps = 0x40000000,     // overlaps its neighbour or leaves its container
  kEntryImpossible = 0x80000000,   // start after end, or EBR after the volume's start
};

inline constexpr i32 kNoTableIndex = -1;
inline constexpr u8 kNoMbrSlot = 255;
inline constexpr std::size_t kMaxNameLength = 32;  // characters

class PartitionEntry {
 public:
  virtual ~PartitionEntry() = default;
  PartitionEntry(const PartitionEntry&) = delete;
  PartitionEntry& operator=(const PartitionEntry&) = delete;

  // Only entries of an EMBR table can answer true to these two.
  virtual bool holdsBootManager() const { return false; }
  virtual bool isMultiOs() const { return false; }

  bool isVolume() const { return (status & kEntryIsVolume) != 0; }
  bool isFree() const { return type == 0; }
  bool isInError() const { return (status & kEntryErrorMask) != 0; }
  u64 sectorCount() const { return endSector + 1 - startSector; }
  // UTF-8, at most 32 characters; what cannot be shown becomes a blank.
  void setName(std::string_view text);

  u32 status = 0;                  // EntryStatus bits
  u64 startSector = 0;             // absolute LBA
  u64 endSector = 0;               // inclusive
  Guid uniqueGuid;                 // GPT only
  Guid typeGuid;                   // GPT only
  i32 tableIndex = kNoTableIndex;  // slot, entry index, or number in the chain; none: free blocks,
                                   // and volumes that the kernel passes over
  PartitionId id = 0;
  u8 mbrSlot = kNoMbrSlot;  // for volumes: which slot of the EBR holds it
  std::array<u8, 3> endChs{};
  u8 bootIndicator = 0;  // 0x80 active
  u16 mbrType = 0;       // the type byte as it stands in the table
  u16 type = 0;          // 0 free space; else see type_catalogue.h
  u64 attributes = 0;    // GPT attribute bits, or the flags of an EMBR entry
  std::string name;
  std::string tableName;  // as a table with names stores it, UTF-8; else empty

 protected:
  PartitionEntry() = default;
};

// What a slot of the MBR is listed as when no file system in it has a label.
std::string placeholderName(std::size_t mbrSlot);
// Whether the entry has no other name.
bool isPlaceholderName(const PartitionEntry& entry);

// A volume, or a free block, inside an extended partition. The three positions are relative to
// the extended partition's start; for a free block they say where its EBR and volume would go.
class VolumeEntry : public PartitionEntry {
 public:
  static constexpr u64 kNoPrevious = kAllOnes64;

  u64 previousEbr = kNoPrevious;  // kNoPrevious for the first volume of the chain
  u64 ebr = 0;
  u64 volumeStart = 0;
};

enum VolumeListStatus : u32 {
  kChainUnclear = 0x1000,      // an EBR says more than is understood, or a link leads to none
  kChainLoops = 0x2000,        // loops or points backwards
  kChainOutOfMemory = 0x4000,  // longer than the ids, or any real chain, reach
  kChainReadError = 0x8000,
};

// The volumes and free blocks of one extended partition, sorted by EBR position.
struct VolumeList {
  u32 status = 0;                // VolumeListStatus bits
  Failure readFailure;           // with kChainReadError
  bool leavesContainer = false;  // a volume, or a link, names sectors behind its end
  std::vector<u64> chain;        // every EBR position, in the order in which they are linked
  std::vector<u64> emptyEbrs;    // of these the ones that hold a link only, ascending
  std::vector<std::unique_ptr<VolumeEntry>> entries;

  bool isInError() const;
};

// An entry of the top level: a partition, a free block, or a whole-disk volume.
class TableEntry : public PartitionEntry {
 public:
  std::unique_ptr<VolumeList> volumes;  // extended partitions only, when volumes are read
};

enum TableStatus : u32 {
  kTableWholeDisk = 1,          // a file system fills the disk, there is no table
  kTableBesideVolume = 0x1000,  // its first sector has partitions all the same
  kTableNone = 0x2000,
  kTableUnreadable = 0x4000,
  kTableOutOfMemory = 0x8000,
};

// The top level of one disk, sorted by start sector (equal starts keep insertion order).
struct PartitionTable {
  u32 slots = 4;  // 4 MBR, entry count for GPT, 255 or 4 for EMBR, 0 for a whole-disk volume
  u32 usedSlots = 0;
  u32 status = 0;  // TableStatus bits
  std::vector<std::unique_ptr<TableEntry>> entries;

  bool isWholeDisk() const { return (status & kTableWholeDisk) != 0; }
  bool isBesideVolume() const { return (status & kTableBesideVolume) != 0; }
  bool isUnread() const { return (status & kTableUnreadable) != 0; }
  // Any entry or volume in error, or a chain that could not be followed to its end.
  bool hasErrors() const;
};

}  // namespace tallowin
