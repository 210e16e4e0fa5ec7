// The first track of a disk, kept in a file while the disk has another kind of table.
#pragma once

#include <string>

#include "ptable/drive.h"
#include "ptable/mbr/boot_code.h"

namespace tallowin {

// "SAVEMBR%X.UND" for a drive.
std::string firstTrackFileName(const Drive& drive);

// Keeps the track, and at least what a conversion overwrites, at most 32 KiB, on the medium before
// it returns. A file that is there already is kept under a name with its date. read, cannotCreate:
// the older file is still there.
Failure saveFirstTrack(Drive& drive, const std::string& path);

// After a change back to an MBR: what lay behind the MBR comes back, and its boot code; disk
// signature and slots stay as they are. A file of another disk (another disk signature) restores
// nothing, and neither does a missing one. In any case an EMBR header that is left is made
// invalid, and boot code of an EMBR is replaced by `bootCode`.
// read, write: told only when something was to be written.
Failure restoreFirstTrack(Drive& drive, const std::string& path, BootCode bootCode);

}  // namespace tallowin
