// The rows of a table one after the other, and its sectors changed behind its back.
#pragma once

#include <functional>
#include <vector>

#include "base/bytes.h"
#include "disk/memory_disk.h"
#include "ptable/drive.h"

namespace tallowin {

// Volumes behind their extended partition.
inline std::vector<PartitionEntry*> entriesOf(const Drive& drive) {
  std::vector<PartitionEntry*> all;
  for (const auto& entry : drive.table().entries) {
    all.push_back(entry.get());
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries) all.push_back(volume.get());
  }
  return all;
}

// What another program does to a record that begins a sector.
template <DiskRecord Record>
void editSector(MemoryDisk& disk, u64 lba, const std::function<void(Record&)>& change) {
  std::vector<u8> sector = disk.sector(lba);
  change(*recordAt<Record>(std::span(sector)));
  disk.setSector(lba, sector);
}

}  // namespace tallowin
