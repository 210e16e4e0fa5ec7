// Sizes and positions as they are typed on the command line.
#pragma once

#include <optional>
#include <string_view>

#include "base/types.h"

namespace tallowin {

// A number of bytes or of sectors; what a sector is, only the disk knows.
struct Amount {
  enum class Unit { bytes, sectors };
  u64 number = 0;
  Unit unit = Unit::bytes;

  friend bool operator==(const Amount&, const Amount&) = default;
  // Nothing when it passes 2^64.
  std::optional<u64> bytes(u32 sectorSizeBytes) const;
};

inline constexpr const char* kAmountForm =
    "a size: a number with B, s (sectors), KiB, MiB, GiB or TiB; alone it is MiB";

// A decimal number with "B", "s" (sectors), "KiB", "MiB", "GiB" or "TiB"; alone it is MiB.
// Nothing for anything else, and for what passes 2^64 bytes.
std::optional<Amount> parseAmount(std::string_view text);

// Whole MiB, a rest rounding up.
std::optional<u32> amountInMiB(const Amount& amount, u32 sectorSizeBytes);

}  // namespace tallowin
