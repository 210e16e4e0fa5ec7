// The fields of boot sectors and superblocks by which a file system is recognised.
#pragma once

#include <array>
#include <cstddef>

#include "base/bytes.h"

namespace tallowin {

// The common head of FAT and NTFS boot sectors (the BIOS parameter block).
struct VolumeBootRecord {
  std::array<u8, 3> jump;
  std::array<char, 8> oemName;    //  3
  Le16 sectorSizeBytes;           // 11
  u8 sectorsPerCluster;           // 13
  Le16 reservedSectors;           // 14
  u8 fatCount;                    // 16
  Le16 rootEntries;               // 17
  Le16 sectorCount16;             // 19  0 when the count needs 32 bits
  u8 media;                       // 21
  Le16 sectorsPerFat;             // 22
  Le16 sectorsPerTrack;           // 24
  Le16 headCount;                 // 26
  Le32 hiddenSectors;             // 28  sectors before the volume
  Le32 sectorCount32;             // 32
  std::array<u8, 4> driveNumber;  // 36
  Le64 ntfsSectorCount;           // 40  without the boot sector's copy behind the volume
};
static_assert(sizeof(VolumeBootRecord) == 48 && offsetof(VolumeBootRecord, sectorCount16) == 19);
static_assert(offsetof(VolumeBootRecord, hiddenSectors) == 28);

struct ExFatBootRecord {
  std::array<u8, 3> jump;
  std::array<char, 8> name;  //   3  "EXFAT   "
  std::array<u8, 61> unused;
  Le64 sectorCount;  //  72
  std::array<u8, 28> unused2;
  u8 sectorShift;  // 108  log2 of the sector size
};
static_assert(sizeof(ExFatBootRecord) == 109 && offsetof(ExFatBootRecord, sectorCount) == 72);

struct ReFsBootRecord {
  std::array<u8, 3> jump;
  std::array<char, 8> name;  //  3  "ReFS" and four NULs
  std::array<u8, 13> unused;
  Le64 sectorCount;      // 24
  Le32 sectorSizeBytes;  // 32
};
static_assert(sizeof(ReFsBootRecord) == 36 && offsetof(ReFsBootRecord, sectorCount) == 24);

// At byte 1024 of the volume.
struct ExtSuperRecord {
  Le32 inodeCount;
  Le32 blockCount;  //   4
  std::array<u8, 16> unused;
  Le32 blockShift;  //  24  the block size is 1024 << this
  std::array<u8, 28> unused2;
  Le16 magic;  //  56  0xEF53
  std::array<u8, 38> unused3;
  Le32 incompatibleFeatures;  //  96  bit 7: the block count has 64 bits
  std::array<u8, 236> unused4;
  Le32 blockCountHigh;  // 336
};
static_assert(sizeof(ExtSuperRecord) == 340 && offsetof(ExtSuperRecord, magic) == 56);
static_assert(offsetof(ExtSuperRecord, incompatibleFeatures) == 96);

// At byte 1024 of the volume.
struct HfsPlusHeaderRecord {
  std::array<char, 2> signature;  //  0  "H+" or "HX"
  std::array<u8, 38> unused;
  Be32 blockBytes;  // 40
  Be32 blockCount;  // 44
};
static_assert(sizeof(HfsPlusHeaderRecord) == 48 && offsetof(HfsPlusHeaderRecord, blockBytes) == 40);

struct XfsSuperRecord {
  std::array<char, 4> magic;  //  0  "XFSB"
  Be32 blockBytes;            //  4
  Be64 blockCount;            //  8
};
static_assert(sizeof(XfsSuperRecord) == 16);

// At sector 128 of the volume.
struct ReiserSuperRecord {
  Le32 blockCount;
  std::array<u8, 40> unused;
  Le16 blockBytes;  // 44
  std::array<u8, 6> unused2;
  std::array<char, 10> magic;  // 52
};
static_assert(sizeof(ReiserSuperRecord) == 62 && offsetof(ReiserSuperRecord, magic) == 52);

}  // namespace tallowin
