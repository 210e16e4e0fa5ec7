// What writers of a boot sector share.
#pragma once

#include "disk/mbr_record.h"
#include "ptable/drive.h"

namespace tallowin {

// Without a signature the slots hold nothing: they are cleared, and boot code makes them valid.
void makeSlotsUsable(MbrRecord& mbr);
// For a boot sector that has none; never 0.
u32 randomDiskSignature(Host& host);

}  // namespace tallowin
