// How disks and partitions are named in questions and summaries.
#pragma once

#include <optional>
#include <string>

#include "ptable/drive.h"

namespace tallowin {

// "ACME Disk 3000, serial 47110815, 476940 MiB, /dev/sda"; what is not known is left out.
std::string describeDisk(DiskDevice& disk);

// Two lines for a question that destroys something: the disk, and the partition with its number,
// name and size. "Disk: ...\nPartition 3 'DATA', 500 MiB".
std::string describeTarget(Drive& drive, const PartitionEntry& entry);

// "Partition" or "Volume".
const char* kindWord(const PartitionEntry& entry);

// The name of its type. Of a GPT entry whose content is not recognised it is that of its GUID.
std::string typeText(const PartitionEntry& entry);

// What is wrong with an entry or its chain of volumes, as in "overlaps its neighbour"; nothing when
// all is well.
std::optional<std::string> faultText(const PartitionEntry& entry);

// Why a sound table shows neither a partition nor free space, and what would help; empty when it
// shows something.
std::string emptyTableText(const Drive& drive);

// "%s: %s".
std::string summaryLine(const std::string& what, const std::string& value);

// The three lines that tell what a partition is.
struct EntrySummary {
  std::string name;
  std::string type;
  std::string size;
};
EntrySummary summaryOf(const Drive& drive, const PartitionEntry& entry);

}  // namespace tallowin
