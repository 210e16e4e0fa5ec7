// The EMBR: this system's own extension of the MBR, in the sectors right after it.
//
//   LBA 0       MBR; at most four of the partitions are entered there as well
//   LBA 1       EMBR header, master partition table (MPT) and its entries, directly followed by
//               the MBFT items and, where there are any, the MDT items. When LBA 1 carries "IBM "
//               at byte 2, all of this begins at LBA 2.
//   ...         the area grows sector by sector up to the end of the first track
//
// MBFT and MDT belong to the boot manager and are carried along byte for byte.
#pragma once

#include "base/bytes.h"

namespace tallowin {

inline constexpr u32 kEmbrSectorBytes = 512;  // the unit of the area, whatever the device's
inline constexpr u8 kEmbrVersion = 2;
inline constexpr u8 kMptVersion = 5;
inline constexpr u8 kMbftVersion = 2;
inline constexpr u8 kEmbrVersionMask = 0xE0;  // bits that must be 0 in every version byte
inline constexpr u32 kMaxMptEntries = 255;

enum MptFlags : u8 { kMptLimitPrimaries = 0x1 };

enum MptEntryFlags : u16 {
  kMptBoot = 0x8000,      // obsolete
  kMptManager = 0x4000,   // holds the boot manager
  kMptBootable = 0x2000,  // obsolete; set on entries created on EMBR drives
  kMptMultiOs = 0x1000,
  kMptHd0Only = 0x0800,  // obsolete
};

struct EmbrHeaderRecord {
  u8 signature[4];      //  0  "EMBR"
  u8 version;           //  4
  u8 endSector;         //  5  sectors from LBA 0 to the end of the EMBR
  u8 areaSectors;       //  6  sectors of the EMBR area itself
  u8 zero7;             //  7
  Le16 bytesPerSector;  //  8  always taken as 512
  Le16 maxCylinder;     // 10
  u8 maxHead;           // 12
  u8 sectorsPerTrack;   // 13  outside 1..63: 63; endSector may grow up to this
  u8 zero14[4];         // 14
  u8 mptSignature[3];   // 18  "MPT"
  u8 mptVersion;        // 21
  u8 mptCount;          // 22  entries
  u8 mptFlags;          // 23  MptFlags
  u8 zero24[4];         // 24
};
static_assert(sizeof(EmbrHeaderRecord) == 28);

struct MptEntryRecord {
  Le16 flags;     //  0  MptEntryFlags
  Le32 firstLba;  //  2
  Le32 lastLba;   //  6  inclusive
  u8 id;          // 10  1..255, unique in the MPT
  u8 type;        // 11  MBR type byte
  char name[16];  // 12  NUL-terminated
};
static_assert(sizeof(MptEntryRecord) == 28 && alignof(MptEntryRecord) == 1);

struct MbftHeaderRecord {
  u8 signature[4];  // 0  "MBFT"
  u8 version;       // 4
  u8 count;         // 5  items
};
static_assert(sizeof(MbftHeaderRecord) == 6);

struct MdtHeaderRecord {
  u8 signature[3];  // 0  "MDT"
  u8 version;       // 3
  u8 count;         // 4  items
  u8 unknown[11];   // 5
};
static_assert(sizeof(MdtHeaderRecord) == 16);

// Items are of variable length: a fixed part, whose last byte counts the bytes behind it.
inline constexpr std::size_t kMbftItemFixedBytes = 27;
inline constexpr std::size_t kMdtItemFixedBytes = 31;

inline constexpr std::size_t kMptNameCharacters = sizeof(MptEntryRecord::name) - 1;

}  // namespace tallowin
