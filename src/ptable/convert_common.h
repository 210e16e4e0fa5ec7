// What the conversions share.
#pragma once

#include <span>
#include <vector>

#include "disk/mbr_record.h"
#include "ptable/drive.h"

namespace tallowin {

// The checks that all conversions of a disk with a table begin with.
Failure checkConvertible(Drive& drive, Scheme target, TrackContent content);
// Whether a partition ends where 32 bits do not reach.
bool endsBeyondMbr(const Drive& drive);

// The used entries of the top level that another table takes over: all but the reserved partition
// of a GPT, as long as nothing is in it.
std::vector<const TableEntry*> entriesToKeep(Drive& drive);
// The type byte that a slot gets. The slot of a hybrid MBR keeps its own.
u8 slotTypeOf(const Drive& drive, const PartitionEntry& entry);
// Every entry into the slot that it has, then, in their order, the others into free ones.
// slotNotFree: some found none; partitionBeyondTable.
Failure fillSlots(const Drive& drive, std::span<const TableEntry* const> entries, MbrRecord& mbr);

// Sectors as they were before a conversion.
struct SavedSectors {
  u64 first = 0;
  std::vector<u8> bytes;
};
Failure saveSectors(DiskDevice& disk, u64 first, u64 count, SavedSectors& saved);

// A GPT at the end of the disk would be taken for the table by others: its backup becomes invalid.
// writeFailedNewTable.
Failure endGptBackup(DiskDevice& disk);

// A write failed: the old sectors come back as far as the disk allows, and the disk is asked which
// table it has, as we and other programs see it. write, writeFailedNewTable,
// writeFailedTableUnknown, with what is known of `failed`.
Failure undoConversion(Drive& drive, std::span<const SavedSectors> old, const Failure& failed);

}  // namespace tallowin
