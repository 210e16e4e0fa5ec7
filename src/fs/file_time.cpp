#include "fs/file_time.h"

#include <ctime>

#include "base/text.h"

namespace tallowin {
namespace {

constexpr std::size_t kDigitsOfTicks = 7;
constexpr std::size_t kWithoutFraction = 19;

// Digits [from, from + count) of the text; nothing when one is none.
std::optional<int> digits(std::string_view text, std::size_t from, std::size_t count) {
  int value = 0;
  for (const char c : text.substr(from, count)) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

// ".0123456" or less of it.
std::optional<FileTime> ticksOf(std::string_view fraction) {
  if (fraction.empty()) return 0;
  if (fraction[0] != '.' || fraction.size() < 2 || fraction.size() > 1 + kDigitsOfTicks)
    return std::nullopt;
  std::string ticks(fraction.substr(1));
  ticks.resize(kDigitsOfTicks, '0');
  const std::optional<int> value = digits(ticks, 0, kDigitsOfTicks);
  return value ? std::optional(static_cast<FileTime>(*value)) : std::nullopt;
}

}  // namespace

std::string fileTimeText(FileTime time) {
  if (time == 0) return "-";
  const auto secondsSince1601 = static_cast<i64>(time / kFileTimeTicksPerSecond);
  const auto epoch = static_cast<i64>(kFileTimeOfUnixEpoch / kFileTimeTicksPerSecond);
  const std::time_t seconds = secondsSince1601 - epoch;
  std::tm utc = {};
  if (::gmtime_r(&seconds, &utc) == nullptr) return "-";
  std::string text = format("%04d-%02d-%02dT%02d:%02d:%02d", utc.tm_year + 1900, utc.tm_mon + 1,
                            utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
  const auto ticks = static_cast<unsigned>(time % kFileTimeTicksPerSecond);
  if (ticks != 0) {
    text += format(".%07u", ticks);
    while (text.ends_with('0')) text.pop_back();
  }
  return text + "Z";
}

std::optional<FileTime> parseFileTime(std::string_view text) {
  if (text == "-") return 0;
  if (text.size() <= kWithoutFraction || !text.ends_with('Z')) return std::nullopt;
  text.remove_suffix(1);
  constexpr std::string_view kPattern = "dddd-dd-ddTdd:dd:dd";
  for (std::size_t i = 0; i < kPattern.size(); ++i)
    if (kPattern[i] != 'd' && text[i] != kPattern[i]) return std::nullopt;
  const auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
  const auto hour = digits(text, 11, 2), minute = digits(text, 14, 2), second = digits(text, 17, 2);
  const std::optional<FileTime> ticks = ticksOf(text.substr(kWithoutFraction));
  if (!year || !month || !day || !hour || !minute || !second || !ticks) return std::nullopt;
  std::tm utc = {};
  utc.tm_year = *year - 1900;
  utc.tm_mon = *month - 1;
  utc.tm_mday = *day;
  utc.tm_hour = *hour;
  utc.tm_min = *minute;
  utc.tm_sec = *second;
  const auto epoch = static_cast<i64>(kFileTimeOfUnixEpoch / kFileTimeTicksPerSecond);
  const i64 seconds = ::timegm(&utc) + epoch;
  if (seconds < 0) return std::nullopt;
  return static_cast<FileTime>(seconds) * kFileTimeTicksPerSecond + *ticks;
}

}  // namespace tallowin
