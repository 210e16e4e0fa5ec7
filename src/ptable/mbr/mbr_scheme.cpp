#include "ptable/mbr/mbr_scheme.h"

#include <algorithm>

#include "base/text.h"
#include "disk/disk_handles.h"
#include "probe/disk_content.h"
#include "probe/type_catalogue.h"
#include "ptable/mbr/boot_code.h"
#include "ptable/mbr/ebr_writer.h"
#include "ptable/mbr/mbr_edit.h"
#include "ptable/mbr/slot.h"
#include "ptable/sector_swap.h"
#include "ptable/track_content.h"

namespace tallowin {
namespace {

constexpr u64 kMbrLba = 0;

const TableEntry* entryOfSlot(const PartitionTable& table, std::size_t slot) {
  const auto found = std::ranges::find_if(table.entries, [slot](const auto& entry) {
    return !entry->isFree() && entry->tableIndex == static_cast<i32>(slot);
  });
  return found != table.entries.end() ? found->get() : nullptr;
}

bool isRoomFree(const TableContext& context, const MbrRecord& mbr, const NewEntry& entry) {
  if (entry.startSector == 0 || entry.endSector > context.lastLba) return false;
  return std::ranges::none_of(mbr.slots, [&](const MbrSlotRecord& slot) {
    return slot.startLba <= entry.endSector &&
           entry.startSector < u64{slot.startLba} + slot.sectorCount;
  });
}

// The slot that holds an entry which was read from it; null when it holds something else now.
MbrSlotRecord* slotOf(MbrRecord& mbr, const TableEntry& entry) {
  if (entry.tableIndex < 0 || entry.tableIndex >= static_cast<i32>(kMbrSlots)) return nullptr;
  MbrSlotRecord& slot = mbr.slots[static_cast<std::size_t>(entry.tableIndex)];
  return holdsEntry(slot, 0, entry) ? &slot : nullptr;
}

}  // namespace

void chooseBootIndicator(const TableContext& context, MbrRecord& mbr, MbrSlotRecord& slot) {
  const auto marked = std::ranges::find_if(
      mbr.slots, [](const MbrSlotRecord& other) { return other.bootIndicator != 0; });
  if (marked != mbr.slots.end()) {
    marked->bootIndicator = kBootActive;
  } else if (context.biosNumber == kFirstBiosDisk) {
    slot.bootIndicator = kBootActive;
  }
}

void markActive(MbrRecord& mbr, MbrSlotRecord& slot, bool active) {
  if (active)
    for (MbrSlotRecord& other : mbr.slots) other.bootIndicator = 0;
  slot.bootIndicator = active ? kBootActive : u8{0};
}

bool MbrScheme::read(const TableContext& context, std::span<const u8> track,
                     TableReading& reading) const {
  const MbrRecord& mbr = *recordAt<MbrRecord>(track);
  reading.table.slots = kMbrSlots;
  reading.diskSignature = mbr.diskSignature;
  if (!mbr.signature.isValid()) return true;
  for (std::size_t slot = 0; slot < kMbrSlots; ++slot) {
    if (mbr.slots[slot].isFree()) continue;
    auto entry = std::make_unique<TableEntry>();
    readSlot(mbr.slots[slot], 0, *entry);
    if (entry->type == types::kFree) {
      entry->type = types::kUntyped;
      entry->status |= kEntryUnclear;
    }
    entry->tableIndex = static_cast<i32>(slot);
    entry->mbrSlot = static_cast<u8>(slot);
    entry->id = unusedId(reading.table, static_cast<PartitionId>(slot + 1));
    const std::string label = context.labelOf(*entry);
    entry->setName(!label.empty() ? label : placeholderName(slot));
    ++reading.table.usedSlots;
    insertSorted(reading.table, std::move(entry));
  }
  return true;
}

Failure MbrScheme::checkUnchanged(const TableContext& context, const PartitionTable& table) const {
  TableSectorImage image(context.disk, kMbrLba);
  if (const Failure error = image.load(); error != Error::none) return error;
  const auto& mbr = image.as<MbrRecord>();
  if (!mbr.signature.isValid())
    return table.usedSlots == 0 ? Error::none : Error::tableChangedMeanwhile;
  for (std::size_t slot = 0; slot < kMbrSlots; ++slot) {
    const TableEntry* entry = entryOfSlot(table, slot);
    const bool same =
        entry == nullptr ? mbr.slots[slot].isFree() : holdsEntry(mbr.slots[slot], 0, *entry);
    if (!same) return Error::tableChangedMeanwhile;
  }
  return Error::none;
}

Failure MbrScheme::add(const TableContext& context, const NewEntry& entry,
                       TrackContent content) const {
  TableSectorImage image(context.disk, kMbrLba);
  if (const Failure error = image.load(); error != Error::none) return error;
  auto& mbr = image.as<MbrRecord>();
  const bool holdsNothing =
      !mbr.signature.isValid() || std::ranges::all_of(mbr.slots, &MbrSlotRecord::isFree);
  if (holdsNothing && content == TrackContent::keep && namedDiskContent(context.disk))
    return Error::sectorsInUse;
  if (content == TrackContent::keep &&
      namedLoaderContent(context.disk, entry.startSector, entry.endSector))
    return Error::sectorsInUse;
  if (!mbr.signature.isValid()) {
    // The drive may have its signature from there already, so it outlasts the rest.
    const u32 diskSignature = mbr.diskSignature;
    std::ranges::fill(image.bytes(), u8{0});
    mbr.diskSignature = diskSignature != 0 ? diskSignature : randomDiskSignature(context.host);
  }
  if (!fitsSlot(0, entry.startSector, entry.endSector) || !isRoomFree(context, mbr, entry))
    return Error::outsideUsableArea;
  const auto slot = std::ranges::find_if(mbr.slots, &MbrSlotRecord::isFree);
  if (slot == mbr.slots.end()) return Error::noFreeEntry;
  if (mbr.bootCode[0] == 0) installBootCode(BootCode::standard, mbr);
  if (types::isExtended(entry.type)) {
    // What a boot loader starts is never an extended partition.
    slot->clear();
    if (const Failure failed = putFirstEbr(context.disk, entry)) return failed;
  } else {
    chooseBootIndicator(context, mbr, *slot);
  }
  writeSlot(context, 0, entry.startSector, entry.endSector, static_cast<u8>(entry.type), *slot);
  mbr.signature.set();
  return image.store();
}

Failure MbrScheme::remove(const TableContext& context, const TableEntry& entry) const {
  TableSectorImage image(context.disk, kMbrLba);
  if (const Failure error = image.load(); error != Error::none) return error;
  MbrSlotRecord* slot = slotOf(image.as<MbrRecord>(), entry);
  if (slot == nullptr) return Error::tableChangedMeanwhile;
  slot->clear();
  return image.store();
}

Failure MbrScheme::changeProperties(const TableContext& context, const TableEntry& entry,
                                    const EntryProperties& wanted) const {
  if (wanted.name || wanted.typeGuid || wanted.attributes) return Error::unsupportedForm;
  TableSectorImage image(context.disk, kMbrLba);
  if (const Failure error = image.load(); error != Error::none) return error;
  auto& mbr = image.as<MbrRecord>();
  MbrSlotRecord* slot = slotOf(mbr, entry);
  if (slot == nullptr) return Error::tableChangedMeanwhile;
  if (wanted.type) slot->type = static_cast<u8>(*wanted.type);
  if (wanted.endSector) {
    if (!fitsSlot(0, entry.startSector, *wanted.endSector)) return Error::outsideUsableArea;
    writeSlot(context, 0, entry.startSector, *wanted.endSector, slot->type, *slot);
  }
  if (wanted.active) markActive(mbr, *slot, *wanted.active);
  return image.store();
}

Failure MbrScheme::move(const TableContext& context, const TableEntry& entry,
                        const EntryMove& move) const {
  TableSectorImage image(context.disk, kMbrLba);
  if (const Failure error = image.load(); error != Error::none) return error;
  MbrSlotRecord* slot = slotOf(image.as<MbrRecord>(), entry);
  if (slot == nullptr) return Error::tableChangedMeanwhile;
  writeSlot(context, 0, move.newStart, move.newEnd(), move.type, *slot);
  return image.store();
}

}  // namespace tallowin
