// What lies on an ISO 9660 disc (ECMA-119), in sectors of 2048 bytes:
//
//   | 16 sectors of a system | volume descriptors | path tables, directories, files ... |
#pragma once

#include "base/bytes.h"

namespace tallowin {

inline constexpr u32 kIsoSectorBytes = 2048;
inline constexpr u32 kIsoFirstDescriptor = 16;  // behind the start of the session
inline constexpr u32 kIsoMostDescriptors = 32;

// A number in both byte orders.
struct IsoBoth32 {
  Le32 value;
  Be32 bigEndian;
};

struct IsoDirectoryRecord {
  u8 length;             //  0  with name and padding; 0: the rest of the sector is empty
  u8 extendedSectors;    //  1  of attributes, before the data
  IsoBoth32 extent;      //  2
  IsoBoth32 dataLength;  // 10  bytes
  u8 recordedAt[7];      // 18  years since 1900, month, day, hour, minute, second, quarters of an
                         //     hour from Greenwich
  u8 flags;              // 25  IsoFlag bits
  u8 unitSize;           // 26
  u8 gapSize;            // 27
  u8 volumeNumber[4];    // 28
  u8 nameLength;         // 32  the name follows
};
static_assert(sizeof(IsoDirectoryRecord) == 33 && alignof(IsoDirectoryRecord) == 1);
static_assert(offsetof(IsoDirectoryRecord, flags) == 25);

enum IsoFlag : u8 { kIsoHidden = 0x01, kIsoDirectory = 0x02, kIsoGoesOn = 0x80 };

struct IsoVolumeDescriptor {
  u8 type;                    //    0  IsoDescriptorType
  char identifier[5];         //    1  "CD001"
  u8 version;                 //    6
  u8 flags;                   //    7
  char systemIdentifier[32];  //    8
  char volumeIdentifier[32];  //   40
  u8 reserved[8];             //   72
  IsoBoth32 volumeSectors;    //   80
  char escapeSequences[32];   //   88  of a supplementary one
  u8 numbers[36];             //  120
  IsoDirectoryRecord root;    //  156
  u8 rest[2048 - 156 - 33];
};
static_assert(sizeof(IsoVolumeDescriptor) == kIsoSectorBytes && alignof(IsoVolumeDescriptor) == 1);
static_assert(offsetof(IsoVolumeDescriptor, root) == 156);

enum IsoDescriptorType : u8 {
  kIsoPrimary = 1,
  kIsoSupplementary = 2,
  kIsoLastDescriptor = 255,
};

}  // namespace tallowin
