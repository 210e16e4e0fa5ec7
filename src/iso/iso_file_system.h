// The files of an ISO 9660 volume.
#pragma once

#include "fs/file_system.h"
#include "probe/file_system_kind.h"

namespace tallowin {

// The `open` of the kind: see FileSystemKind. invalidVolume; accessDenied: it is to be written.
Failure openIsoFiles(const SectorRange& range, u16 type, const OpenWish& wish,
                     std::unique_ptr<FileSystem>& files);

}  // namespace tallowin
