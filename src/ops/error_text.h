// Error codes as words for the user. Every code has a text but success and cancelled, which are
// never shown.
#pragma once

#include <string>

#include "base/error.h"

namespace tallowin {

// What happened to the partition table, in one or two sentences.
std::string tableErrorText(Failure error);
// "Create Failed." and "Delete failed!" with the reason below.
std::string createErrorText(Failure error);
std::string deleteErrorText(Failure error);
// For the boot sector as a whole: what failed, with the reason below.
std::string mbrErrorText(Failure error);

// For the codes of formatting; a stopped surface scan is a success.
std::string formatErrorText(Failure error);

}  // namespace tallowin
