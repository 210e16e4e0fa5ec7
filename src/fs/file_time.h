// The time of a file: 100-nanosecond ticks since 1601-01-01 UTC.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/types.h"

namespace tallowin {

using FileTime = u64;  // 0: unknown, or to be left as it is

inline constexpr FileTime kFileTimeTicksPerSecond = 10'000'000;
inline constexpr FileTime kFileTimeOfUnixEpoch = 0x19DB1DED53E8000;

constexpr FileTime fileTimeOfUnixSeconds(u64 seconds) {
  return kFileTimeOfUnixEpoch + seconds * kFileTimeTicksPerSecond;
}

// "2026-11-25T18:45:02Z", with a fraction where there is one; "-" for an unknown time.
std::string fileTimeText(FileTime time);
std::optional<FileTime> parseFileTime(std::string_view text);

struct FileTimes {
  FileTime created = 0;
  FileTime accessed = 0;
  FileTime modified = 0;

  friend bool operator==(const FileTimes&, const FileTimes&) = default;
};

}  // namespace tallowin
