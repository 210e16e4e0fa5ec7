#include "fs/names.h"

#include <algorithm>

#include "base/utf8.h"

namespace tallowin {
namespace {

constexpr bool isHighSurrogate(char32_t c) { return c >= 0xD800 && c < 0xDC00; }
constexpr bool isLowSurrogate(char32_t c) { return c >= 0xDC00 && c < 0xE000; }

// Half of a pair at `at`, in three bytes; 0 when there is none.
char16_t lonelySurrogate(std::string_view text, std::size_t at) {
  if (text.size() - at < 3) return 0;
  const auto byte = [&](std::size_t i) { return static_cast<u8>(text[at + i]); };
  if (byte(0) != 0xED || byte(1) < 0xA0 || byte(1) > 0xBF || (byte(2) & 0xC0) != 0x80) return 0;
  return static_cast<char16_t>(0xD000 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F));
}

// Small letters that lie in a row, as far from their capitals as `distance` says; 1: capital and
// small letter in turn, the capitals on even (or odd) numbers.
struct Letters {
  char16_t first;
  char16_t last;
  int distance;
};
constexpr Letters kSmallLetters[] = {
    {u'a', u'z', 32},   {0xE0, 0xF6, 32},    {0xF8, 0xFE, 32},    {0xFF, 0xFF, -121},
    {0x101, 0x12F, 1},  {0x133, 0x137, 1},   {0x13A, 0x148, 1},   {0x14B, 0x177, 1},
    {0x17A, 0x17E, 1},  {0x1DF, 0x1EF, 1},   {0x1F9, 0x21F, 1},   {0x223, 0x233, 1},
    {0x3AC, 0x3AC, 38}, {0x3AD, 0x3AF, 37},  {0x3B1, 0x3C1, 32},  {0x3C3, 0x3CB, 32},
    {0x3CC, 0x3CC, 64}, {0x3CD, 0x3CE, 63},  {0x430, 0x44F, 32},  {0x450, 0x45F, 80},
    {0x461, 0x481, 1},  {0x48B, 0x4BF, 1},   {0x4C2, 0x4CE, 1},   {0x4D1, 0x52F, 1},
    {0x561, 0x586, 48}, {0x1E01, 0x1E95, 1}, {0x1EA1, 0x1EFF, 1},
};

bool holdsSmall(const Letters& letters, char16_t c) {
  return c >= letters.first && c <= letters.last &&
         (letters.distance != 1 || (c - letters.first) % 2 == 0);
}

std::u32string charactersOf(std::string_view text, const NameRules& rules) {
  std::u32string characters;
  if (const std::optional<std::u16string> units = utf16Of(text); units && !rules.isPosix) {
    for (const char16_t unit : *units) characters += upperCase(unit);
    return characters;
  }
  for (std::size_t at = 0; at < text.size();) characters += nextCharacter(text, at);
  return characters;
}

// What may be left of a pattern when the name is used up.
bool mayBeLeft(std::u32string_view rest, bool nameHasDot, const NameRules& rules) {
  if (!rest.empty() && rest.front() == U'*') rest.remove_prefix(1);
  if (rules.isPosix || nameHasDot) return rest.empty();
  while (!rest.empty() && rest.front() == U'.') rest.remove_prefix(1);
  return rest.empty() || rest == U"*";
}

}  // namespace

std::optional<std::u16string> utf16Of(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    if (const char16_t half = lonelySurrogate(text, at)) {
      units += half;
      at += 3;
      continue;
    }
    const std::size_t from = at;
    const char32_t c = nextCharacter(text, at);
    if (c == kReplacementCharacter && at - from != 3) return std::nullopt;
    if (c < 0x10000) {
      units += static_cast<char16_t>(c);
    } else {
      units += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      units += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    }
  }
  return units;
}

std::string utf8Of(std::u16string_view units) {
  std::string text;
  text.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    char32_t c = units[i];
    if (isHighSurrogate(c) && i + 1 < units.size() && isLowSurrogate(units[i + 1]))
      c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00U);
    appendUtf8(text, c);
  }
  return text;
}

char16_t upperCase(char16_t c) {
  if (c < 0x80) return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c;
  for (const Letters& letters : kSmallLetters)
    if (holdsSmall(letters, c)) return static_cast<char16_t>(c - letters.distance);
  return c;
}

char16_t lowerCase(char16_t c) {
  for (const Letters& letters : kSmallLetters)
    if (const auto small = static_cast<char16_t>(c + letters.distance); holdsSmall(letters, small))
      return small;
  return c;
}

std::u16string upperCase(std::u16string_view units) {
  std::u16string upper(units);
  for (char16_t& unit : upper) unit = upperCase(unit);
  return upper;
}

bool isSameName(std::string_view a, std::string_view b, const NameRules& rules) {
  return a == b || (!rules.isPosix && charactersOf(a, rules) == charactersOf(b, rules));
}

std::vector<std::string_view> componentsOf(std::string_view path) {
  std::vector<std::string_view> components;
  while (!path.empty()) {
    const std::size_t length = std::min(path.find_first_of("/\\"), path.size());
    const std::string_view component = path.substr(0, length);
    if (!component.empty() && component != ".") components.push_back(component);
    path.remove_prefix(std::min(length + 1, path.size()));
  }
  return components;
}

Failure checkName(std::string_view name, const NameRules& rules) {
  const std::optional<std::u16string> units = utf16Of(name);
  if (name.empty() || (!rules.isPosix && !units)) return Error::invalidName;
  if ((rules.isPosix ? name.size() : units->size()) > rules.longestName) return Error::nameTooLong;
  if (name.find_first_of(rules.isPosix ? "<>?*|\"/\\" : "<>?*|\"/\\:") != std::string_view::npos ||
      std::ranges::any_of(name, [](char c) { return static_cast<u8>(c) < 0x20; }))
    return Error::invalidName;
  const bool endsBadly = rules.isPosix ? name == "." || name == ".." : name.back() == '.';
  return endsBadly ? Failure(Error::invalidName) : Failure();
}

bool matchesPattern(std::string_view patternText, std::string_view nameText,
                    const NameRules& rules) {
  const std::u32string pattern = charactersOf(patternText, rules);
  const std::u32string name = charactersOf(nameText, rules);
  const bool nameHasDot = name.find(U'.') != std::u32string::npos;
  std::size_t at = 0, in = 0;
  std::optional<std::size_t> star;  // the last one of the pattern, and what it matches up to
  std::size_t starEnd = 0;
  for (;;) {
    const std::u32string_view rest = std::u32string_view(pattern).substr(at);
    if (in == name.size() && mayBeLeft(rest, nameHasDot, rules)) return true;
    if (!rest.empty() && rest.front() == U'*') {
      star = at++;
      starEnd = in;
    } else if (in < name.size() && !rest.empty() &&
               (rest.front() == name[in] ||
                (rest.front() == U'?' && (name[in] != U'.' || rules.isPosix)))) {
      ++at, ++in;
    } else if (star && starEnd < name.size()) {
      at = *star + 1;
      in = ++starEnd;
    } else {
      return false;
    }
  }
}

}  // namespace tallowin
