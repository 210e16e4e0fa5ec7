// What the conversions share.
#pragma once

#include "ptable/drive.h"

namespace tallowin {

// The checks that all conversions of a disk with a table begin with.
Error checkConvertible(Drive& drive, Scheme target);
// Whether a partition ends where 32 bits do not reach.
bool endsBeyondMbr(const Drive& drive);
// Whether the two sectors behind sector 0 carry an EMBR header; which of them.
std::optional<u64> findEmbrHeader(std::span<const u8> firstThreeSectors, u32 sectorSize);

}  // namespace tallowin
