// The part of a master boot record that tells which geometry it was written with.
#pragma once

#include "base/bytes.h"

namespace tallowin {

struct MbrEndsRecord {
  struct Entry {
    u8 bootIndicator = 0;  // 0  0x80 active, else 0
    u8 firstChs[3] = {};   // 1
    u8 type = 0;           // 4  0 = unused
    u8 lastHead = 0;       // 5
    u8 lastSector = 0;     // 6  bits 0..5; bits 6..7 belong to the cylinder
    u8 lastCylinder = 0;   // 7
    Le32 firstLba;         // 8
    Le32 sectorCount;      // 12
  };

  u8 bootCode[440] = {};  // 0
  Le32 diskSignature;     // 440
  Le16 reserved;          // 444
  Entry entries[4];       // 446
  Le16 bootSignature;     // 510
};
static_assert(sizeof(MbrEndsRecord::Entry) == 16 && sizeof(MbrEndsRecord) == 512);
static_assert(offsetof(MbrEndsRecord, diskSignature) == 440 &&
              offsetof(MbrEndsRecord, entries) == 446);

}  // namespace tallowin
