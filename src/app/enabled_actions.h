// Which actions make sense for the row that is selected.
#pragma once

#include "ops/file_systems.h"

namespace tallowin {

// One bit per action button of the window.
inline constexpr u32 kCreateBit = 0x1;
inline constexpr u32 kDeleteBit = 0x2;  // Undelete on a free block
inline constexpr u32 kFormatBit = 0x4;
inline constexpr u32 kResizeBit = 0x8;
inline constexpr u32 kCopyBit = 0x10;
inline constexpr u32 kSlideBit = 0x20;
inline constexpr u32 kAlignBit = 0x40;
inline constexpr u32 kPropertiesBit = 0x100;
inline constexpr u32 kPasteBit = 0x200;
inline constexpr u32 kEditFileBit = 0x800;
inline constexpr u32 kBcdEditBit = 0x1000;
inline constexpr u32 kTrimBit = 0x2000;

// What else than the entry decides.
struct ActionFacts {
  bool isGpt = false;
  bool canTrim = false;                 // the drive releases unused sectors
  bool holdsFiles = false;              // that can be reached, whatever the type says
  bool holdsNothing = false;            // the drive has no table with partitions
  u64 pendingCopySectors = kAllOnes64;  // size of the copy source, all ones without one
};

// For an entry of any kind, free blocks included.
u32 enabledActions(const FileSystemKinds& kinds, const PartitionEntry& entry,
                   const ActionFacts& facts);

}  // namespace tallowin
