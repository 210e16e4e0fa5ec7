// The rows of every list from which a partition is picked.
#pragma once

#include <string>
#include <vector>

#include "ptable/drive.h"

namespace tallowin {

// Which rows a list has, and their columns.
enum class RowMode : u32 {
  mainList = 1,      // every entry of the top level, each followed by its volumes
  tableEntries = 5,  // entries of the top level that are not free; columns as in the main list
  names = 7,         // used partitions, then used volumes, by name only
};

// Fields are separated by tabs; one that starts with 0x0F and `r` is right-aligned.
inline constexpr char kRowFormatEscape = 0x0F;
// Widths in pixels of the columns of mainList and tableEntries; the last takes the rest.
inline constexpr int kRowColumnWidths[] = {160, 55, 80};

struct PartitionRow {
  std::string text;
  PartitionId id = 0;
};

std::vector<PartitionRow> partitionRows(const Drive& drive, RowMode mode);

}  // namespace tallowin
