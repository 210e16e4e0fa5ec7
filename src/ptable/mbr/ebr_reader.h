// The chain of extended boot records in an extended partition.
#pragma once

#include <memory>

#include "disk/mbr_record.h"
#include "ptable/scheme.h"

namespace tallowin {

// Which of the first two slots of an EBR is which; 0 or 1.
std::size_t volumeSlotOf(const EbrRecord& ebr);
std::size_t linkSlotOf(const EbrRecord& ebr);

// An extended partition with room for a chain.
bool mayHoldVolumes(const TableEntry& entry);

// Reads the volumes of `container`, an extended partition of the table, into its list, sorted by
// EBR position. Each EBR is read once. Nothing is ever an error: see VolumeListStatus.
void readVolumes(const TableContext& context, TableEntry& container);

}  // namespace tallowin
