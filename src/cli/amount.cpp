#include "cli/amount.h"

#include <charconv>

#include "base/text.h"

namespace tallowin {
namespace {

std::optional<u64> times(u64 number, u64 factor) {
  if (number > kAllOnes64 / factor) return std::nullopt;
  return number * factor;
}

}  // namespace

std::optional<u64> Amount::bytes(u32 sectorSizeBytes) const {
  return times(number, unit == Unit::sectors ? sectorSizeBytes : 1);
}

std::optional<Amount> parseAmount(std::string_view text) {
  u64 number = 0;
  const auto [rest, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc{}) return std::nullopt;
  const std::string_view unit = text.substr(static_cast<std::size_t>(rest - text.data()));
  if (equalsIgnoreCase(unit, "s")) return Amount{number, Amount::Unit::sectors};

  constexpr std::pair<std::string_view, u64> kUnits[] = {
      {"B", 1}, {"KiB", kKiB}, {"MiB", kMiB}, {"GiB", kGiB}, {"TiB", 1024 * kGiB}, {"", kMiB}};
  for (const auto& [name, factor] : kUnits) {
    if (!equalsIgnoreCase(unit, name)) continue;
    const std::optional<u64> bytes = times(number, factor);
    return bytes ? std::optional(Amount{*bytes, Amount::Unit::bytes}) : std::nullopt;
  }
  return std::nullopt;
}

std::optional<u32> amountInMiB(const Amount& amount, u32 sectorSizeBytes) {
  const std::optional<u64> bytes = amount.bytes(sectorSizeBytes);
  if (!bytes) return std::nullopt;
  const u64 mebibytes = *bytes / kMiB + (*bytes % kMiB != 0 ? 1 : 0);
  if (mebibytes > kAllOnes32) return std::nullopt;
  return static_cast<u32>(mebibytes);
}

}  // namespace tallowin
