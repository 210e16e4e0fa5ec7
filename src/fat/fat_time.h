// Dates and times of directory entries, which are local time.
#pragma once

#include "fat/fat_record.h"
#include "fs/file_time.h"

namespace tallowin {

// A date of 0 is none, and so is one that no calendar has.
FileTimes fatTimesOf(const FatDirectoryEntryRecord& entry);
// A time of 0 leaves its fields; what lies before 1980 or behind 2107 becomes the nearest.
void setFatTimes(FatDirectoryEntryRecord& entry, const FileTimes& times);

}  // namespace tallowin
