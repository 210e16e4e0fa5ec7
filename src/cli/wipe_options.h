// How the commands name the methods of a wipe.
#pragma once

#include <optional>
#include <string_view>

#include "ops/wipe_operation.h"

namespace tallowin {

inline constexpr const char* kWipePatternForm =
    "a pattern: zero, random1, random4, mfm, rll17, rll27, gutmann";

inline std::optional<WipeMethodChoice> parseWipePattern(std::string_view word) {
  for (const WipeMethod& method : wipeMethods())
    if (method.word == word) return WipeMethodChoice{method.type, {}, false};
  return std::nullopt;
}

}  // namespace tallowin
