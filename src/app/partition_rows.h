// The rows of every list from which a partition is picked.
#pragma once

#include <string>
#include <vector>

#include "ptable/drive.h"

namespace tallowin {

// What a list knows of one entry; how it looks is the view's.
struct PartitionRow {
  PartitionId id = 0;
  bool isVolume = false;
  bool isFree = false;
  bool isInError = false;     // itself, or its chain of volumes
  bool isUnfinished = false;  // its move or resize was cut short
  u64 startSector = 0;
  std::string name;  // UTF-8
  std::string kind;  // "Partition", "Volume"
  std::string size;
  std::string type;
};

// Every entry of the top level in the order of the disk, each followed by its volumes; free blocks
// too.
std::vector<PartitionRow> partitionRows(const Drive& drive);

}  // namespace tallowin
