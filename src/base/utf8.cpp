#include "base/utf8.h"

#include <array>

#include "base/types.h"

namespace tallowin {

void appendUtf8(std::string& text, char32_t c) {
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xC0 | c >> 6);
    text += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    text += static_cast<char>(0xE0 | c >> 12);
    text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    text += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    text += static_cast<char>(0xF0 | c >> 18);
    text += static_cast<char>(0x80 | (c >> 12 & 0x3F));
    text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    text += static_cast<char>(0x80 | (c & 0x3F));
  }
}

char32_t nextCharacter(std::string_view text, std::size_t& at) {
  const u8 first = static_cast<u8>(text[at++]);
  if (first < 0x80) return first;
  const std::size_t more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  if (first < 0xC2 || first > 0xF4 || at + more > text.size()) return kReplacementCharacter;
  char32_t value = first & (0x3F >> more);
  for (std::size_t i = 0; i < more; ++i) {
    const u8 next = static_cast<u8>(text[at + i]);
    if ((next & 0xC0) != 0x80) return kReplacementCharacter;
    value = value << 6 | (next & 0x3F);
  }
  constexpr std::array<char32_t, 4> kShortest = {0, 0x80, 0x800, 0x10000};
  if (value < kShortest[more] || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000))
    return kReplacementCharacter;
  at += more;
  return value;
}

std::size_t bytesOfCharacters(std::string_view text, std::size_t count) {
  std::size_t at = 0;
  for (; at < text.size() && count > 0; --count) nextCharacter(text, at);
  return at;
}

}  // namespace tallowin
