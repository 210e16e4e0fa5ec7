// Debug.txt: what long operations did, line by line.
#pragma once

#include "settings/program_folders.h"

namespace tallowin {

// Appends one line and puts it on the medium, so that it is there after a crash. A trace that
// cannot be written is left out.
[[gnu::format(printf, 2, 3)]] void traceLine(const ProgramFolders& folders, const char* pattern,
                                             ...);

}  // namespace tallowin
