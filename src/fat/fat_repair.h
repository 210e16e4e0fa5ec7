// The `check` and the `repair` of the FAT kinds: see FileSystemKind.
#pragma once

#include "probe/file_system_kind.h"

namespace tallowin {

// Looks at what a check of the structures leaves out, too: the copy of the boot sector, FSInfo and
// the marks of a volume that is in use. The number of the fault is that of FatFault.
Failure checkFatVolume(const SectorRange& range, u16 type, Job& job, CheckReport& report);

// Each mend is written and flushed before the next one is looked for.
Failure repairFatVolume(const SectorRange& range, u16 type, const RepairWish& wish, Job& job,
                        RepairReport& report);

}  // namespace tallowin
