#include "app/partition_rows.h"

#include "base/text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

PartitionRow tableRow(const Drive& drive, const PartitionEntry& entry) {
  const char* const kind = entry.isVolume() ? "Volume" : "Partition";
  const char flag = entry.isInError() ? 'E' : ' ';
  const std::string size = sizeText(entry.startSector, entry.endSector, drive.sectorSize());
  return {format(entry.isVolume() ? "    %s%s%s %c%s\x0fr%s%s %s" : "%s%s%s %c%s\x0fr%s%s %s",
                 entry.name.c_str(), "\t", kind, flag, "\t", size.c_str(), "\t",
                 types::name(entry.type).c_str()),
          entry.id};
}

std::vector<PartitionRow> nameRows(const PartitionTable& table) {
  std::vector<PartitionRow> rows;
  for (const auto& entry : table.entries)
    if (!entry->isFree() && !types::isExtended(entry->type))
      rows.push_back({entry->name, entry->id});
  for (const auto& entry : table.entries) {
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries)
      if (!volume->isFree()) rows.push_back({"(vol) " + volume->name, volume->id});
  }
  return rows;
}

}  // namespace

std::vector<PartitionRow> partitionRows(const Drive& drive, RowMode mode) {
  if (mode == RowMode::names) return nameRows(drive.table());
  const bool mainList = mode == RowMode::mainList;
  std::vector<PartitionRow> rows;
  for (const auto& entry : drive.table().entries) {
    if (mainList || !entry->isFree()) rows.push_back(tableRow(drive, *entry));
    if (!mainList || !entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries) rows.push_back(tableRow(drive, *volume));
  }
  return rows;
}

}  // namespace tallowin
