#include "ops/free_block.h"

#include <algorithm>

#include "ops/convert_flow.h"
#include "ops/table_change.h"
#include "probe/type_catalogue.h"

namespace tallowin {

PlacementTarget placementTargetOf(Drive& drive, const PartitionEntry& entry) {
  const SectorRegion region = drive.freeRegionAround(entry);
  return {{entry.startSector, entry.endSector},
          {region.first, region.last},
          drive.volumeGap(entry),
          drive.containerOf(entry) != nullptr,
          drive.alignment()};
}

std::string whyNoExtended(Drive& drive, const PartitionEntry* replaced) {
  const auto isContainer = [replaced](const auto& entry) {
    return types::isExtended(entry->mbrType) && entry.get() != replaced;
  };
  if (drive.scheme() != Scheme::mbr || std::ranges::none_of(drive.table().entries, isContainer))
    return {};
  return "This disk has an extended partition, and other programs look into one only.\n"
         "Please create a volume in that one, or delete it first.";
}

FlowResult makeRoomForPrimary(const OperationContext& context, Drive& drive,
                              PartitionEntry*& block) {
  if (drive.table().usedSlots < drive.table().slots) return {};
  const SectorExtent extent{block->startSector, block->endSector};
  const FlowResult result = offerEmbr(context, drive);
  block = findFreeBlock(drive, extent);
  if (block != nullptr) return result;
  context.ui.noticeBox("The free space is gone.\nLook at the new table and try again.");
  return {FlowEnd::refused, Error::none};
}

}  // namespace tallowin
