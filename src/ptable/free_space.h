// Checks of what was read, and the free blocks between the entries.
#pragma once

#include "ptable/alignment.h"
#include "ptable/scheme.h"

namespace tallowin {

// The bounds of a disk that entries are checked against.
struct DiskBounds {
  u64 firstUsableSector = 1;
  u64 lastUsableSector = 0;
  u64 lastLba = 0;
};

// Marks entries in error and adds the free blocks of the top level. No block is added behind an
// entry in error, because nobody knows where that entry really ends.
void checkTable(const DiskBounds& bounds, const AlignmentRules& rules, PartitionTable& table);

// The same for the volumes of one extended partition of the table.
void checkVolumes(const DiskBounds& bounds, const AlignmentRules& rules,
                  const PartitionTable& table, TableEntry& container);

// Takes away the free blocks of the top level that a chain of volumes may reach into.
void withholdStrays(PartitionTable& table);

// Whether the entries of the top level lie on whole MiB rather than on whole cylinders.
bool isAlignedTo1MiB(const PartitionTable& table, const Geometry& geometry, u32 sectorSizeBytes);

}  // namespace tallowin
