// The fixed widths that every on-disk record and contract is stated in.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tallowin {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i8 = std::int8_t;
using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;

inline constexpr u32 kAllOnes32 = 0xFFFFFFFF;
inline constexpr u64 kAllOnes64 = 0xFFFFFFFFFFFFFFFF;
inline constexpr u64 kKiB = 1024;
inline constexpr u64 kMiB = 1024 * kKiB;
inline constexpr u64 kGiB = 1024 * kMiB;

// To the next multiple; below 2^64 - `unit`.
constexpr u64 roundUp(u64 value, u64 unit) { return (value + unit - 1) / unit * unit; }

}  // namespace tallowin
