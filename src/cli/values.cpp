#include "cli/values.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"
#include "cli/amount.h"

namespace tallowin {
namespace {

struct TypeWord {
  std::string_view word;
  u32 type;
};
constexpr TypeWord kTypeWords[] = {{"fat12", 0x01},    {"fat16", 0x06}, {"fat32", 0x0B},
                                   {"ntfs", 0x07},     {"linux", 0x83}, {"swap", 0x82},
                                   {"extended", 0x05}, {"efi", 0xEF}};
constexpr u32 kLargestClusterBytes = 64 * 1024;

}  // namespace

std::optional<u32> parseCount(std::string_view text) {
  u64 value = 0;
  if (!parseDecimal(text, value) || value > kAllOnes32) return std::nullopt;
  return static_cast<u32>(value);
}

std::optional<u32> parseFromOne(std::string_view text) {
  const std::optional<u32> value = parseCount(text);
  return value && *value > 0 ? value : std::nullopt;
}

std::optional<u32> parseType(std::string_view text) {
  for (const TypeWord& row : kTypeWords)
    if (equalsIgnoreCase(text, row.word)) return row.type;
  u64 number = 0;
  const bool isType = parseNumber(text, number) && number > 0 && number <= kAllOnes32;
  return isType ? std::optional(static_cast<u32>(number)) : std::nullopt;
}

std::optional<u32> parseSectorSize(std::string_view text) {
  const std::optional<u32> value = parseCount(text);
  constexpr u32 kSizes[] = {512, 1024, 2048, 4096};
  const bool isOne =
      value && std::find(std::begin(kSizes), std::end(kSizes), *value) != std::end(kSizes);
  return isOne ? value : std::nullopt;
}

std::optional<u32> parseCluster(std::string_view text) {
  const std::optional<Amount> amount = parseAmount(text);
  if (!amount || amount->unit != Amount::Unit::bytes) return std::nullopt;
  const u64 bytes = amount->number;
  const bool powerOfTwo = bytes != 0 && (bytes & (bytes - 1)) == 0;
  if (!powerOfTwo || bytes < 512 || bytes > kLargestClusterBytes) return std::nullopt;
  return static_cast<u32>(bytes);
}

}  // namespace tallowin
