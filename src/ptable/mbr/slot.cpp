#include "ptable/mbr/slot.h"

namespace tallowin {
namespace {

u32 chsFlagsOf(u32 driveFlags) {
  if ((driveFlags & kDriveChsForceEnd) != 0) return kChsBeyondGeometry | kChsForceEnd;
  if ((driveFlags & kDriveChsEndIfTruncated) != 0) return kChsBeyondGeometry | kChsEndIfTruncated;
  return kChsBeyondGeometry;
}

std::array<u8, 3> packed(const ChsAddress& address) {
  return {address.head, static_cast<u8>(address.sector | (address.cylinder >> 8) << 6),
          static_cast<u8>(address.cylinder)};
}

}  // namespace

void readSlot(const MbrSlotRecord& slot, u64 base, PartitionEntry& entry) {
  entry.startSector = base + slot.startLba;
  entry.endSector = entry.startSector + slot.sectorCount - 1;
  entry.type = slot.type;
  entry.mbrType = slot.type;
  entry.bootIndicator = slot.bootIndicator;
  entry.endChs = slot.endChs;
}

bool holdsEntry(const MbrSlotRecord& slot, u64 base, const PartitionEntry& entry) {
  return slot.type == entry.mbrType && base + slot.startLba == entry.startSector &&
         slot.sectorCount == entry.sectorCount();
}

void writeSlot(const TableContext& context, u64 base, u64 startSector, u64 endSector, u8 type,
               MbrSlotRecord& slot) {
  const u32 chsFlags = chsFlagsOf(context.flags);
  slot.startChs = packed(lbaToChs(startSector, context.geometry, chsFlags & ~u32{kChsForceEnd}));
  slot.endChs = packed(lbaToChs(endSector, context.geometry, chsFlags));
  slot.type = type;
  slot.startLba = static_cast<u32>(startSector - base);
  slot.sectorCount = static_cast<u32>(endSector - startSector + 1);
}

bool fitsSlot(u64 base, u64 startSector, u64 endSector) {
  return base <= startSector && startSector <= endSector && startSector - base <= kAllOnes32 &&
         endSector - startSector < kAllOnes32;
}

}  // namespace tallowin
