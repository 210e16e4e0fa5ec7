// What a partition type id means: its name, its hidden form, and the families it belongs to.
#pragma once

#include <string>

#include "base/types.h"

namespace tallowin {

// Pure functions over type ids: the type byte of an MBR entry, or one of the special ids.
namespace PartitionTypeCatalogue {

inline constexpr u16 kFree = 0x00;
inline constexpr u16 kExtended = 0x05;
inline constexpr u16 kExtendedLba = 0x0F;
inline constexpr u16 kNtfs = 0x07;
inline constexpr u16 kWindowsRecovery = 0x27;
inline constexpr u16 kDynamicDisk = 0x42;  // all of the disk belongs to a volume manager
inline constexpr u16 kLinuxSwap = 0x82;
inline constexpr u16 kLinux = 0x83;
inline constexpr u16 kHibernation = 0x84;
inline constexpr u16 kLinuxLvm = 0x8E;
inline constexpr u16 kHfsPlus = 0xAF;
inline constexpr u16 kOtherData = 0xDA;  // no file system
inline constexpr u16 kLinuxRaid = 0xFD;
inline constexpr u16 kHidden = 0xED;       // the real type is stored elsewhere
inline constexpr u16 kGptReserved = 0xEE;  // the disk has a GUID partition table
inline constexpr u16 kEfiSystem = 0xEF;
inline constexpr u16 kUntyped = 256;           // sectors in a slot of the MBR that has no type
inline constexpr u16 kGptEntry = 387;          // a GPT entry whose content is not recognised
inline constexpr u16 kUntoldContent = 0xFFFF;  // fills a disk, and has no type

inline constexpr u32 kNoSizeLimit = kAllOnes32;

enum class FatLimit { usual, large };

// Whether an entry of an MBR may be given this byte: not those that mark the entry or the table.
bool isForPartitions(u16 type);
// Never empty: an id without a name of its own is "Type 12Ch/300".
std::string name(u16 type);
bool hasName(u16 type);

u16 unhide(u16 type);
// The hidden form; kHidden when the type has none of its own.
u16 hide(u16 type);
bool isHidden(u16 type);
// Data types with a hidden form of their own.
bool isHideableData(u16 type);
// The types that link an EBR to the next one, and whose volumes the kernel looks for; hidden forms
// are not among them.
bool isChainLink(u16 type);
// The families look through a hidden form.
bool isExtended(u16 type);
bool isFat(u16 type);
bool isFat32(u16 type);
bool isNtfs(u16 type);

// The largest size in MiB, or kNoSizeLimit. One less when 1 MiB is a whole multiple of
// `unitBytes`, the unit that partitions are aligned to; 0 when that is not known.
u32 maxFatSizeMiB(u16 type, u64 unitBytes, FatLimit limit);

}  // namespace PartitionTypeCatalogue

namespace types = PartitionTypeCatalogue;

}  // namespace tallowin
