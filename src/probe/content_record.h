// The fields of boot sectors and superblocks by which a file system is recognised.
#pragma once

#include <array>
#include <cstddef>

#include "base/bytes.h"

namespace tallowin {

// The common head of FAT and NTFS boot sectors (the BIOS parameter block).
struct VolumeBootRecord {
  std::array<u8, 3> jump;
  std::array<char, 8> oemName;  //  3
  Le16 sectorSizeBytes;         // 11
  u8 sectorsPerCluster;         // 13
  Le16 reservedSectors;         // 14
  u8 fatCount;                  // 16
  Le16 rootEntries;             // 17
  Le16 sectorCount16;           // 19  0 when the count needs 32 bits
  u8 media;                     // 21
  Le16 sectorsPerFat;           // 22
  Le16 sectorsPerTrack;         // 24
  Le16 headCount;               // 26
  Le32 hiddenSectors;           // 28  sectors before the volume
  Le32 sectorCount32;           // 32
  Le32 sectorsPerFat32;         // 36  FAT-32 only
  Le64 ntfsSectorCount;         // 40  without the boot sector's copy behind the volume
  Le64 ntfsMftCluster;          // 48  of the first record of the file table
  std::array<u8, 8> unused;
  u8 ntfsRecordClusters;  // 64  in a record of the file table; or the negative of a power of two
  std::array<u8, 15> unused2;
  Le32 ntfsChecksum;  // 80
};
static_assert(sizeof(VolumeBootRecord) == 84 && offsetof(VolumeBootRecord, sectorCount16) == 19);
static_assert(offsetof(VolumeBootRecord, hiddenSectors) == 28);
static_assert(offsetof(VolumeBootRecord, sectorsPerFat32) == 36);
static_assert(offsetof(VolumeBootRecord, ntfsMftCluster) == 48);

struct ExFatBootRecord {
  std::array<u8, 3> jump;
  std::array<char, 8> name;  //   3  "EXFAT   "
  std::array<u8, 53> unused;
  Le64 partitionSector;  //  64  where the volume begins; 0 when that was not known
  Le64 sectorCount;      //  72
  Le32 fatSector;        //  80  relative to the volume
  std::array<u8, 24> unused2;
  u8 sectorShift;  // 108  log2 of the sector size
};
static_assert(sizeof(ExFatBootRecord) == 109 && offsetof(ExFatBootRecord, sectorCount) == 72);
static_assert(offsetof(ExFatBootRecord, fatSector) == 80);
static_assert(offsetof(ExFatBootRecord, sectorShift) == 108);

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
  std::array<u8, 12> unused;
  Le32 firstDataBlock;  //  20  1 with blocks of 1 KiB, else 0
  Le32 blockShift;      //  24  the block size is 1024 << this
  Le32 clusterShift;    //  28
  Le32 blocksPerGroup;  //  32
  std::array<u8, 12> unused2;
  Le32 writeTime;   //  48  seconds since 1970
  Le16 mountCount;  //  52
  std::array<u8, 2> unused3;
  Le16 magic;  //  56  0xEF53
  Le16 state;  //  58
  std::array<u8, 16> unused4;
  Le32 revision;  //  76  0: inodes have 128 bytes
  std::array<u8, 8> unused5;
  Le16 inodeBytes;             //  88
  Le16 groupNumber;            //  90  of the group that holds this copy
  Le32 compatibleFeatures;     //  92
  Le32 incompatibleFeatures;   //  96  bit 7: the block count has 64 bits
  Le32 readOnlyFeatures;       // 100
  std::array<u8, 16> uuid;     // 104
  std::array<char, 16> label;  // 120
  std::array<u8, 200> unused6;
  Le32 blockCountHigh;  // 336
};
static_assert(sizeof(ExtSuperRecord) == 340 && offsetof(ExtSuperRecord, magic) == 56);
static_assert(offsetof(ExtSuperRecord, blocksPerGroup) == 32);
static_assert(offsetof(ExtSuperRecord, inodeBytes) == 88);
static_assert(offsetof(ExtSuperRecord, incompatibleFeatures) == 96);
static_assert(offsetof(ExtSuperRecord, label) == 120);

// A file record of NTFS begins so, and so does an attribute that it keeps in itself.
struct NtfsFileRecord {
  std::array<char, 4> magic;  //  0  "FILE"
  std::array<u8, 16> unused;
  Le16 firstAttribute;  // 20
};
static_assert(sizeof(NtfsFileRecord) == 22);
struct NtfsAttributeRecord {
  Le32 type;  //  0
  std::array<u8, 4> unused;
  u8 isElsewhere;  //  8
  std::array<u8, 11> unused2;
  Le16 contentOffset;  // 20
};
static_assert(sizeof(NtfsAttributeRecord) == 22);
// In 100 ns since 1601.
struct NtfsTimesRecord {
  Le64 created;
  Le64 contentChanged;
  Le64 recordChanged;
};
static_assert(sizeof(NtfsTimesRecord) == 24);

// What a directory of a FAT says of one file.
struct FatEntryTimeRecord {
  u8 first;  //  0  0 behind the last one
  std::array<u8, 10> unused;
  u8 attributes;  // 11
  std::array<u8, 12> unused2;
  Le16 date;  // 24  day, month, years since 1980 from bit 9 on
  std::array<u8, 6> unused3;
};
static_assert(sizeof(FatEntryTimeRecord) == 32);

// The first of the group descriptors, in the block behind the superblock's.
struct ExtGroupRecord {
  Le32 blockBitmap;
  Le32 inodeBitmap;
  Le32 inodeTable;
};
static_assert(sizeof(ExtGroupRecord) == 12);

// At byte 1024 of the volume.
struct HfsPlusHeaderRecord {
  std::array<char, 2> signature;  //   0  "H+" or "HX"
  Be16 version;                   //   2  4 or 5
  std::array<u8, 36> unused;
  Be32 blockBytes;  //  40
  Be32 blockCount;  //  44
  std::array<u8, 240> unused2;
  Be32 catalogBlock;  // 288  the first of the catalogue
};
static_assert(sizeof(HfsPlusHeaderRecord) == 292);
static_assert(offsetof(HfsPlusHeaderRecord, blockBytes) == 40);

// Each allocation group begins with a copy.
struct XfsSuperRecord {
  std::array<char, 4> magic;  //   0  "XFSB"
  Be32 blockBytes;            //   4
  Be64 blockCount;            //   8
  std::array<u8, 16> unused;
  std::array<u8, 16> uuid;  //  32
  std::array<u8, 36> unused2;
  Be32 groupBlocks;  //  84  of each allocation group but the last
  Be32 groupCount;   //  88
  std::array<u8, 10> unused3;
  Be16 sectorBytes;  // 102
  std::array<u8, 4> unused4;
  std::array<char, 12> label;  // 108
};
static_assert(sizeof(XfsSuperRecord) == 120 && offsetof(XfsSuperRecord, groupBlocks) == 84);
static_assert(offsetof(XfsSuperRecord, sectorBytes) == 102);

// In the sector behind each copy.
struct XfsGroupRecord {
  std::array<char, 4> magic;  //  0  "XAGF"
  Be32 version;
  Be32 number;  //  8  of the allocation group, from 0
};
static_assert(sizeof(XfsGroupRecord) == 12);

// At sector 128 of the volume.
struct ReiserSuperRecord {
  Le32 blockCount;
  std::array<u8, 4> unused;
  Le32 rootBlock;  //  8
  std::array<u8, 32> unused2;
  Le16 blockBytes;  // 44
  std::array<u8, 4> unused3;
  Le16 state;                  // 50  bit 0: it was unmounted
  std::array<char, 10> magic;  // 52
};
static_assert(offsetof(ReiserSuperRecord, blockBytes) == 44);
static_assert(sizeof(ReiserSuperRecord) == 62 && offsetof(ReiserSuperRecord, magic) == 52);

// At byte 64 KiB of the device; copies at 64 MiB and 256 GiB.
struct BtrfsSuperRecord {
  std::array<u8, 32> checksum;
  std::array<u8, 16> uuid;    //  32
  Le64 position;              //  48  of this copy, in bytes of the device
  Le64 flags;                 //  56
  std::array<char, 8> magic;  //  64  "_BHRfS_M"
  std::array<u8, 137> unused;
  Le64 deviceBytes;  // 209
  std::array<u8, 82> unused2;
  std::array<char, 64> label;  // 299  the first characters of it
};
static_assert(sizeof(BtrfsSuperRecord) == 363 && offsetof(BtrfsSuperRecord, magic) == 64);
static_assert(offsetof(BtrfsSuperRecord, deviceBytes) == 209);
static_assert(offsetof(BtrfsSuperRecord, label) == 299);

// At byte 1024 of the volume, with a copy 4 KiB further on.
struct F2fsSuperRecord {
  Le32 magic;  //   0  0xF2F52010
  std::array<u8, 12> unused;
  Le32 blockShift;  //  16
  std::array<u8, 16> unused2;
  Le64 blockCount;  //  36
  std::array<u8, 64> unused3;
  std::array<u8, 16> uuid;     // 108
  std::array<Le16, 32> label;  // 124  the first characters of it
};
static_assert(sizeof(F2fsSuperRecord) == 188 && offsetof(F2fsSuperRecord, blockCount) == 36);
static_assert(offsetof(F2fsSuperRecord, label) == 124);

// At byte 1024 of a swap area, whose first page ends with a signature.
struct SwapHeaderRecord {
  Le32 version;                //  0  1
  Le32 lastPage;               //  4
  Le32 badPages;               //  8
  std::array<u8, 16> uuid;     // 12
  std::array<char, 16> label;  // 28
};
static_assert(sizeof(SwapHeaderRecord) == 44 && offsetof(SwapHeaderRecord, label) == 28);

// At the start of an encrypted container.
struct LuksHeaderRecord {
  std::array<char, 6> magic;   //   0
  Be16 version;                //   6
  Be64 headerBytes;            //   8  version 2: a second header lies there
  Be64 sequence;               //  16  version 2
  std::array<char, 48> label;  //  24  version 2
  std::array<u8, 96> unused;
  std::array<char, 40> uuid;  // 168
  Be32 firstKeySlot;          // 208  version 1: whether it is in use
  std::array<u8, 44> unused2;
  Be64 position;  // 256  version 2: of this header, in bytes
};
static_assert(sizeof(LuksHeaderRecord) == 264 && offsetof(LuksHeaderRecord, uuid) == 168);
static_assert(offsetof(LuksHeaderRecord, position) == 256);

// In one of the first four 512-byte sectors of an LVM physical volume.
struct LvmLabelRecord {
  std::array<char, 8> magic;  //  0  "LABELONE"
  Le64 sector;                //  8  where this label lies, in units of 512 bytes
  Le32 checksum;              // 16
  Le32 contentOffset;         // 20  of LvmVolumeRecord, from the label on
  std::array<char, 8> type;   // 24  "LVM2 001"
};
static_assert(sizeof(LvmLabelRecord) == 32 && offsetof(LvmLabelRecord, type) == 24);

struct LvmVolumeRecord {
  std::array<char, 32> uuid;
  Le64 deviceBytes;  // 32
};
static_assert(sizeof(LvmVolumeRecord) == 40);

}  // namespace tallowin
