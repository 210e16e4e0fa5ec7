#include "base/crc32.h"

#include <array>

namespace tallowin {
namespace {

constexpr std::array<u32, 256> makeTable() {
  std::array<u32, 256> table{};
  for (u32 byte = 0; byte < table.size(); ++byte) {
    u32 value = byte;
    for (int bit = 0; bit < 8; ++bit) value = value & 1 ? value >> 1 ^ 0xEDB88320 : value >> 1;
    table[byte] = value;
  }
  return table;
}

constexpr std::array<u32, 256> kTable = makeTable();

}  // namespace

u32 crc32(std::span<const u8> bytes) {
  u32 value = kAllOnes32;
  for (const u8 byte : bytes) value = value >> 8 ^ kTable[(value ^ byte) & 0xFF];
  return ~value;
}

}  // namespace tallowin
