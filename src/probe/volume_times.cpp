#include "probe/volume_times.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "probe/content_record.h"

namespace tallowin {

u64 ntfsUsedAt(SuspectedVolume& volume, u64 recordByte) {
  constexpr u32 kStandardInformation = 0x10;
  constexpr u64 kTicksPerSecond = 10'000'000;
  constexpr u64 kSecondsFrom1601 = 11'644'473'600;
  // Behind that the last bytes of a sector stand elsewhere.
  constexpr u64 kUnchangedBytes = 510;
  const auto record = volume.at<NtfsFileRecord>(recordByte);
  if (!record || !textAt(bytesOf(*record), 0, "FILE")) return 0;
  const u64 first = record->firstAttribute;
  const auto attribute = volume.at<NtfsAttributeRecord>(recordByte + first);
  if (!attribute || attribute->type != kStandardInformation || attribute->isElsewhere != 0)
    return 0;
  const u64 content = first + attribute->contentOffset;
  if (content + sizeof(NtfsTimesRecord) > kUnchangedBytes) return 0;
  const auto times = volume.at<NtfsTimesRecord>(recordByte + content);
  if (!times) return 0;
  const u64 seconds = std::max(times->contentChanged, times->recordChanged) / kTicksPerSecond;
  return seconds > kSecondsFrom1601 ? seconds - kSecondsFrom1601 : 0;
}

u64 fatUsedAt(SuspectedVolume& volume, u64 rootByte) {
  constexpr std::size_t kEntries = 512 / sizeof(FatEntryTimeRecord);
  constexpr u8 kLongNamePart = 0x0F;
  const auto root = volume.at<std::array<FatEntryTimeRecord, kEntries>>(rootByte);
  u64 last = 0;
  for (std::size_t i = 0; root && i < kEntries && (*root)[i].first != 0; ++i) {
    const FatEntryTimeRecord& entry = (*root)[i];
    const u32 date = entry.date;
    const std::chrono::year_month_day day{std::chrono::year(1980 + static_cast<int>(date >> 9)),
                                          std::chrono::month(date >> 5 & 15),
                                          std::chrono::day(date & 31)};
    if (entry.attributes == kLongNamePart || !day.ok()) continue;
    const std::chrono::sys_seconds midnight = std::chrono::sys_days(day);
    last = std::max(last, static_cast<u64>(midnight.time_since_epoch().count()));
  }
  return last;
}

}  // namespace tallowin
