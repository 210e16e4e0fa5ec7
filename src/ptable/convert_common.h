// What the conversions share.
#pragma once

#include <span>

#include "ptable/drive.h"

namespace tallowin {

// The checks that all conversions of a disk with a table begin with.
Failure checkConvertible(Drive& drive, Scheme target, TrackContent content);
// Whether a partition ends where 32 bits do not reach.
bool endsBeyondMbr(const Drive& drive);
// A write failed: the first sectors come back as far as the disk allows, and the disk is asked
// which table it has. write, writeFailedNewTable, writeFailedTableUnknown.
Failure undoConversion(Drive& drive, std::span<const u8> oldFirstSectors);

}  // namespace tallowin
