#include "wipe/md5.h"

#include <bit>

#include "base/bytes.h"

namespace tallowin {
namespace {

// The whole parts of 2^32 x |sin(i + 1)|.
constexpr std::array<u32, 64> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

u32 wordAt(const u8* bytes) {
  return u32{bytes[0]} | u32{bytes[1]} << 8 | u32{bytes[2]} << 16 | u32{bytes[3]} << 24;
}

void putWord(u32 word, u8* bytes) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<u8>(word >> 8 * i);
}

u32 mixed(std::size_t round, u32 b, u32 c, u32 d) {
  switch (round) {
    case 0:
      return (b & c) | (~b & d);
    case 1:
      return (d & b) | (~d & c);
    case 2:
      return b ^ c ^ d;
    default:
      return c ^ (b | ~d);
  }
}

std::size_t wordOf(std::size_t round, std::size_t step) {
  constexpr std::size_t kFactor[4] = {1, 5, 3, 7};
  constexpr std::size_t kOffset[4] = {0, 1, 5, 0};
  return (kFactor[round] * step + kOffset[round]) % 16;
}

}  // namespace

void md5Compress(std::span<const u8, 64> block, Md5State& state) {
  std::array<u32, 4> before{};
  for (std::size_t i = 0; i < 4; ++i) before[i] = wordAt(state.data() + 4 * i);
  auto [a, b, c, d] = before;
  for (std::size_t step = 0; step < 64; ++step) {
    const std::size_t round = step / 16;
    const u32 sum =
        a + mixed(round, b, c, d) + kSines[step] + wordAt(block.data() + 4 * wordOf(round, step));
    a = d;
    d = c;
    c = b;
    b += std::rotl(sum, kShifts[round][step % 4]);
  }
  const std::array<u32, 4> after = {a, b, c, d};
  for (std::size_t i = 0; i < 4; ++i) putWord(before[i] + after[i], state.data() + 4 * i);
}

}  // namespace tallowin
