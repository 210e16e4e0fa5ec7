#include "fat/fat_time.h"

#include <algorithm>
#include <ctime>

namespace tallowin {
namespace {

struct DosTime {
  u16 date = 0;
  u16 time = 0;
  u8 hundredths = 0;  // beside the even second
};

constexpr FileTime kTicksPerHundredth = kFileTimeTicksPerSecond / 100;
constexpr DosTime kEarliest{0x0021, 0, 0};       // 1980-01-01
constexpr DosTime kLatest{0xFF9F, 0xBF7D, 199};  // 2107-12-31 23:59:58

DosTime dosTimeOf(FileTime time) {
  if (time < kFileTimeOfUnixEpoch) return kEarliest;
  const FileTime ticks = time - kFileTimeOfUnixEpoch;
  const auto seconds = static_cast<std::time_t>(ticks / kFileTimeTicksPerSecond);
  std::tm local = {};
  if (::localtime_r(&seconds, &local) == nullptr || local.tm_year > 207) return kLatest;
  if (local.tm_year < 80) return kEarliest;
  const int second = std::min(local.tm_sec, 59);  // a leap second has no place
  return {static_cast<u16>((local.tm_year - 80) << 9 | (local.tm_mon + 1) << 5 | local.tm_mday),
          static_cast<u16>(local.tm_hour << 11 | local.tm_min << 5 | second / 2),
          static_cast<u8>(static_cast<u64>(second % 2) * 100 +
                          ticks % kFileTimeTicksPerSecond / kTicksPerHundredth)};
}

// As mktime(3), which looks at the file of the time zone each time: several times a file are too
// often.
std::time_t secondsOf(std::tm& local) {
  const std::time_t asIfUtc = ::timegm(&local);
  std::time_t seconds = asIfUtc;
  // The difference to UTC is that of the time itself, which the first round comes near.
  for (int round = 0; round < 2; ++round) {
    std::tm there = {};
    if (::localtime_r(&seconds, &there) == nullptr) return -1;
    seconds = asIfUtc - there.tm_gmtoff;
  }
  return seconds;
}

FileTime fileTimeOf(const DosTime& dos) {
  std::tm local = {};
  local.tm_year = (dos.date >> 9) + 80;
  local.tm_mon = (dos.date >> 5 & 0xF) - 1;
  local.tm_mday = dos.date & 0x1F;
  local.tm_hour = dos.time >> 11;
  local.tm_min = dos.time >> 5 & 0x3F;
  local.tm_sec = (dos.time & 0x1F) * 2;
  if (local.tm_mon < 0 || local.tm_mon > 11 || local.tm_mday == 0 || local.tm_hour > 23 ||
      local.tm_min > 59 || local.tm_sec > 59)
    return 0;
  const std::time_t seconds = secondsOf(local);
  if (seconds < 0) return 0;
  return fileTimeOfUnixSeconds(static_cast<u64>(seconds)) +
         std::min<u64>(dos.hundredths, 199) * kTicksPerHundredth;
}

}  // namespace

FileTimes fatTimesOf(const FatDirectoryEntryRecord& entry) {
  return {fileTimeOf({entry.createdDate, entry.createdTime, entry.createdHundredths}),
          fileTimeOf({entry.accessedDate, 0, 0}),
          fileTimeOf({entry.modifiedDate, entry.modifiedTime, 0})};
}

void setFatTimes(FatDirectoryEntryRecord& entry, const FileTimes& times) {
  if (times.created != 0) {
    const DosTime dos = dosTimeOf(times.created);
    entry.createdDate = dos.date;
    entry.createdTime = dos.time;
    entry.createdHundredths = dos.hundredths;
  }
  if (times.accessed != 0) entry.accessedDate = dosTimeOf(times.accessed).date;
  if (times.modified != 0) {
    const DosTime dos = dosTimeOf(times.modified);
    entry.modifiedDate = dos.date;
    entry.modifiedTime = dos.time;
  }
}

}  // namespace tallowin
