// The file of a table backup.
//
//     0 +-----------------------------------+
//       | header                            |
//   128 +-----------------------------------+
//       | sector: LBA, bytes                |  8 + sector size bytes each, ascending LBA
//       | ...                               |
//       +-----------------------------------+
//       | CRC-32 of all before              |  4 bytes
//       +-----------------------------------+
//
// All numbers are little-endian.
#pragma once

#include <array>
#include <cstddef>

#include "base/bytes.h"

namespace tallowin {

struct TableBackupHeaderRecord {
  std::array<char, 8> magic;      //  0  "TLWTABLE"
  Le32 version;                   //  8  1
  Le32 sectorSizeBytes;           // 12  512..4096, a power of two
  Le64 diskSectors;               // 16
  Le64 savedAt;                   // 24  seconds since 1970, UTC
  Le32 diskSignature;             // 32  as in the MBR sector
  Le32 sectorCount;               // 36  of the sectors that follow
  std::array<u8, 24> reserved;    // 40  zero
  std::array<char, 64> diskName;  // 64  NUL-padded; for people
};
static_assert(sizeof(TableBackupHeaderRecord) == 128);
static_assert(offsetof(TableBackupHeaderRecord, diskSignature) == 32);
static_assert(offsetof(TableBackupHeaderRecord, diskName) == 64);

inline constexpr std::string_view kTableBackupMagic = "TLWTABLE";
inline constexpr u32 kTableBackupVersion = 1;

}  // namespace tallowin
