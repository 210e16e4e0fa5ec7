// The one place where the engines' codes become words for people.
#pragma once

#include <string>

#include "base/error.h"

namespace tallowin {

// Why it failed and what to do next, in one or two sentences; never empty but for `none` and
// `cancelled`. Where a number has two meanings the text covers both.
std::string explain(Failure code);

}  // namespace tallowin
