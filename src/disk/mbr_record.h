// The master boot record and the extended boot record, as they lie in one sector. On sectors
// larger than 512 bytes they fill the first 512 bytes.
//
//     0 +--------------------------+      0 +--------------------------+
//       | boot code                |        | not used                 |
//   440 +--------------------------+    394 +--------------------------+
//       | disk signature, reserved |        | name, real type          |
//   446 +--------------------------+    446 +--------------------------+
//       | four slots               |        | volume and link          |
//   510 +--------------------------+    510 +--------------------------+
//       | 0x55 0xAA                |        | 0x55 0xAA                |
//       +--------------------------+        +--------------------------+
#pragma once

#include <array>
#include <cstddef>

#include "base/bytes.h"

namespace tallowin {

inline constexpr std::size_t kBootCodeBytes = 440;
inline constexpr std::size_t kMbrSlots = 4;
inline constexpr u8 kBootActive = 0x80;

// The last two bytes of every boot record.
struct BootSignature {
  u8 first;
  u8 second;

  bool isValid() const { return first == 0x55 && second == 0xAA; }
  void set() {
    first = 0x55;
    second = 0xAA;
  }
};

// One partition. Sector numbers count device sectors.
struct MbrSlotRecord {
  u8 bootIndicator;            //  0  0x80 active, 0x00 not
  std::array<u8, 3> startChs;  //  1  head, sector with cylinder bits 8..9, cylinder bits 0..7
  u8 type;                     //  4  0x00 free
  std::array<u8, 3> endChs;    //  5
  Le32 startLba;     //  8  in an EBR: of a volume relative to that EBR, of a link to the container
  Le32 sectorCount;  // 12  a length, not the last sector

  // Other programs take sectors without a type for a partition.
  bool isFree() const { return type == 0 && sectorCount == 0; }
  void clear() { *this = MbrSlotRecord{}; }
};
static_assert(sizeof(MbrSlotRecord) == 16 && alignof(MbrSlotRecord) == 1);

struct MbrRecord {
  std::array<u8, kBootCodeBytes> bootCode;     //   0
  Le32 diskSignature;                          // 440
  std::array<u8, 2> reserved;                  // 444
  std::array<MbrSlotRecord, kMbrSlots> slots;  // 446
  BootSignature signature;                     // 510
};
static_assert(sizeof(MbrRecord) == 512 && offsetof(MbrRecord, diskSignature) == 440);
static_assert(offsetof(MbrRecord, slots) == 446 && offsetof(MbrRecord, signature) == 510);

inline constexpr std::size_t kVolumeNameBytes = 8;

struct EbrRecord {
  std::array<u8, 394> unused;                  //   0
  std::array<u8, kVolumeNameBytes> name;       // 394  ends at a NUL; starts at 395 when this is NUL
  u8 hiddenType;                               // 402  the real type of a volume of type 0xED
  std::array<u8, 43> unused2;                  // 403
  std::array<MbrSlotRecord, kMbrSlots> slots;  // 446  in any of them: the volume and the link
  BootSignature signature;                     // 510
};
static_assert(sizeof(EbrRecord) == 512 && offsetof(EbrRecord, name) == 394);
static_assert(offsetof(EbrRecord, hiddenType) == 402 && offsetof(EbrRecord, slots) == 446);

// Byte 0 of the sector behind an EBR: the volume's sequence number, 0 when none was stored. The
// sector is the table's own only when the volume starts behind it.
inline constexpr u32 kFirstVolumeAfterSequence = 2;

}  // namespace tallowin
