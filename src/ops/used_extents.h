// Which sectors of a partition are moved with it.
#pragma once

#include "move/extent_list.h"
#include "ops/file_systems.h"

namespace tallowin {

enum class MovedSectorsWish : u8 { used, all };

struct UsedExtents {
  ExtentList list;    // ascending, by numbers of the disk
  u32 typeFound = 0;  // which reader made it, as it is published; 0: it is all sectors
  bool isWhole = false;
};

// All sectors where only used ones are wished for and nobody can tell them. With `withBootArea`
// also the last sector of the partition, where a backup boot sector may lie, and what lies between
// the EBR of a volume and its first sector. fileSystemUnreadable, read, outOfMemory; `found` then
// has the type that the reader is published by.
enum class BootArea : u8 { no, yes };
Failure findUsedExtents(const FileSystemKinds& kinds, Drive& drive, const PartitionEntry& entry,
                        MovedSectorsWish wish, BootArea withBootArea, UsedExtents& found);

// Why all sectors of the partition have to be moved: a sentence; empty when those in use are
// enough.
std::string whyNotUsedOnly(const FileSystemKinds& kinds, Drive& drive, const PartitionEntry& entry);

}  // namespace tallowin
