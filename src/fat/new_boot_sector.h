// The boot sector that a fresh volume begins with, assembled from boot/new_boot_sector.S.
#pragma once

#include "base/types.h"

namespace tallowin {

extern "C" const u8 tallowinNewFatBootSector[512];

}  // namespace tallowin
