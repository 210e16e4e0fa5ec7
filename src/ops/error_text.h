// The one table from failures to words. The compiler checks that each error has its sentence.
#pragma once

#include <string>

#include "base/error.h"

namespace tallowin {

// What went wrong, with the system's reason and the sector where they are known, and what to do
// next, in one or two sentences on one line. Empty for success and for cancelled, which is never
// shown. It does not say what is on the disk now.
std::string errorText(const Failure& failure);

// For a change of the partition table: errorText, and below it which table is on the disk.
std::string tableErrorText(const Failure& failure);
// "Create Failed." and "Delete failed!" with tableErrorText below.
std::string createErrorText(const Failure& failure);
std::string deleteErrorText(const Failure& failure);
// For the boot sector as a whole: what failed, with tableErrorText below.
std::string mbrErrorText(const Failure& failure);
// For formatting; empty for a stopped surface scan too, which is a success.
std::string formatErrorText(const Failure& failure);

}  // namespace tallowin
