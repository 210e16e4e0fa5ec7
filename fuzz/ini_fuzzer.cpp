// A text from the input, in which one value is set and deleted. The section, the key and the
// value are names, as the program's own are; the text and the capacity are anything.
#include <cstdlib>
#include <string>

#include "files/ini_text.h"

using namespace tallowin;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

// One to four letters, few enough to meet what stands in the text.
std::string nameOf(u8 byte) {
  std::string name;
  for (u32 i = 0; i <= (byte & 3U); ++i) name += static_cast<char>('a' + (byte >> (2 * i + 1) & 1));
  return name;
}

void lookAround(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    SectionRange range;
    const auto body = findSection(text.substr(at), std::nullopt, &range);
    if (!body) break;
    require(range.headerStart < *body && *body <= range.end && range.end <= text.size() - at);
    require(sectionName(text.substr(at), range.headerStart).size() < text.size());
    at += range.end;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  constexpr std::size_t kHead = 5;
  if (size < kHead || size > 4 * kKiB) return 0;
  std::string text(data + kHead, data + size);
  const std::string key = nameOf(data[0]);
  const std::string otherKey = nameOf(data[0]) + "x";
  const std::string value = nameOf(data[1]);
  std::optional<std::string> section;
  if (data[2] != 0) section = nameOf(data[2]);
  const std::size_t capacity = text.size() + data[3];
  lookAround(text);

  const std::string before = text;
  const std::string otherBefore(getValue(text, section, otherKey).value_or("-"));
  const auto line = setValue(text, capacity, value, section, key);
  if (!line) {
    require(text == before);
    return 0;
  }
  require(text.size() < capacity && *line <= text.size());
  require(getValue(text, section, key) == value);
  require(getValue(text, section, otherKey).value_or("-") == otherBefore);
  if (data[4] % 2 == 0) {
    require(setValue(text, capacity, value, section, key) == line);
    require(getValue(text, section, key) == value);
  }
  // Deleting takes lines away until there is none.
  for (std::size_t left = text.size(); getValue(text, section, key); left = text.size()) {
    require(setValue(text, capacity, std::nullopt, section, key).has_value());
    require(text.size() < left);
  }
  require(getValue(text, section, otherKey).value_or("-") == otherBefore);
  return 0;
}
