#include "app/partition_rows.h"

#include "base/text.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

PartitionRow rowOf(const Drive& drive, const PartitionEntry& entry) {
  return {.id = entry.id,
          .isVolume = entry.isVolume(),
          .isFree = entry.isFree(),
          .isInError = faultText(entry).has_value(),
          .isUnfinished = drive.isUnfinished(entry),
          .startSector = entry.startSector,
          .name = entry.name,
          .kind = kindWord(entry),
          .size = sizeText(entry.startSector, entry.endSector, drive.sectorSize()),
          .type = typeText(entry)};
}

}  // namespace

std::vector<PartitionRow> partitionRows(const Drive& drive) {
  std::vector<PartitionRow> rows;
  for (const auto& entry : drive.table().entries) {
    rows.push_back(rowOf(drive, *entry));
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries) rows.push_back(rowOf(drive, *volume));
  }
  return rows;
}

}  // namespace tallowin
