// What lies on the disk in a FAT12, FAT16 or FAT32 volume: boot sector, FSInfo sector and
// directory entry, as in Microsoft's "FAT: General Overview of On-Disk Format".
//
//   | boot sector, FSInfo, ... | FAT 1 | FAT 2 | root directory | cluster 2 | cluster 3 | ... |
//   |<---- reserved sectors -->|               | (not on FAT32) |<------ data area ------->
#pragma once

#include <string_view>

#include "base/bytes.h"

namespace tallowin {

// The part of the boot sector that all three kinds share.
struct FatBpbRecord {
  u8 jump[3];            //  0
  char oemName[8];       //  3
  Le16 bytesPerSector;   // 11
  u8 sectorsPerCluster;  // 13
  Le16 reservedSectors;  // 14  sectors before the first FAT
  u8 numberOfFats;       // 16
  Le16 rootEntries;      // 17  FAT12/16; 0 on FAT32
  Le16 totalSectors16;   // 19  0 when the 32-bit field holds the number
  u8 media;              // 21
  Le16 sectorsPerFat16;  // 22  FAT12/16; 0 on FAT32
  Le16 sectorsPerTrack;  // 24
  Le16 heads;            // 26
  Le32 hiddenSectors;    // 28
  Le32 totalSectors32;   // 32
};
static_assert(sizeof(FatBpbRecord) == 36 && alignof(FatBpbRecord) == 1);
static_assert(offsetof(FatBpbRecord, rootEntries) == 17);
static_assert(offsetof(FatBpbRecord, totalSectors32) == 32);

// Drive number, serial and names; follows the shared part on FAT12/16, and the FAT32 fields
// on FAT32.
struct FatIdentityRecord {
  u8 driveNumber;        //  0
  u8 reserved;           //  1
  u8 extendedSignature;  //  2  0x29; see isFatExtendedSignature
  Le32 serial;           //  3
  char label[11];        //  7
  char typeText[8];      // 18  "FAT12   ", "FAT16   ", "FAT32   "
};
static_assert(sizeof(FatIdentityRecord) == 26 && alignof(FatIdentityRecord) == 1);

struct Fat32BpbRecord {
  Le32 sectorsPerFat;     // 36
  Le16 flags;             // 40  bit 7: the FATs are not mirrored
  Le16 version;           // 42
  Le32 rootCluster;       // 44
  Le16 fsInfoSector;      // 48
  Le16 backupBootSector;  // 50
  u8 reserved[12];        // 52
};
static_assert(sizeof(Fat32BpbRecord) == 28 && alignof(Fat32BpbRecord) == 1);

inline constexpr std::size_t kFat16IdentityOffset = sizeof(FatBpbRecord);
inline constexpr std::size_t kFat32BpbOffset = sizeof(FatBpbRecord);
inline constexpr std::size_t kFat32IdentityOffset = kFat32BpbOffset + sizeof(Fat32BpbRecord);
static_assert(kFat16IdentityOffset == 36 && kFat32IdentityOffset == 64);

// The last two of the first 512 bytes, whatever the sector size.
inline constexpr std::size_t kBootSignatureOffset = 510;
inline constexpr u8 kBootSignature[2] = {0x55, 0xAA};

inline constexpr u32 kFatLongestSector = 4096;

inline constexpr u8 kFatExtendedSignature = 0x29;
constexpr bool isFatExtendedSignature(u8 value) { return value >= 0x26 && value <= 0x29; }

inline constexpr char kFatNoName[] = "NO NAME    ";
inline constexpr std::size_t kFatLabelLength = 11;

// The FSInfo sector of a FAT32 volume.
struct FatFsInfoRecord {
  char leadSignature[4];    //   0  "RRaA"
  u8 reserved1[480];        //   4
  char structSignature[4];  // 484  "rrAa": what the sector is recognised by
  Le32 freeClusters;        // 488  0xFFFFFFFF unknown
  Le32 nextFreeCluster;     // 492  where a search for a free cluster may begin
  u8 reserved2[12];         // 496
  u8 trailSignature[4];     // 508
};
static_assert(sizeof(FatFsInfoRecord) == 512 && alignof(FatFsInfoRecord) == 1);
static_assert(offsetof(FatFsInfoRecord, freeClusters) == 488);

inline constexpr char kFsInfoLeadSignature[] = "RRaA";
inline constexpr char kFsInfoStructSignature[] = "rrAa";
inline constexpr u8 kFatSectorTrail[4] = {0x00, 0x00, 0x55, 0xAA};
inline constexpr u32 kFreeClustersUnknown = kAllOnes32;

enum FatAttribute : u8 {
  kFatReadOnly = 0x01,
  kFatHidden = 0x02,
  kFatSystem = 0x04,
  kFatVolumeLabel = 0x08,
  kFatDirectory = 0x10,
  kFatArchive = 0x20,
  kFatLongNameMask = 0x3F,
  kFatLongName = 0x0F,
};

struct FatDirectoryEntryRecord {
  char name[11];          //  0  blank-padded name and extension
  u8 attributes;          // 11  FatAttribute bits
  u8 caseFlags;           // 12
  u8 createdHundredths;   // 13  10 ms units, 0..199
  Le16 createdTime;       // 14
  Le16 createdDate;       // 16
  Le16 accessedDate;      // 18
  Le16 firstClusterHigh;  // 20  FAT32 only
  Le16 modifiedTime;      // 22
  Le16 modifiedDate;      // 24
  Le16 firstClusterLow;   // 26
  Le32 sizeBytes;         // 28
};
static_assert(sizeof(FatDirectoryEntryRecord) == 32 && alignof(FatDirectoryEntryRecord) == 1);
static_assert(offsetof(FatDirectoryEntryRecord, firstClusterLow) == 26);

// What byte 0 of a name may say instead.
inline constexpr u8 kFatEndOfDirectory = 0x00;
inline constexpr u8 kFatDeleted = 0xE5;
inline constexpr u8 kFatStandsForE5 = 0x05;

// The first two entries of a directory that is not the root.
inline constexpr char kFatDot[] = ".          ";
inline constexpr char kFatDotDot[] = "..         ";

constexpr bool isNamed(const FatDirectoryEntryRecord& entry, std::string_view elevenBytes) {
  return std::string_view(entry.name, sizeof(entry.name)) == elevenBytes;
}

// Other names that begin with a dot are names of files like any other.
constexpr bool isDotEntry(const FatDirectoryEntryRecord& entry) {
  return isNamed(entry, kFatDot) || isNamed(entry, kFatDotDot);
}

inline constexpr u8 kFatLowerCaseName = 0x08;  // caseFlags
inline constexpr u8 kFatLowerCaseExtension = 0x10;

// A part of a long name. The parts lie in front of the entry that they name, the last one first.
struct FatLongNameRecord {
  u8 sequence;        //  0  from 1; kFatLastPart on the last one
  Le16 units1[5];     //  1  UTF-16; behind the name a 0, then 0xFFFF
  u8 attributes;      // 11  kFatLongName
  u8 type;            // 12  0
  u8 checksum;        // 13  of the short name
  Le16 units2[6];     // 14
  Le16 firstCluster;  // 26  0
  Le16 units3[2];     // 28
};
static_assert(sizeof(FatLongNameRecord) == 32 && alignof(FatLongNameRecord) == 1);
static_assert(offsetof(FatLongNameRecord, units2) == 14);

inline constexpr u8 kFatLastPart = 0x40;
inline constexpr std::size_t kFatUnitsPerPart = 13;
inline constexpr std::size_t kFatLongestName = 255;
inline constexpr u32 kFatMostDirectoryEntries = 65536;

constexpr u32 firstClusterOf(const FatDirectoryEntryRecord& entry, bool isFat32) {
  const u32 high = isFat32 ? u32{entry.firstClusterHigh} << 16 : 0;
  return (high | entry.firstClusterLow) & 0x0FFFFFFF;
}

constexpr void setFirstCluster(FatDirectoryEntryRecord& entry, u32 cluster) {
  entry.firstClusterHigh = static_cast<u16>(cluster >> 16);
  entry.firstClusterLow = static_cast<u16>(cluster & 0xFFFF);
}

}  // namespace tallowin
