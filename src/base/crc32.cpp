#include "base/crc32.h"

#include <array>

namespace tallowin {
namespace {

constexpr std::size_t kSlices = 8;
using Tables = std::array<std::array<u32, 256>, kSlices>;

// Table n has what a byte becomes when n bytes of zeros follow it.
constexpr Tables makeTables() {
  Tables tables{};
  for (u32 byte = 0; byte < 256; ++byte) {
    u32 value = byte;
    for (int bit = 0; bit < 8; ++bit) value = value & 1 ? value >> 1 ^ 0xEDB88320 : value >> 1;
    tables[0][byte] = value;
  }
  for (std::size_t n = 1; n < kSlices; ++n)
    for (u32 byte = 0; byte < 256; ++byte) {
      const u32 before = tables[n - 1][byte];
      tables[n][byte] = before >> 8 ^ tables[0][before & 0xFF];
    }
  return tables;
}

constexpr Tables kTables = makeTables();

// Eight bytes at once; the first four are mixed with the value so far.
u32 slice(u32 value, const u8* bytes) {
  u32 result = 0;
  for (std::size_t i = 0; i < kSlices; ++i) {
    const u32 mixed = i < 4 ? value >> 8 * i & 0xFF : 0;
    result ^= kTables[kSlices - 1 - i][(bytes[i] ^ mixed) & 0xFF];
  }
  return result;
}

}  // namespace

u32 crc32(std::span<const u8> bytes) {
  u32 value = kAllOnes32;
  while (bytes.size() >= kSlices) {
    value = slice(value, bytes.data());
    bytes = bytes.subspan(kSlices);
  }
  for (const u8 byte : bytes) value = value >> 8 ^ kTables[0][(value ^ byte) & 0xFF];
  return ~value;
}

}  // namespace tallowin
