// FAT12, FAT16 and FAT32 for the rest of the program.
#pragma once

#include "probe/file_system_kind.h"

namespace tallowin {

void registerFat(FileSystemKinds& kinds);

}  // namespace tallowin
