// Where the boot sectors of GRUB keep the places of what they load.
#pragma once

#include <array>
#include <cstddef>

#include "base/bytes.h"

namespace tallowin {

inline constexpr std::size_t kLoaderSectorBytes = 512;  // that a loader uses of a sector
inline constexpr u8 kGrubDriveOfBoot = 0xFF;            // the drive that the firmware started from

// The boot sector of GRUB 2.
struct Grub2BootRecord {
  static constexpr u16 kJump = 0x63EB;

  Le16 jump;  //   0  kJump
  std::array<u8, 90> unused;
  Le64 coreSector;  //  92  the first of the core image; of the whole disk
  u8 bootDrive;     // 100
};
static_assert(sizeof(Grub2BootRecord) == 101 && offsetof(Grub2BootRecord, coreSector) == 0x5C);

// The first sector of the core image ends with a list of where the rest lies. The list grows
// downwards, and a length of 0 ends it.
struct Grub2BlockRecord {
  static constexpr u16 kFirstSegment = 0x0820;

  Le64 startSector;  //  0
  Le16 sectors;      //  8
  Le16 segment;      // 10  where they are loaded to
};
static_assert(sizeof(Grub2BlockRecord) == 12);

// The boot sector of GRUB legacy, its stage 1.
struct Stage1BootRecord {
  static constexpr u16 kVersion = 0x0203;

  std::array<u8, 62> unused;
  Le16 version;  //  62  kVersion
  u8 bootDrive;  //  64
  std::array<u8, 3> unused2;
  Le32 stage2Sector;  //  68
};
static_assert(sizeof(Stage1BootRecord) == 72 && offsetof(Stage1BootRecord, stage2Sector) == 0x44);

// Ends the first sector of stage 2, as the one above.
struct Stage2BlockRecord {
  static constexpr u16 kStage2Segment = 0x0820;
  static constexpr u16 kStage15Segment = 0x0220;

  Le32 startSector;  //  0
  Le16 sectors;      //  4
  Le16 segment;      //  6
};
static_assert(sizeof(Stage2BlockRecord) == 8);

// The boot sector of type 0xEB says where it begins.
struct BeBootRecord {
  static constexpr std::array<u8, 4> kCode = {0xB8, 0x00, 0x90, 0x8E};
  static constexpr char kName[] = "SRfP";

  std::array<u8, 4> code;  //   0  kCode
  std::array<u8, 167> unused;
  Le32 partitionStart;  // 171
  u8 unused2;
  std::array<char, 4> name;  // 176  kName
};
static_assert(sizeof(BeBootRecord) == 180 && offsetof(BeBootRecord, partitionStart) == 171);

}  // namespace tallowin
