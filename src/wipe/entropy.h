// What the random pool is fed with before a wipe.
#pragma once

#include "base/host.h"
#include "disk/disk_device.h"
#include "wipe/random_pool.h"

namespace tallowin {

inline constexpr u32 kWipeEntropyBits = 800;

// From the clocks, the random bytes of the machine, and sectors of the disk that hold something;
// what cannot be read adds nothing.
void gatherEntropy(Host& host, DiskDevice& disk, u32 bits, RandomPool& pool);

}  // namespace tallowin
