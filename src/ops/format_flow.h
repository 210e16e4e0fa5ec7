// Format: a new, empty file system in an existing partition.
#pragma once

#include <optional>
#include <string>

#include "fat/fat_volume.h"
#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

enum class FormatMode {
  fromList,    // with the boot-manager check and the erase question
  afterCreate  // without them
};

using FormatKind = FatKind;

struct FormatOptions {
  FormatMode mode = FormatMode::fromList;
  bool surfaceScan = true;
  // The label; without one the partition's name.
  std::optional<std::string> label = {};
  // What the partition is to be; when the table says another type, it is changed first. Without it
  // the partition's type decides.
  std::optional<u16> type = {};
};

// Why a partition of this type cannot be formatted; empty when it can.
std::string whyNotFormattable(u16 type);

// Whether volumes of this type take no other cluster size than the automatic one.
bool takesAutomaticClusters(u16 type);

// The type that a partition needs for `kind`: the present one when it fits.
u16 typeForKind(const Drive& drive, const PartitionEntry& entry, FormatKind kind);

// Runs the Format dialog (not for the types that always take the automatic cluster size), asks,
// formats, and shows the summary.
// refused: mounted, in use, or not formattable; nothing was written. failed: the partition keeps
// what was written before. The entry stays valid unless its type was changed.
FlowResult formatFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry,
                      const FormatOptions& options = {});

}  // namespace tallowin
