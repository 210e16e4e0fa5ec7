// One slot of a boot record, between the bytes on the disk and the model.
#pragma once

#include "disk/mbr_record.h"
#include "ptable/partition_entry.h"
#include "ptable/scheme.h"

namespace tallowin {

// Extent, type and CHS bytes of the entry; an extent of no sectors ends before its start.
// `base` is what the slot's start counts from.
void readSlot(const MbrSlotRecord& slot, u64 base, PartitionEntry& entry);

// Whether the slot holds just what the entry says that was read from it.
bool holdsEntry(const MbrSlotRecord& slot, u64 base, const PartitionEntry& entry);

// Writes extent, type and CHS addresses; the boot indicator stays. The sectors must have been
// checked to fit into 32 bits.
void writeSlot(const TableContext& context, u64 base, u64 startSector, u64 endSector, u8 type,
               MbrSlotRecord& slot);
// Whether the extent can be written into a slot whose start counts from `base`.
bool fitsSlot(u64 base, u64 startSector, u64 endSector);

}  // namespace tallowin
