// Changes of the chain of volumes in an extended partition.
#pragma once

#include "ptable/scheme.h"

namespace tallowin {

// Each of these has one step that makes it visible, the write of one sector: what it points at
// is on the medium before. Errors as for Drive::add.

// Whether the disk still holds the chain that was read: read, tableChangedMeanwhile. The changes
// below are for a chain of which that is known.
Failure checkChainUnchanged(const TableContext& context, const TableEntry& container);
// Writes an EBR without a volume and without a link, unless the entry keeps its chain; the flush is
// left to who leads to it. A new extended partition begins with one, for other programs refuse a
// disk where it lacks.
Failure putFirstEbr(DiskDevice& disk, const NewEntry& entry);
// Puts a new volume into the chain; see Drive::add. The low byte of its id goes to the disk.
Failure addVolume(const TableContext& context, const TableEntry& container, const NewEntry& entry);
// The EBR at the start of the container stays, with a link only; others are unlinked. tableInError:
// its EBR, or the one that leads to it, holds something beside that is not understood, or lies in
// the sectors of another volume.
Failure removeVolume(const TableContext& context, const TableEntry& container,
                     const VolumeEntry& volume);
// See Drive::refreshChain and Drive::truncateChain.
Failure refreshChs(const TableContext& context, const TableEntry& container);
Failure endChain(const TableContext& context, const TableEntry& container);
// Its name, type and end; see Drive::changeProperties.
Failure changeVolume(const TableContext& context, const TableEntry& container,
                     const VolumeEntry& volume, const EntryProperties& wanted);

// What is to be known before the sectors of a volume move: fills `move.volume`. tableInError: its
// EBR, or the one that leads to it, holds something that is not understood, or lies in the sectors
// of another volume; read.
Failure planVolume(const TableContext& context, const TableEntry& container,
                   const VolumeEntry& volume, EntryMove& move);
// See Drive::finishMove. The chain was right when the move was planned; since then the volume's own
// EBR may have been overwritten.
Failure moveVolume(const TableContext& context, const EntryMove& move);

}  // namespace tallowin
