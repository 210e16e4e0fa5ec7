// UTF-16 names of GPT entries, as UTF-8.
#include "base/utf8.h"
#include "ptable/gpt/gpt_image.h"

namespace tallowin {
namespace {

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

}  // namespace

std::string gptName(const GptEntryRecord& entry) {
  std::string text;
  for (std::size_t i = 0; i < kGptNameLength && entry.name[i] != 0; ++i) {
    char32_t c = entry.name[i];
    if (isHighSurrogate(c) && i + 1 < kGptNameLength && isLowSurrogate(entry.name[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (entry.name[++i] - 0xDC00U);
    } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
      c = kReplacementCharacter;
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
