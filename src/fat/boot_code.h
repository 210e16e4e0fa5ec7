// Which loader a FAT boot sector starts.
#pragma once

#include <span>

#include "base/types.h"

namespace tallowin {

// The numbers tell apart the BOOTMGR sectors of different systems.
enum class BootmgrCode : u8 { none = 0, plain = 1, variant3 = 3, variant4 = 4 };

// Each takes a boot sector; what is shorter than 512 bytes is none of them.
bool hasNtldrCode(std::span<const u8> bootSector);
BootmgrCode bootmgrCode(std::span<const u8> bootSector);
bool hasDosCode(std::span<const u8> bootSector);        // IO.SYS
bool hasWindows9xCode(std::span<const u8> bootSector);  // WINBOOT.SYS, or IO.SYS of Windows 9x

// NTLDR or BOOTMGR: on FAT32 such code continues in sector 12 instead of sector 2.
bool hasNtStyleCode(std::span<const u8> bootSector);

}  // namespace tallowin
