// Changes the size of a FAT volume, its clusters, and whether it is a FAT32.
#pragma once

#include "probe/file_system_kind.h"

namespace tallowin {

// The resizeLimits, planResize and resize of the FAT kinds: see FileSystemKind. sizeNotPossible
// also where "EA DATA. SF", whose contents go by cluster numbers, would need other clusters.
Failure fatResizeLimits(const SectorRange& range, u16 type, u64 roomSectors, ResizeLimits& limits);
Failure planFatVolumeResize(const SectorRange& range, u16 type, const ResizeWish& wish,
                            ResizePlan& plan);
Failure resizeFatVolume(const SectorRange& range, u16 type, const ResizeWish& wish, Job& job,
                        ResizeReport& report);

}  // namespace tallowin
