// UTF-16 names of GPT entries, as UTF-8.
#include <array>

#include "ptable/gpt/gpt_image.h"

namespace tallowin {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

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

// The next character of `text` from `at` on; a byte that starts none counts as one by itself.
char32_t nextCharacter(std::string_view text, std::size_t& at) {
  const u8 first = static_cast<u8>(text[at++]);
  if (first < 0x80) return first;
  const std::size_t more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  if (first < 0xC2 || first > 0xF4 || at + more > text.size()) return kReplacement;
  char32_t value = first & (0x3F >> more);
  for (std::size_t i = 0; i < more; ++i) {
    const u8 next = static_cast<u8>(text[at + i]);
    if ((next & 0xC0) != 0x80) return kReplacement;
    value = value << 6 | (next & 0x3F);
  }
  constexpr std::array<char32_t, 4> kShortest = {0, 0x80, 0x800, 0x10000};
  if (value < kShortest[more] || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000))
    return kReplacement;
  at += more;
  return value;
}

}  // namespace

std::string gptName(const GptEntryRecord& entry) {
  std::string text;
  for (std::size_t i = 0; i < kGptNameLength && entry.name[i] != 0; ++i) {
    char32_t c = entry.name[i];
    if (isHighSurrogate(c) && i + 1 < kGptNameLength && isLowSurrogate(entry.name[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (entry.name[++i] - 0xDC00U);
    } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
      c = kReplacement;
    }
    appendUtf8(text, c);
  }
  return text;
}

void setGptName(GptEntryRecord& entry, std::string_view utf8) {
  std::size_t units = 0;
  for (Le16& unit : entry.name) unit = u16{0};
  for (std::size_t at = 0; at < utf8.size();) {
    const char32_t c = nextCharacter(utf8, at);
    const std::size_t needed = c < 0x10000 ? 1 : 2;
    if (needed > kGptNameLength - units) return;
    if (needed == 2) {
      entry.name[units++] = static_cast<u16>(0xD800 + ((c - 0x10000) >> 10));
      entry.name[units++] = static_cast<u16>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      entry.name[units++] = static_cast<u16>(c);
    }
  }
}

}  // namespace tallowin
