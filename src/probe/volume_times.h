// When a volume was used, by what it has stored itself. Used by the forms of lost volumes.
#pragma once

#include "probe/volume_forms.h"

namespace tallowin {

// Seconds since 1970, 0 when it is not known. `recordByte`: of the file record of the root.
u64 ntfsUsedAt(SuspectedVolume& volume, u64 recordByte);
// The youngest file or label of the root directory, as far as its first sector says.
u64 fatUsedAt(SuspectedVolume& volume, u64 rootByte);

}  // namespace tallowin
