#include "ptable/convert_common.h"

#include <algorithm>

#include "probe/type_catalogue.h"
#include "ptable/convert.h"
#include "ptable/gpt/gpt_image.h"
#include "ptable/gpt/gpt_types.h"
#include "ptable/mbr/slot.h"

namespace tallowin {
namespace {

// The sectors that a system which used the partition would have written first.
bool isEmptyAtStart(DiskDevice& disk, const PartitionEntry& entry) {
  constexpr u64 kLooked = 8;
  const u64 sectors = std::min(kLooked, entry.sectorCount());
  std::vector<u8> bytes(sectors * disk.sectorSize());
  return !disk.readSectors(entry.startSector, bytes.data(), sectors) && isAllZero(bytes);
}

}  // namespace

Failure checkConvertible(Drive& drive, Scheme target, TrackContent content) {
  if (drive.table().slots == 0 || (drive.table().status & kTableNone) != 0) return Error::noTable;
  if (const Failure failed = drive.checkChange()) return failed;
  if (drive.table().hasErrors()) return Error::tableInError;
  if (drive.gptHealth() && !drive.gptHealth()->isSound()) return Error::gptTableCheck;
  const bool keeps = content == TrackContent::keep;
  return keeps && overwrittenByTable(drive, target) ? Error::sectorsInUse : Error::none;
}

bool endsBeyondMbr(const Drive& drive) {
  return std::ranges::any_of(drive.table().entries, [](const auto& entry) {
    return !entry->isFree() && entry->endSector > kAllOnes32;
  });
}

const TableEntry* emptyReservedPartition(Drive& drive) {
  if (!drive.isGpt()) return nullptr;
  const auto found = std::ranges::find_if(drive.table().entries, [&drive](const auto& entry) {
    return !entry->isFree() && entry->typeGuid == kGptMsReserved &&
           isEmptyAtStart(drive.disk(), *entry);
  });
  return found != drive.table().entries.end() ? found->get() : nullptr;
}

std::vector<const TableEntry*> entriesToKeep(Drive& drive) {
  const TableEntry* reserved = emptyReservedPartition(drive);
  std::vector<const TableEntry*> kept;
  for (const auto& entry : drive.table().entries)
    if (!entry->isFree() && entry.get() != reserved) kept.push_back(entry.get());
  return kept;
}

u8 slotTypeOf(const Drive& drive, const PartitionEntry& entry) {
  if (!drive.isGpt()) return static_cast<u8>(entry.type);
  if (entry.mbrSlot < kMbrSlots) return static_cast<u8>(entry.mbrType);
  const u8 type = mbrTypeFor(entry.typeGuid, entry.type);
  return static_cast<u8>(drive.typeForEnd(type, entry.endSector));
}

Failure fillSlots(const Drive& drive, std::span<const TableEntry* const> entries, MbrRecord& mbr) {
  for (const bool hasSlot : {true, false}) {
    for (const TableEntry* entry : entries) {
      if ((entry->mbrSlot < kMbrSlots) != hasSlot) continue;
      const auto slot = hasSlot ? mbr.slots.begin() + entry->mbrSlot
                                : std::ranges::find(mbr.slots, types::kFree, &MbrSlotRecord::type);
      if (slot == mbr.slots.end() || slot->type != types::kFree) return Error::slotNotFree;
      if (!fitsSlot(0, entry->startSector, entry->endSector)) return Error::partitionBeyondTable;
      writeSlot(drive.tableContext(), 0, entry->startSector, entry->endSector,
                slotTypeOf(drive, *entry), *slot);
      slot->bootIndicator = entry->bootIndicator;
    }
  }
  return Error::none;
}

Failure saveSectors(DiskDevice& disk, u64 first, u64 count, SavedSectors& saved) {
  saved.first = first;
  saved.bytes.resize(count * disk.sectorSize());
  return disk.readSectors(first, saved.bytes.data(), count).as(Error::read);
}

Failure endGptBackup(DiskDevice& disk) {
  Failure failed = invalidateGptBackup(disk);
  if (!failed) failed = disk.flush();
  return failed.as(Error::writeFailedNewTable);
}

Failure undoConversion(Drive& drive, std::span<const SavedSectors> old, const Failure& failed) {
  DiskDevice& disk = drive.disk();
  const Scheme before = drive.scheme();
  for (const SavedSectors& saved : old)
    static_cast<void>(disk.writeSectors(saved.first, saved.bytes.data(),
                                        saved.bytes.size() / drive.sectorSize()));
  const Failure flushed = disk.flush();
  disk.dropCaches();
  if (flushed || drive.reread() || (drive.table().status & kTableUnreadable) != 0 ||
      drive.changesAllowed())
    return failed.as(Error::writeFailedTableUnknown);
  return failed.as(drive.scheme() == before ? Error::write : Error::writeFailedNewTable);
}

}  // namespace tallowin
