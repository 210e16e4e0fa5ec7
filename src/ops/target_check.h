// The checks before a part of a disk is changed.
#pragma once

#include <optional>
#include <string>

#include "disk/mount_check.h"
#include "ops/operation_context.h"
#include "ops/placement.h"
#include "ptable/drive.h"

namespace tallowin {

// What is in the way, and what to do about it.
std::string useText(const DiskUse& use);

// Nothing when no sector of the extent is in use by this machine; else refused, and told.
std::optional<FlowResult> refuseWhenInUse(const OperationContext& context, Drive& drive,
                                          const SectorExtent& extent);

// The same for the disk as a whole.
std::optional<FlowResult> refuseWhenDriveInUse(const OperationContext& context, Drive& drive);

// Nothing when the disk can be written to; else refused, and told.
std::optional<FlowResult> refuseWhenReadOnlyDisk(const OperationContext& context, Drive& drive);

// Nothing when the disk and its table may be changed; else refused, and told.
std::optional<FlowResult> refuseWhenReadOnlyTable(const OperationContext& context, Drive& drive);

// Asks before a primary that holds the boot manager is changed. Nothing: go on.
std::optional<FlowResult> askAboutBootManager(const OperationContext& context, Drive& drive,
                                              const PartitionEntry& entry);

}  // namespace tallowin
