// Names of files: between UTF-8, as the program speaks, and UTF-16, as many disks hold them; when
// two are the same; which are valid; and patterns.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/error.h"

namespace tallowin {

struct NameRules {
  bool isPosix = false;  // case counts, ':' is ordinary, a name may end in a dot, lengths are bytes
  bool hasShortNames = false;  // a pattern is tried on the short name too
  u32 longestName = 255;       // UTF-16 units
  u32 longestPath = 4096;      // bytes of UTF-8
};

// Half of a surrogate pair, which disks may hold, is carried as three bytes and comes back as it
// was. Nothing for a text that is not UTF-8 otherwise.
std::optional<std::u16string> utf16Of(std::string_view text);
std::string utf8Of(std::u16string_view units);

// Without a locale: the letters of the Latin, Greek, Cyrillic and Armenian alphabets.
char16_t upperCase(char16_t c);
char16_t lowerCase(char16_t c);
std::u16string upperCase(std::u16string_view units);
bool isSameName(std::string_view a, std::string_view b, const NameRules& rules);

// '/' and '\' separate; what is empty, and ".", is left out.
std::vector<std::string_view> componentsOf(std::string_view path);

// invalidName, nameTooLong. Whether a new file could be called so.
Failure checkName(std::string_view name, const NameRules& rules);

inline bool hasWildcard(std::string_view text) {
  return text.find_first_of("*?") != std::string_view::npos;
}
// '*' matches any run, '?' one character. Without POSIX rules '?' does not match a dot, and what is
// left of the pattern behind the name may be "*", ".", ".*": "*.*" matches a name without a dot.
bool matchesPattern(std::string_view pattern, std::string_view name, const NameRules& rules);

}  // namespace tallowin
