// Changes of the chain of volumes in an extended partition.
#pragma once

#include "ptable/scheme.h"

namespace tallowin {

// Each of these has one step that makes it visible, the write of one sector: what it points at
// is on the medium before. Errors as for Drive::commit.

// Whether the disk still holds the chain that was read: read, tableChangedMeanwhile.
Failure checkChainUnchanged(const TableContext& context, const TableEntry& container);
// Puts a new volume into the chain; see Drive::commit. `volume` is a free block of the
// container; its EBR lies before its first sector by the gap that the block had.
Failure addVolume(const TableContext& context, const TableEntry& container, VolumeEntry& volume);
// The EBR at the start of the container stays, with a link only; others are unlinked.
Failure removeVolume(const TableContext& context, const TableEntry& container,
                     const VolumeEntry& volume);
// Its name and type; see Drive::changeProperties.
Failure changeVolume(const TableContext& context, const TableEntry& container,
                     const VolumeEntry& volume, const EntryProperties& wanted);

}  // namespace tallowin
