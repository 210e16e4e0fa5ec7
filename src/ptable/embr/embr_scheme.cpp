#include "ptable/embr/embr_scheme.h"

#include <algorithm>

#include "base/text.h"
#include "probe/type_catalogue.h"
#include "ptable/mbr/ebr_writer.h"
#include "ptable/mbr/mbr_edit.h"
#include "ptable/mbr/mbr_scheme.h"
#include "ptable/mbr/slot.h"
#include "ptable/sector_swap.h"
#include "ptable/track_content.h"

namespace tallowin {
namespace {

// A partition of the MPT, whose flags say more of it.
class EmbrEntry : public TableEntry {
 public:
  bool holdsBootManager() const override { return (attributes & kMptManager) != 0; }
  bool isMultiOs() const override { return (attributes & kMptMultiOs) != 0; }
};

std::string nameOf(const MptEntryRecord& record) {
  const auto* end = std::find(std::begin(record.name), std::end(record.name), '\0');
  return {std::begin(record.name), end};
}

bool holdsExtent(const MbrSlotRecord& slot, u64 first, u64 last) {
  return slot.type != types::kFree && slot.startLba == first &&
         u64{slot.startLba} + slot.sectorCount == last + 1;
}

MbrSlotRecord* slotOf(MbrRecord& mbr, const MptEntryRecord& record) {
  if (!mbr.signature.isValid()) return nullptr;
  const auto found = std::ranges::find_if(mbr.slots, [&](const MbrSlotRecord& slot) {
    return holdsExtent(slot, record.firstLba, record.lastLba);
  });
  return found != mbr.slots.end() ? &*found : nullptr;
}

MbrRecord& mbrIn(EmbrImage& image) { return *recordAt<MbrRecord>(image.mbr()); }

bool isSame(const MptEntryRecord& record, const PartitionEntry& entry) {
  return record.firstLba == entry.startSector && record.lastLba == entry.endSector &&
         record.type == entry.type && record.flags == entry.attributes;
}

// The record that an entry was read from; null when the disk holds something else now.
MptEntryRecord* recordOf(EmbrImage& image, const PartitionEntry& entry) {
  if (entry.tableIndex < 0 || static_cast<u32>(entry.tableIndex) >= image.entryCount())
    return nullptr;
  MptEntryRecord& record = image.entry(static_cast<u32>(entry.tableIndex));
  return isSame(record, entry) ? &record : nullptr;
}

Failure load(DiskDevice& disk, EmbrImage& image) {
  const Failure failed = EmbrImage::read(disk, image);
  if (failed == Error::notThisFormat) return Error::tableChangedMeanwhile;
  return failed ? failed.as(Error::read) : failed;
}

// Which of the two is on the disk after a write failed.
Failure outcome(DiskDevice& disk, const EmbrImage& old, const EmbrImage& image,
                const Failure& failed) {
  disk.dropCaches();
  EmbrImage found;
  if (disk.flush() != Error::none || EmbrImage::read(disk, found) != Error::none)
    return failed.as(Error::writeFailedTableUnknown);
  if (found.holdsSameTable(old)) return failed.as(Error::write);
  return failed.as(found.holdsSameTable(image) ? Error::writeFailedNewTable
                                               : Error::writeFailedTableUnknown);
}

// With the sectors that a new table grew over.
bool putBack(DiskDevice& disk, const EmbrImage& old, const EmbrImage& image) {
  const u32 end = std::max(old.endSector(), image.endSector());
  const auto sectors = old.firstSectors(end).subspan(disk.sectorSize());
  return disk.writeSectors(1, sectors.data(), sectors.size() / disk.sectorSize()) == Error::none &&
         disk.flush() == Error::none;
}

Failure storeEmbr(DiskDevice& disk, const EmbrImage& old, EmbrImage& image) {
  if (const Failure failed = disk.flush()) return failed.as(Error::write);
  const Failure failed = image.writeBehindMbr(disk);
  if (!failed) return {};
  return putBack(disk, old, image) ? failed.as(Error::write) : outcome(disk, old, image, failed);
}

Failure storeMbr(DiskDevice& disk, EmbrImage& image) {
  TableSectorImage sector(disk, 0);
  if (const Failure error = sector.load(); error != Error::none) return error;
  if (std::ranges::equal(sector.bytes(), image.mbr())) return Error::none;
  std::ranges::copy(image.mbr(), sector.bytes().begin());
  return sector.store();
}

// The EMBR is the table, so it is written first: a partition that lacks its slot is still there.
// With limited primaries it would be gone at the next start, so the old table comes back where the
// slots cannot follow.
Failure storeEmbrFirst(DiskDevice& disk, const EmbrImage& old, EmbrImage& image) {
  if (const Failure error = storeEmbr(disk, old, image); error != Error::none) return error;
  const Failure slots = storeMbr(disk, image);
  if (slots == Error::none) return slots;
  const bool oldSlotsStand = slots == Error::read || slots == Error::write;
  if (!oldSlotsStand) return slots.as(Error::writeFailedNewTable);
  return putBack(disk, old, image) ? slots : outcome(disk, old, image, slots);
}

// A slot that outlives its entry would bring the partition back at the next start.
Failure storeMbrFirst(DiskDevice& disk, const EmbrImage& old, EmbrImage& image) {
  if (const Failure error = storeMbr(disk, image); error != Error::none)
    return error == Error::writeFailedNewTable ? error.as(Error::writeFailedTableUnknown) : error;
  const Failure error = storeEmbr(disk, old, image);
  if (error != Error::write) return error;
  EmbrImage back = old;
  return error.as(storeMbr(disk, back) == Error::none ? Error::write
                                                      : Error::writeFailedTableUnknown);
}

// A slot that names sectors of which the EMBR knows nothing: another program made a partition.
bool isForeign(const EmbrImage& image, const MbrSlotRecord& slot) {
  constexpr u8 kRebuildMark = 0x44;
  if (slot.sectorCount == 0 || slot.type == types::kGptReserved || slot.type == kRebuildMark)
    return false;
  for (u32 i = 0; i < image.entryCount(); ++i)
    if (holdsExtent(slot, image.entry(i).firstLba, image.entry(i).lastLba)) return false;
  return true;
}

void addForeignSlots(const EmbrImage& image, const MbrRecord& mbr, TableReading& reading) {
  if (!mbr.signature.isValid()) return;
  for (std::size_t i = 0; i < kMbrSlots; ++i) {
    if (!isForeign(image, mbr.slots[i])) continue;
    auto entry = std::make_unique<EmbrEntry>();
    readSlot(mbr.slots[i], 0, *entry);
    if (entry->type == types::kFree) entry->type = types::kUntyped;
    entry->status |= kEntryForeign;
    entry->mbrSlot = static_cast<u8>(i);
    entry->id = unusedId(reading.table, static_cast<PartitionId>(i + 1));
    entry->setName(placeholderName(i));
    insertSorted(reading.table, std::move(entry));
  }
}

bool isRoomFree(const TableContext& context, EmbrImage& image, const NewEntry& entry) {
  if (entry.startSector > entry.endSector || entry.startSector < image.endSector() ||
      entry.endSector > context.lastLba || entry.endSector > kAllOnes32)
    return false;
  for (u32 i = 0; i < image.entryCount(); ++i) {
    const MptEntryRecord& other = image.entry(i);
    if (other.firstLba <= entry.endSector && entry.startSector <= other.lastLba) return false;
  }
  const MbrRecord& mbr = mbrIn(image);
  return !mbr.signature.isValid() ||
         std::ranges::none_of(mbr.slots, [&](const MbrSlotRecord& slot) {
           return isForeign(image, slot) && slot.startLba <= entry.endSector &&
                  entry.startSector < u64{slot.startLba} + slot.sectorCount;
         });
}

// The new partition's slot for other systems. False: there is none, and one is needed.
bool takeSlot(const TableContext& context, EmbrImage& image, const NewEntry& entry) {
  MbrRecord& mbr = mbrIn(image);
  makeSlotsUsable(mbr);
  const auto slot = std::ranges::find(mbr.slots, types::kFree, &MbrSlotRecord::type);
  if (slot == mbr.slots.end() || !fitsSlot(0, entry.startSector, entry.endSector))
    return !image.limitsPrimaries();
  if (types::isExtended(entry.type)) {
    slot->clear();
  } else {
    chooseBootIndicator(context, mbr, *slot);
  }
  writeSlot(context, 0, entry.startSector, entry.endSector, static_cast<u8>(entry.type), *slot);
  return true;
}

}  // namespace

bool EmbrScheme::read(const TableContext& context, std::span<const u8> track,
                      TableReading& reading) const {
  EmbrImage image;
  if (EmbrImage::parse(track, context.disk.sectorSize(), image) != Error::none) return false;
  MbrRecord& mbr = mbrIn(image);
  reading.diskSignature = mbr.diskSignature;
  reading.firstUsableSector = image.endSector();
  reading.table.slots = image.limitsPrimaries() ? kMbrSlots : kMaxMptEntries;
  for (u32 i = 0; i < image.entryCount(); ++i) {
    const MptEntryRecord& record = image.entry(i);
    auto entry = std::make_unique<EmbrEntry>();
    entry->startSector = record.firstLba;
    entry->endSector = record.lastLba;
    entry->type = record.type;
    entry->mbrType = record.type;
    entry->attributes = record.flags;
    entry->tableIndex = static_cast<i32>(i);
    entry->tableName = nameOf(record);
    entry->id = unusedId(reading.table, record.id);
    if (const MbrSlotRecord* slot = slotOf(mbr, record)) {
      entry->mbrSlot = static_cast<u8>(slot - mbr.slots.data());
      entry->mbrType = slot->type;
      entry->bootIndicator = slot->bootIndicator;
      entry->endChs = slot->endChs;
    }
    entry->setName(entry->tableName);
    ++reading.table.usedSlots;
    insertSorted(reading.table, std::move(entry));
  }
  addForeignSlots(image, mbr, reading);
  return true;
}

Failure EmbrScheme::checkUnchanged(const TableContext& context, const PartitionTable& table) const {
  EmbrImage image;
  if (const Failure error = load(context.disk, image); error != Error::none) return error;
  const bool same =
      image.entryCount() == table.usedSlots &&
      std::ranges::all_of(table.entries, [&](const auto& entry) {
        return entry->isFree() || entry->tableIndex < 0 || recordOf(image, *entry) != nullptr;
      });
  return same ? Error::none : Error::tableChangedMeanwhile;
}

Failure checkEmbrGrowth(const TableContext& context, const EmbrImage& old, const EmbrImage& image,
                        TrackContent content) {
  if (image.endSector() == old.endSector()) return Error::none;
  for (u32 i = 0; i < image.entryCount(); ++i)
    if (image.entry(i).firstLba < image.endSector()) return Error::noFreeEntry;
  if (content == TrackContent::overwrite) return Error::none;
  return namedTrackContent(context.disk, old.endSector(), image.endSector()) ? Error::sectorsInUse
                                                                             : Error::none;
}

MptEntryRecord mptRecordOf(const PartitionEntry& entry) {
  MptEntryRecord record{};
  record.flags = static_cast<u16>(entry.attributes);
  record.firstLba = static_cast<u32>(entry.startSector);
  record.lastLba = static_cast<u32>(entry.endSector);
  record.id = static_cast<u8>(entry.id);
  record.type = static_cast<u8>(entry.type);
  entry.name.copy(record.name, sizeof record.name - 1);
  return record;
}

Failure EmbrScheme::add(const TableContext& context, const NewEntry& entry,
                        TrackContent content) const {
  EmbrImage old;
  if (const Failure error = load(context.disk, old); error != Error::none) return error;
  if (!isRoomFree(context, old, entry)) return Error::outsideUsableArea;
  EmbrImage image = old;
  if (!takeSlot(context, image, entry)) return Error::noFreeEntry;
  MptEntryRecord record{};
  record.flags = static_cast<u16>(entry.attributes);
  record.firstLba = static_cast<u32>(entry.startSector);
  record.lastLba = static_cast<u32>(entry.endSector);
  record.id = image.freeId(entry.id);
  record.type = static_cast<u8>(entry.type);
  printableFromUtf8(entry.name).copy(record.name, sizeof record.name - 1);
  if (const Failure failed = image.insert(image.entryCount(), record)) return failed;
  if (const Failure failed = checkEmbrGrowth(context, old, image, content)) return failed;
  if (types::isExtended(entry.type)) {
    if (const Failure failed = putFirstEbr(context.disk, entry)) return failed;
  }
  return storeEmbrFirst(context.disk, old, image);
}

Failure EmbrScheme::remove(const TableContext& context, const TableEntry& entry) const {
  EmbrImage old;
  if (const Failure error = load(context.disk, old); error != Error::none) return error;
  EmbrImage image = old;
  const MptEntryRecord* record = recordOf(image, entry);
  if (record == nullptr) return Error::tableChangedMeanwhile;
  if (MbrSlotRecord* slot = slotOf(mbrIn(image), *record)) slot->clear();
  image.remove(static_cast<u32>(entry.tableIndex));
  return storeMbrFirst(context.disk, old, image);
}

Failure EmbrScheme::changeProperties(const TableContext& context, const TableEntry& entry,
                                     const EntryProperties& wanted) const {
  if (wanted.typeGuid || (wanted.attributes && *wanted.attributes > 0xFFFF))
    return Error::unsupportedForm;
  EmbrImage old;
  if (const Failure error = load(context.disk, old); error != Error::none) return error;
  EmbrImage image = old;
  MptEntryRecord* record = recordOf(image, entry);
  if (record == nullptr) return Error::tableChangedMeanwhile;
  MbrRecord& mbr = mbrIn(image);
  MbrSlotRecord* slot = slotOf(mbr, *record);
  if (wanted.active && slot == nullptr) return Error::unsupportedForm;
  if (wanted.type) {
    record->type = static_cast<u8>(*wanted.type);
    if (slot != nullptr) slot->type = record->type;
  }
  if (wanted.name) {
    std::ranges::fill(record->name, '\0');
    wanted.name->copy(record->name, sizeof record->name - 1);
  }
  if (wanted.attributes) record->flags = static_cast<u16>(*wanted.attributes);
  if (wanted.endSector) {
    if (!fitsSlot(0, entry.startSector, *wanted.endSector)) return Error::outsideUsableArea;
    record->lastLba = static_cast<u32>(*wanted.endSector);
    if (slot != nullptr)
      writeSlot(context, 0, entry.startSector, *wanted.endSector, slot->type, *slot);
  }
  if (wanted.active) markActive(mbr, *slot, *wanted.active);
  return storeEmbrFirst(context.disk, old, image);
}

Failure EmbrScheme::move(const TableContext& context, const TableEntry& entry,
                         const EntryMove& move) const {
  EmbrImage old;
  if (const Failure error = load(context.disk, old); error != Error::none) return error;
  EmbrImage image = old;
  MptEntryRecord* record = recordOf(image, entry);
  if (record == nullptr) return Error::tableChangedMeanwhile;
  MbrSlotRecord* slot = slotOf(mbrIn(image), *record);
  if (slot != nullptr) {
    // Its type may be the hidden form of the real one.
    const u8 type = slot->type == record->type ? move.type : slot->type;
    writeSlot(context, 0, move.newStart, move.newEnd(), type, *slot);
  }
  record->firstLba = static_cast<u32>(move.newStart);
  record->lastLba = static_cast<u32>(move.newEnd());
  record->type = move.type;
  return storeEmbrFirst(context.disk, old, image);
}

namespace {

// Every partition into a slot: into its own, the others into those that are left.
Failure rebuildSlots(const TableContext& context, EmbrImage& image, bool makeFirstActive) {
  MbrRecord& mbr = mbrIn(image);
  makeSlotsUsable(mbr);
  const MbrRecord before = mbr;
  for (MbrSlotRecord& slot : mbr.slots) slot.clear();
  for (const bool hasSlot : {true, false}) {
    for (u32 i = 0; i < image.entryCount(); ++i) {
      const MptEntryRecord& record = image.entry(i);
      if (record.type == types::kFree) continue;
      const auto own = std::ranges::find_if(before.slots, [&](const MbrSlotRecord& slot) {
        return holdsExtent(slot, record.firstLba, record.lastLba);
      });
      if ((own != before.slots.end()) != hasSlot) continue;
      const auto slot = hasSlot ? mbr.slots.begin() + (own - before.slots.begin())
                                : std::ranges::find(mbr.slots, types::kFree, &MbrSlotRecord::type);
      if (slot == mbr.slots.end()) return Error::tooManyPartitions;
      if (slot->type != types::kFree) return Error::tableInError;  // two partitions are one
      if (!fitsSlot(0, record.firstLba, record.lastLba)) return Error::partitionBeyondTable;
      writeSlot(context, 0, record.firstLba, record.lastLba, record.type, *slot);
      if (hasSlot) slot->bootIndicator = own->bootIndicator;
    }
  }
  const bool hasActive = std::ranges::any_of(
      mbr.slots, [](const MbrSlotRecord& slot) { return slot.bootIndicator != 0; });
  if (makeFirstActive && !hasActive && mbr.slots[0].type != types::kFree)
    mbr.slots[0].bootIndicator = kBootActive;
  return Error::none;
}

}  // namespace

Failure setEmbrLimit(const TableContext& context, bool limit, bool makeFirstActive) {
  EmbrImage old;
  if (const Failure error = load(context.disk, old); error != Error::none) return error;
  EmbrImage image = old;
  image.setLimitsPrimaries(limit);
  if (!limit) return storeEmbr(context.disk, old, image);
  if (const Failure error = rebuildSlots(context, image, makeFirstActive); error != Error::none)
    return error;
  return storeMbrFirst(context.disk, old, image);
}

}  // namespace tallowin
