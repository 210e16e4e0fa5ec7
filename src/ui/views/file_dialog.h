// The window in which a file of the host is picked.
#pragma once

#include <optional>
#include <string>

#include "ops/front_end.h"

namespace tallowin {

// Modal. The full name, or nothing when it was cancelled.
std::optional<std::string> showFileDialog(const FileChoice& choice, bool isoDates);

}  // namespace tallowin
