// Paths as text. Inside a partition '/' and '\' both separate; composed paths use '/'.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"

namespace tallowin {

// What follows the last separator; nothing when the path ends with one.
std::optional<std::string_view> fileNamePart(std::string_view path);

// The components between the separators, without empty ones.
std::vector<std::string_view> splitPath(std::string_view path);

// Adds the component, and a separator before it where one is needed. False, and the path
// unchanged, when it would be longer than `maxLength`.
[[nodiscard]] bool appendPath(std::string& path, std::string_view component,
                              std::size_t maxLength = std::string::npos);

// Cuts the last component and the separator before it; a leading separator stays.
void stripLastComponent(std::string& path);

// True for an empty path too.
bool endsWithSeparator(std::string_view path);

}  // namespace tallowin
