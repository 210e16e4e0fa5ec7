// BOOTSECT.DOS: the boot sector that a boot loader of Windows keeps of an older system, as a file.
#pragma once

#include "boot/boot_fix.h"
#include "ops/file_systems.h"

namespace tallowin {

inline constexpr const char* kBootsectDos = "/BOOTSECT.DOS";

// Puts what `move` says of the place of the volume into the file, when the root of a FAT volume has
// one that is a boot sector. Nothing to do is no failure; all is on the medium then. Failures of
// the file system's driver: the file is as before, or half changed.
Failure fixBootsectDos(const FileSystemKind& kind, const SectorRange& range, const BootMove& move,
                       u32 codePage);

}  // namespace tallowin
