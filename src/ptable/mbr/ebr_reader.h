// The chain of extended boot records in an extended partition.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "disk/mbr_record.h"
#include "ptable/scheme.h"

namespace tallowin {

// What the slots of an EBR hold. Either may lie in any of the four.
struct EbrSlots {
  std::vector<std::size_t> volumes;
  std::optional<std::size_t> link;
  // At most one volume and one link, and no slot whose meaning is not known. Only of such an EBR is
  // it certain what a change of it leaves.
  bool isClear = true;
};
EbrSlots slotsOf(const EbrRecord& ebr);

// An extended partition with room for a chain.
bool mayHoldVolumes(const TableEntry& entry);

// Reads the volumes of `container`, an extended partition of the table, into its list, sorted by
// EBR position. Each EBR is read once. Nothing is ever an error: see VolumeListStatus.
void readVolumes(const TableContext& context, TableEntry& container);

}  // namespace tallowin
