#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "base/utf8.h"

namespace tallowin {

std::string formatList(const char* pattern, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  // va_copy is not followed by the analyser.
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  const int length = std::vsnprintf(nullptr, 0, pattern, again);
  va_end(again);
  if (length <= 0) return {};
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, pattern, arguments);
  return text;
}

std::string format(const char* pattern, ...) {
  std::va_list arguments;
  va_start(arguments, pattern);
  std::string text = formatList(pattern, arguments);
  va_end(arguments);
  return text;
}

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
char upperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && startsWithIgnoreCase(a, b);
}

bool startsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  return std::equal(prefix.begin(), prefix.end(), text.begin(),
                    [](char a, char b) { return lowerAscii(a) == lowerAscii(b); });
}

std::string_view trimRight(std::string_view text) {
  const std::size_t last = text.find_last_not_of(" \t\r\n");
  return last == std::string_view::npos ? std::string_view{} : text.substr(0, last + 1);
}

std::string_view trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  return first == std::string_view::npos ? std::string_view{} : trimRight(text.substr(first));
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  while (true) {
    const std::size_t at = text.find(separator);
    parts.emplace_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + 1);
  }
}

bool matchesWildcard(std::string_view pattern, std::string_view text) {
  // On a mismatch the last `*` takes one character more: linear memory of one position, and
  // never worse than pattern times text.
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t star = std::string_view::npos;
  std::size_t starText = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      starText = t;
    } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
      ++p;
      ++t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++starText;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool parseNumber(std::string_view text, u64& value) {
  int base = 10;
  if (startsWithIgnoreCase(text, "0x")) {
    base = 16;
    text.remove_prefix(2);
  } else if (text.size() > 1 && text[0] == '0') {
    base = 8;
    text.remove_prefix(1);
  }
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  return problem == std::errc{} && end == text.data() + text.size();
}

bool parseDecimal(std::string_view text, u64& value) {
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
  return problem == std::errc{} && end == text.data() + text.size();
}

std::string printableFromUtf8(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const char32_t c = nextCharacter(text, at);
    const bool isControl = c < 0x20 || (c >= 0x7F && c < 0xA0);
    const bool isNone = c == kReplacementCharacter && at == start + 1;
    result += isControl || isNone ? std::string_view(" ") : text.substr(start, at - start);
  }
  return result;
}

std::string printable(std::string_view text) {
  std::string result(text);
  std::replace_if(
      result.begin(), result.end(), [](char c) { return c < 0x20 || c > 0x7E; }, ' ');
  return result;
}

u64 sectorsToMiB(u64 sectors, u32 sectorSizeBytes) {
  const u64 perMiB = sectorSizeBytes == 0 || sectorSizeBytes > kMiB ? 2048 : kMiB / sectorSizeBytes;
  const u64 rest = sectors % perMiB;
  return sectors / perMiB + (rest >= perMiB - rest ? 1 : 0);
}

std::string sizeText(u64 startSector, u64 endSector, u32 sectorSizeBytes) {
  if (endSector < startSector) return "Invalid";
  const u64 sizeMiB = sectorsToMiB(endSector - startSector + 1, sectorSizeBytes);
  if (sizeMiB == 0) return "< 1 MiB";
  return format("%u MiB", static_cast<unsigned>(sizeMiB));
}

std::string dateStamp(u64 secondsSinceEpoch) {
  const auto seconds = static_cast<std::time_t>(secondsSinceEpoch);
  std::tm date{};
  ::gmtime_r(&seconds, &date);
  return format("%04d%02d%02d-%02d%02d%02d", date.tm_year + 1900, date.tm_mon + 1, date.tm_mday,
                date.tm_hour, date.tm_min, date.tm_sec);
}

}  // namespace tallowin
