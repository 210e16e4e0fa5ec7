// The CRC-32 of IEEE 802.3, as UEFI tables use it.
#pragma once

#include <span>

#include "base/types.h"

namespace tallowin {

// Reflected polynomial 0xEDB88320, initial value all ones, complemented at the end.
u32 crc32(std::span<const u8> bytes);

}  // namespace tallowin
