// ISO 9660 for the rest of the program.
#pragma once

#include "probe/file_system_kind.h"

namespace tallowin {

void registerIso(FileSystemKinds& kinds);

}  // namespace tallowin
