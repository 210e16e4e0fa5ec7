// Format: a new, empty file system in an existing partition, or on a whole disk.
#pragma once

#include <optional>
#include <string>

#include "ops/file_systems.h"
#include "ops/operation_context.h"

namespace tallowin {

struct FormatOptions {
  bool surfaceScan = true;
  // The label; without one the partition's own name.
  std::optional<std::string> label = {};
  // What the partition is to hold, and to be; when the table says another type, it is changed
  // first. Without a kind the type decides, and without a type the partition's own.
  const FileSystemKind* kind = nullptr;
  std::optional<u16> type = {};
};

// Runs the Format dialog (not for the types that always take the automatic cluster size), asks,
// formats, and shows the summary.
// refused: mounted, in use, or not formattable; nothing was written. cancelled, failed: what was
// written was told. doneWithLosses: the scan found bad clusters. The entry stays valid unless its
// type was changed.
FlowResult formatFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry,
                      const FormatOptions& options = {});

// The same for a disk that is to hold one volume and no table. It must have no partitions; what
// else lies on it is given up only after insisting. The drive is read again when it was changed.
FlowResult formatWholeFlow(const OperationContext& context, Drive& drive,
                           const FormatOptions& options = {});

}  // namespace tallowin
