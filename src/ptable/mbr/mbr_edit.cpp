#include "ptable/mbr/mbr_edit.h"

#include <algorithm>

#include "probe/type_catalogue.h"
#include "ptable/mbr/boot_code.h"
#include "ptable/mbr/slot.h"
#include "ptable/scheme.h"

namespace tallowin {

void makeSlotsUsable(MbrRecord& mbr) {
  if (mbr.signature.isValid()) return;
  for (MbrSlotRecord& slot : mbr.slots) slot.clear();
  installBootCode(BootCode::standard, mbr);
}

bool mbrIsFull(const MbrRecord& mbr) {
  return std::ranges::find(mbr.slots, types::kFree, &MbrSlotRecord::type) == mbr.slots.end();
}

bool putIntoMbrSlot(const Drive& drive, PartitionEntry& entry, MbrRecord& mbr, u8 slot) {
  constexpr u32 kMoreThanSlots = 5;
  if (entry.isVolume() || !fitsSlot(0, entry.startSector, entry.endSector)) return false;
  std::size_t target = slot;
  if (slot == kNoMbrSlot) {
    MbrRecord without = mbr;
    if (entry.mbrSlot < kMbrSlots) without.slots[entry.mbrSlot].clear();
    const auto free = std::ranges::find(without.slots, types::kFree, &MbrSlotRecord::type);
    if (free == without.slots.end() && drive.table().usedSlots < kMoreThanSlots) return false;
    mbr = without;
    entry.mbrSlot = kNoMbrSlot;
    if (free == without.slots.end()) return true;
    target = static_cast<std::size_t>(free - without.slots.begin());
  }
  if (target >= kMbrSlots) return false;
  writeSlot(drive.tableContext(), 0, entry.startSector, entry.endSector,
            static_cast<u8>(entry.type), mbr.slots[target]);
  entry.mbrSlot = static_cast<u8>(target);
  return true;
}

}  // namespace tallowin
