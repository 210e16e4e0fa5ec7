// Editing an image of the boot sector: what conversions and the MBR editor need.
#pragma once

#include "disk/mbr_record.h"
#include "ptable/drive.h"

namespace tallowin {

// Writes an entry of the top level into a slot of `mbr`; the slot's boot indicator stays. With
// kNoMbrSlot the entry leaves its old slot and goes into the first free one. The entry's
// `mbrSlot` follows.
// False, and nothing is changed: a volume; an extent beyond what a slot can hold; or no slot is
// free although the table has fewer than five entries. With five and more entries an entry
// without a slot is usual, and the answer is true.
[[nodiscard]] bool putIntoMbrSlot(const Drive& drive, PartitionEntry& entry, MbrRecord& mbr,
                                  u8 slot);

// Without a signature the slots hold nothing: they are cleared, and boot code makes them valid.
void makeSlotsUsable(MbrRecord& mbr);
// Whether no slot is free.
bool mbrIsFull(const MbrRecord& mbr);

}  // namespace tallowin
