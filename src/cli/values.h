// How the values that several options share are typed; beside them sizes, see amount.h.
#pragma once

#include <optional>
#include <string_view>

#include "base/types.h"

namespace tallowin {

inline constexpr const char* kTypeForm =
    "a type: a number, or fat12, fat16, fat32, ntfs, linux, swap, extended, efi";

// A number of 32 bits: decimal, 0x hexadecimal or 0 octal.
std::optional<u32> parseCount(std::string_view text);
std::optional<u32> parseFromOne(std::string_view text);
// A type number from 1, or one of the words that stand for the usual types.
std::optional<u32> parseType(std::string_view text);
// 512, 1024, 2048 or 4096.
std::optional<u32> parseSectorSize(std::string_view text);
// A cluster size in bytes: a power of two from 512B to 64KiB.
std::optional<u32> parseCluster(std::string_view text);

inline constexpr const char* kClusterForm = "a cluster size: 512B, 1KiB, 2KiB ... 64KiB";
inline constexpr const char* kClusterHelp = "Cluster size; by default automatic";

}  // namespace tallowin
