// The compression function of MD5, as RFC 1321 gives it: no padding and no length.
#pragma once

#include <array>
#include <span>

#include "base/types.h"

namespace tallowin {

using Md5State = std::array<u8, 16>;  // the four words, each with its low byte first

// The state after one block.
void md5Compress(std::span<const u8, 64> block, Md5State& state);

}  // namespace tallowin
