// The GUID Partition Table as it lies on the disk. Published source: the UEFI Specification,
// chapter "GUID Partition Table (GPT) Disk Layout".
//
//   LBA 0         protective MBR
//   LBA 1         primary header
//   LBA 2 ..      primary entry array; anywhere before the usable area when read
//   ...           first usable LBA .. last usable LBA
//   ... last - 1  backup entry array
//   last LBA      backup header
#pragma once

#include "base/bytes.h"
#include "base/guid.h"

namespace tallowin {

inline constexpr char kGptSignature[] = "EFI PART";
inline constexpr u32 kGptRevision = 0x00010000;
inline constexpr u32 kGptHeaderSize = 92;  // as created; up to 512 when read
inline constexpr u32 kGptMaxHeaderSize = 512;
inline constexpr u32 kGptEntrySize = 128;  // as created; larger when read
inline constexpr u32 kGptEntryCount = 128;
inline constexpr u64 kGptPrimaryHeaderLba = 1;
inline constexpr u64 kGptPrimaryEntryLba = 2;
inline constexpr std::size_t kGptNameLength = 36;

struct GptHeaderRecord {
  u8 signature[8];      //  0  "EFI PART"
  Le32 revision;        //  8
  Le32 headerSize;      // 12  bytes that the CRC covers
  Le32 headerCrc;       // 16  over headerSize bytes, this field taken as 0
  Le32 reserved;        // 20
  Le64 myLba;           // 24
  Le64 alternateLba;    // 32  of the other header
  Le64 firstUsableLba;  // 40
  Le64 lastUsableLba;   // 48  inclusive
  Guid diskGuid;        // 56
  Le64 entryLba;        // 72  first sector of the entry array
  Le32 entryCount;      // 80
  Le32 entrySize;       // 84  bytes
  Le32 entryCrc;        // 88  over entryCount x entrySize bytes
};
static_assert(sizeof(GptHeaderRecord) == kGptHeaderSize && alignof(GptHeaderRecord) == 1);

struct GptEntryRecord {
  Guid typeGuid;              //  0  zero: unused
  Guid uniqueGuid;            // 16
  Le64 firstLba;              // 32
  Le64 lastLba;               // 40  inclusive
  Le64 attributes;            // 48
  Le16 name[kGptNameLength];  // 56  UTF-16

  bool isUsed() const { return !typeGuid.isZero(); }
  void clear() { *this = GptEntryRecord{}; }
};
static_assert(sizeof(GptEntryRecord) == kGptEntrySize && alignof(GptEntryRecord) == 1);

}  // namespace tallowin
