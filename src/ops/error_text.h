// Error codes as words for the user. Every code has a text but success and cancelled, which are
// never shown.
#pragma once

#include <string>

#include "base/error.h"

namespace tallowin {

// What happened to the partition table, in one or two sentences.
std::string tableErrorText(Error error);
// "Create Failed." and "Delete failed!" with the reason below.
std::string createErrorText(Error error);
std::string deleteErrorText(Error error);
// For the boot sector as a whole: what failed, with the reason below.
std::string mbrErrorText(Error error);

// For the codes of formatting; a stopped surface scan is a success.
std::string formatErrorText(Error error);

}  // namespace tallowin
