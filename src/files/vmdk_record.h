// On-disk records of sparse extents of the VMDK image format. All numbers little-endian.
#pragma once

#include <cstddef>

#include "base/bytes.h"

namespace tallowin {

inline constexpr std::string_view kVmdkMagic = "KDMV";

enum VmdkFlags : u32 {
  kVmdkRedundantDirectory = 1U << 1,
  kVmdkZeroedGrains = 1U << 2,  // a table entry of 1 reads as zeros
  kVmdkCompressed = 1U << 16,
  kVmdkMarkers = 1U << 17,
};

// The first sector of the extent. Offsets and sizes are in sectors of 512 bytes.
struct VmdkHeader {
  char magic[4];
  Le32 version;
  Le32 flags;  // VmdkFlags
  Le64 capacity;
  Le64 grainSize;
  Le64 descriptorOffset;
  Le64 descriptorSize;
  Le32 entriesPerTable;
  Le64 redundantDirectoryOffset;
  Le64 directoryOffset;
  Le64 overhead;  // up to the first grain
  u8 uncleanShutdown;
  char lineEndCheck[4];
  Le16 compression;
  u8 padding[433];
};
static_assert(DiskRecord<VmdkHeader> && sizeof(VmdkHeader) == 512);
static_assert(offsetof(VmdkHeader, capacity) == 0x0C &&
              offsetof(VmdkHeader, entriesPerTable) == 0x2C &&
              offsetof(VmdkHeader, directoryOffset) == 0x38 &&
              offsetof(VmdkHeader, compression) == 0x4D);

// An entry of the grain directory (where a grain table lies) or of a grain table (where a grain
// lies): a sector of the file.
using VmdkEntry = Le32;
inline constexpr u32 kVmdkNotAllocated = 0;
inline constexpr u32 kVmdkZeroGrain = 1;

}  // namespace tallowin
