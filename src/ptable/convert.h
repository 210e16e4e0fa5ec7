// Changing the scheme of a disk's table. Partitions stay where they are; only tables are written.
#pragma once

#include <optional>
#include <string>

#include "ptable/drive.h"
#include "ptable/earlier_mbr.h"

namespace tallowin {

// A power cut at any moment leaves the old table or the new one. Before the first write:
//   noTable               there is none (and for the MBR, none was to be made)
//   partitionBeyondTable  a partition lies beyond 2^32 sectors, or outside a GPT's usable area
//   tooManyPartitions     more than the new table holds
//   dynamicDisk           a partition belongs to a dynamic disk
//   slotNotFree           a partition could not be given a slot
//   outsideUsableArea     a partition starts where the EMBR would lie
//   sectorsInUse          something lies where the new table would go: see overwrittenByTable
//   gptTableCheck         of the GPT only one copy is sound; it is to be repaired first
//   tableNotBuilt, noRoomForReserved, read,
//   tableChangedMeanwhile
// Later: write, the old table stands; writeFailedNewTable; writeFailedTableUnknown.
// Nothing to do for a disk that has the scheme already. The entries on hand are stale afterwards.

// A disk without a table gets an empty one, when `allowWithoutTable`; the marks of its file system
// are cleared. A GPT becomes the `earlier` MBR where that is given.
Failure convertToMbr(Drive& drive, bool allowWithoutTable,
                     TrackContent content = TrackContent::keep,
                     const EarlierMbr* earlier = nullptr);
// With `createReserved` the first free block of 16 MiB or more becomes a reserved partition.
Failure convertToGpt(Drive& drive, bool createReserved, TrackContent content = TrackContent::keep);
// `limitPrimaries`: the new table offers four slots, all of them in the MBR as well.
Failure convertToEmbr(Drive& drive, bool limitPrimaries, TrackContent content = TrackContent::keep);

// Where convertToGpt would put the reserved partition, absolute; nothing when no block is large
// enough.
std::optional<SectorRegion> reservedPlace(const Drive& drive);
// The reserved partition of a GPT, which no other table takes over; null when there is none, or
// something is in it.
const TableEntry* emptyReservedPartition(Drive& drive);

// Whether an MBR disk is one only because it holds nothing else: its first sector has no signature.
bool lacksBootSector(Drive& drive);

// Names what lies where a table of `target` would be written and would be lost: a boot loader
// behind the MBR, a partition that only a boot loader on a GPT uses, or a slot beside a GPT that is
// no partition of it. Nothing when there is no such thing. Conversions refuse while there is,
// unless they are told to overwrite it.
std::optional<std::string> overwrittenByTable(Drive& drive, Scheme target);

}  // namespace tallowin
