#include "base/guid.h"

#include <cstddef>

#include "base/text.h"

namespace tallowin {
namespace {

// Text position of each pair of digits -> byte in the on-disk layout; the first three groups
// are little-endian numbers.
constexpr std::array<u8, 16> kByteOfPair = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};

constexpr bool isDashBefore(std::size_t pair) {
  return pair == 4 || pair == 6 || pair == 8 || pair == 10;
}

}  // namespace

std::string guidText(const Guid& guid) {
  std::string text = "{";
  for (std::size_t pair = 0; pair < kByteOfPair.size(); ++pair) {
    if (isDashBefore(pair)) text += '-';
    text += format("%02X", guid.bytes[kByteOfPair[pair]]);
  }
  return text + "}";
}

bool parseGuid(std::string_view text, Guid& guid) {
  constexpr std::size_t kPlainLength = 36;
  if (text.size() == kPlainLength + 2 && text.front() == '{' && text.back() == '}')
    text = text.substr(1, kPlainLength);
  if (text.size() != kPlainLength) return false;
  Guid result;
  std::size_t at = 0;
  for (std::size_t pair = 0; pair < kByteOfPair.size(); ++pair, at += 2) {
    if (isDashBefore(pair) && text[at++] != '-') return false;
    u64 value = 0;
    if (!parseNumber("0x" + std::string(text.substr(at, 2)), value)) return false;
    result.bytes[kByteOfPair[pair]] = static_cast<u8>(value);
  }
  guid = result;
  return true;
}

}  // namespace tallowin
