// Text helpers: printf-style formatting into std::string, case-blind comparison, wildcards.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"

namespace tallowin {

// printf into a string. The system's own texts are printf formats, and this is the one place
// that expands them.
[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);
std::string formatList(const char* pattern, std::va_list arguments);

// ASCII only, whatever the locale.
char lowerAscii(char c);
char upperAscii(char c);
bool equalsIgnoreCase(std::string_view a, std::string_view b);
bool startsWithIgnoreCase(std::string_view text, std::string_view prefix);

std::string_view trimRight(std::string_view text);
std::string_view trim(std::string_view text);
std::vector<std::string> split(std::string_view text, char separator);

// `?` matches exactly one character, `*` any run, also an empty one.
bool matchesWildcard(std::string_view pattern, std::string_view text);

// A whole text as a number, base 10, 0x... or 0... (octal); false when anything is left over.
[[nodiscard]] bool parseNumber(std::string_view text, u64& value);
// The same of decimal digits alone, which may begin with zeros.
[[nodiscard]] bool parseDecimal(std::string_view text, u64& value);

// Bytes outside 0x20..0x7E become blanks.
std::string printable(std::string_view text);
// UTF-8: control characters, and bytes that are no character, become blanks.
std::string printableFromUtf8(std::string_view text);
// "YYYYMMDD-HHMMSS" in UTC, for names of files that sort by date.
std::string dateStamp(u64 secondsSinceEpoch);

// Sectors as MiB, half a MiB rounding up; a sector size of 0 counts as 512.
u64 sectorsToMiB(u64 sectors, u32 sectorSizeBytes);

// "%u MiB", "< 1 MiB" when that is 0, "Invalid" when the end lies before the start.
std::string sizeText(u64 startSector, u64 endSector, u32 sectorSizeBytes);

}  // namespace tallowin
