// On-disk records of the Virtual Hard Disk image format, version 1.0. All numbers big-endian.
#pragma once

#include <cstddef>
#include <numeric>

#include "base/bytes.h"

namespace tallowin {

inline constexpr std::string_view kVhdFooterCookie = "conectix";
inline constexpr std::string_view kVhdHeaderCookie = "cxsparse";

enum class VhdDiskType : u32 { fixed = 2, dynamic = 3, differencing = 4 };

// The last sector of the file; dynamic images have a copy of it at the start.
struct VhdFooter {
  char cookie[8];
  Be32 features;
  Be32 formatVersion;
  Be64 dataOffset;  // of the dynamic header, bytes
  Be32 timeStamp;   // seconds since 2000-01-01 UTC
  char creatorApplication[4];
  Be32 creatorVersion;
  Be32 creatorHostSystem;
  Be64 originalSizeBytes;
  Be64 currentSizeBytes;
  Be16 cylinders;
  u8 heads;
  u8 sectorsPerTrack;
  Be32 diskType;  // VhdDiskType
  Be32 checksum;
  u8 uniqueId[16];
  u8 savedState;
  u8 reserved[427];
};
static_assert(DiskRecord<VhdFooter> && sizeof(VhdFooter) == 512);
static_assert(offsetof(VhdFooter, currentSizeBytes) == 0x30 &&
              offsetof(VhdFooter, diskType) == 0x3C && offsetof(VhdFooter, savedState) == 0x54);

// Behind the footer's copy, at byte 512.
struct VhdDynamicHeader {
  char cookie[8];
  Be64 dataOffset;
  Be64 tableOffset;  // of the block allocation table, bytes
  Be32 headerVersion;
  Be32 maxTableEntries;
  Be32 blockSizeBytes;  // without the bitmap
  Be32 checksum;
  u8 parent[728];  // of differencing images
};
static_assert(DiskRecord<VhdDynamicHeader> && sizeof(VhdDynamicHeader) == 768);
static_assert(offsetof(VhdDynamicHeader, tableOffset) == 0x10 &&
              offsetof(VhdDynamicHeader, checksum) == 0x24);

// Of a footer or a dynamic header: the sum of all bytes but those of the checksum itself, with
// every bit turned.
template <DiskRecord Record>
u32 vhdChecksum(Record record) {
  record.checksum = 0;
  const std::span<const u8> bytes = bytesOf(record);
  return ~std::accumulate(bytes.begin(), bytes.end(), u32{0});
}

inline constexpr u64 kVhdDynamicHeaderOffset = 512;
inline constexpr u64 kVhdFirstFreeOffset = 1536;  // behind the three header sectors

// An entry of the block allocation table: the first sector of the block's bitmap in the file.
using VhdTableEntry = Be32;
inline constexpr u32 kVhdNotAllocated = 0xFFFFFFFF;

}  // namespace tallowin
