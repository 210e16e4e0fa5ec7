#include "ptable/gpt/gpt_scheme.h"

#include <algorithm>

#include "base/text.h"
#include "probe/identify.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_types.h"
#include "ptable/mbr/mbr_scheme.h"
#include "ptable/mbr/slot.h"

namespace tallowin {
namespace {

const MbrRecord& mbrIn(GptImage& image) { return *recordAt<MbrRecord>(image.mbr()); }

bool holdsExtent(const MbrSlotRecord& slot, const PartitionEntry& entry) {
  return slot.type != types::kFree && slot.type != types::kGptReserved &&
         slot.startLba == entry.startSector && slot.sectorCount == entry.sectorCount();
}

// The slot of a hybrid MBR that names the same sectors.
void linkToSlot(const MbrRecord& mbr, PartitionEntry& entry) {
  for (std::size_t i = 0; i < kMbrSlots; ++i) {
    const MbrSlotRecord& slot = mbr.slots[i];
    if (!holdsExtent(slot, entry)) continue;
    entry.mbrSlot = static_cast<u8>(i);
    entry.bootIndicator = slot.bootIndicator;
    entry.mbrType = slot.type;
    entry.endChs = slot.endChs;
    return;
  }
}

u16 modelType(DiskDevice& disk, const GptEntryRecord& record) {
  if (record.typeGuid == kGptIntelRst) return types::kHibernation;
  const u16 content = typeOfContent(disk, record.firstLba);
  if (content == types::kFree) return types::kGptEntry;
  return types::isFat(content) && record.typeGuid == kGptEfiSystem ? u16{types::kEfiSystem}
                                                                   : content;
}

std::unique_ptr<TableEntry> modelOf(const TableContext& context, GptImage& image, u32 index) {
  const GptEntryRecord& record = image.entry(index);
  auto entry = std::make_unique<TableEntry>();
  entry->startSector = record.firstLba;
  entry->endSector = record.lastLba;
  entry->tableIndex = static_cast<i32>(index);
  entry->typeGuid = record.typeGuid;
  entry->uniqueGuid = record.uniqueGuid;
  entry->attributes = record.attributes;
  entry->tableName = gptName(record);
  entry->type =
      record.firstLba <= context.lastLba ? modelType(context.disk, record) : u16{types::kGptEntry};
  entry->mbrType = entry->type;
  linkToSlot(mbrIn(image), *entry);
  const bool wantsLabel = entry->tableName.empty() || (context.flags & kDrivePreferLabels) != 0;
  const std::string label = wantsLabel ? context.labelOf(*entry) : std::string();
  entry->setName(!label.empty() ? label : entry->tableName);
  return entry;
}

bool isSame(const GptEntryRecord& record, const PartitionEntry& entry) {
  return record.firstLba == entry.startSector && record.lastLba == entry.endSector &&
         record.typeGuid == entry.typeGuid && record.uniqueGuid == entry.uniqueGuid &&
         record.attributes == entry.attributes;
}

Failure load(const TableContext& context, GptImage& image) {
  return GptImage::read(context.disk, image).as(Error::read);
}

// The backup of a disk that was shortened would lie behind its end.
bool isBackupBeyondEnd(const TableContext& context, const GptImage& image) {
  return image.header().alternateLba > context.lastLba;
}

// The record of an entry that was read from it; null when the disk holds something else now.
GptEntryRecord* recordOf(GptImage& image, const PartitionEntry& entry) {
  if (entry.tableIndex < 0 || entry.tableIndex >= static_cast<i32>(image.entryCount()))
    return nullptr;
  GptEntryRecord& record = image.entry(static_cast<u32>(entry.tableIndex));
  return record.isUsed() && isSame(record, entry) ? &record : nullptr;
}

bool isRoomFree(const TableContext& context, const GptImage& image, const NewEntry& entry) {
  const GptHeaderRecord& header = image.header();
  if (entry.startSector > entry.endSector || entry.startSector < header.firstUsableLba ||
      entry.endSector > header.lastUsableLba || entry.endSector > context.lastLba)
    return false;
  for (u32 i = 0; i < image.entryCount(); ++i) {
    const GptEntryRecord& other = image.entry(i);
    if (other.isUsed() && other.firstLba <= entry.endSector && entry.startSector <= other.lastLba)
      return false;
  }
  return true;
}

}  // namespace

bool hasProtectiveSlot(std::span<const u8> track) {
  const auto& mbr = *recordAt<MbrRecord>(track);
  return mbr.signature.isValid() && std::ranges::any_of(mbr.slots, [](const MbrSlotRecord& slot) {
           return slot.type == types::kGptReserved;
         });
}

bool GptScheme::read(const TableContext& context, std::span<const u8> track,
                     TableReading& reading) const {
  if (!hasProtectiveSlot(track)) return false;
  GptImage image;
  if (GptImage::read(context.disk, image, track)) return false;
  reading.diskSignature = mbrIn(image).diskSignature;
  reading.diskGuid = image.header().diskGuid;
  reading.gptHealth = GptHealth{image.source(), image.backupState(context.disk)};
  reading.firstUsableSector = image.header().firstUsableLba;
  reading.lastUsableSector = std::min<u64>(image.header().lastUsableLba, context.lastLba);
  reading.table.slots = image.entryCount();
  for (u32 i = 0; i < image.entryCount(); ++i) {
    if (!image.entry(i).isUsed()) continue;
    auto entry = modelOf(context, image, i);
    entry->id = unusedId(reading.table, static_cast<PartitionId>(i + 1));
    ++reading.table.usedSlots;
    insertSorted(reading.table, std::move(entry));
  }
  return true;
}

Failure GptScheme::checkUnchanged(const TableContext& context, const PartitionTable& table) const {
  GptImage image;
  if (const Failure failed = GptImage::read(context.disk, image))
    return failed.as(failed == Error::tableReadFailed ? Error::read : Error::tableChangedMeanwhile);
  u32 used = 0;
  for (u32 i = 0; i < image.entryCount(); ++i) used += image.entry(i).isUsed() ? 1 : 0;
  const bool same =
      used == table.usedSlots && std::ranges::all_of(table.entries, [&](const auto& entry) {
        return entry->isFree() || entry->tableIndex < 0 || recordOf(image, *entry) != nullptr;
      });
  return same && hasProtectiveSlot(image.mbr()) ? Error::none : Error::tableChangedMeanwhile;
}

Failure storeGpt(DiskDevice& disk, const GptImage& old, GptImage& image) {
  if (const Failure failed = image.checkPlaces()) return failed;
  if (const Failure failed = disk.flush()) return failed.as(Error::write);
  const Failure failed = image.write(disk);
  if (!failed) return failed;
  disk.dropCaches();
  GptImage found;
  if (disk.flush() || GptImage::read(disk, found)) return failed.as(Error::writeFailedTableUnknown);
  const auto isOnDisk = [&found](const GptImage& table) {
    return found.holdsSameTable(table) && std::ranges::equal(found.mbr(), table.mbr());
  };
  if (isOnDisk(old)) return failed.as(Error::write);
  return failed.as(isOnDisk(image) ? Error::writeFailedNewTable : Error::writeFailedTableUnknown);
}

Failure GptScheme::add(const TableContext& context, const NewEntry& entry,
                       TrackContent /*content*/) const {
  GptImage old;
  if (const Failure failed = load(context, old)) return failed;
  if (isBackupBeyondEnd(context, old)) return Error::gptTableCheck;
  if (!isRoomFree(context, old, entry)) return Error::outsideUsableArea;
  GptImage image = old;
  u32 index = 0;
  while (index < image.entryCount() && image.entry(index).isUsed()) ++index;
  if (index == image.entryCount()) return Error::noFreeEntry;
  GptEntryRecord& record = image.entry(index);
  record.clear();
  record.typeGuid = entry.typeGuid.isZero() ? gptTypeFor(entry.type) : entry.typeGuid;
  record.uniqueGuid =
      entry.uniqueGuid.isZero() ? newUniqueGuid(context.host, image) : entry.uniqueGuid;
  record.firstLba = entry.startSector;
  record.lastLba = entry.endSector;
  record.attributes = entry.attributes;
  setGptName(record, entry.name);
  return storeGpt(context.disk, old, image);
}

Failure GptScheme::remove(const TableContext& context, const TableEntry& entry) const {
  GptImage old;
  if (const Failure failed = load(context, old)) return failed;
  GptImage image = old;
  GptEntryRecord* record = recordOf(image, entry);
  if (record == nullptr) return Error::tableChangedMeanwhile;
  record->clear();
  auto& mbr = *recordAt<MbrRecord>(image.mbr());
  for (MbrSlotRecord& slot : mbr.slots)
    if (holdsExtent(slot, entry)) slot.clear();
  // What lies behind the end has to go before the table can be repaired.
  if (isBackupBeyondEnd(context, image)) {
    if (const Failure failed = image.moveBackupTo(context.lastLba)) return failed;
  }
  return storeGpt(context.disk, old, image);
}

namespace {

// The type GUID says what a partition is for, and is left alone but for what only it can say.
// What lies in it is seen from its content; the slot of a hybrid MBR has a type of its own.
void setType(const TableEntry& entry, u16 type, GptEntryRecord& record, MbrRecord& mbr) {
  if (type == types::kEfiSystem) record.typeGuid = kGptEfiSystem;
  for (MbrSlotRecord& slot : mbr.slots)
    if (holdsExtent(slot, entry) && type <= 0xFF) slot.type = static_cast<u8>(type);
}

}  // namespace

Failure GptScheme::changeProperties(const TableContext& context, const TableEntry& entry,
                                    const EntryProperties& wanted) const {
  GptImage old;
  if (const Failure failed = load(context, old)) return failed;
  GptImage image = old;
  GptEntryRecord* record = recordOf(image, entry);
  if (record == nullptr) return Error::tableChangedMeanwhile;
  if (isBackupBeyondEnd(context, old)) return Error::gptTableCheck;
  auto& mbr = *recordAt<MbrRecord>(image.mbr());
  const auto own = std::ranges::find_if(
      mbr.slots, [&](const MbrSlotRecord& slot) { return holdsExtent(slot, entry); });
  if (wanted.active && own == mbr.slots.end()) return Error::unsupportedForm;
  if (wanted.type) setType(entry, *wanted.type, *record, mbr);
  if (wanted.name) setGptName(*record, *wanted.name);
  if (wanted.typeGuid) record->typeGuid = *wanted.typeGuid;
  if (wanted.attributes) record->attributes = *wanted.attributes;
  if (wanted.endSector) {
    record->lastLba = *wanted.endSector;
    if (own != mbr.slots.end()) {
      // A slot of a hybrid MBR names the same sectors, or is none of this partition any more.
      if (!fitsSlot(0, entry.startSector, *wanted.endSector)) return Error::outsideUsableArea;
      writeSlot(context, 0, entry.startSector, *wanted.endSector, own->type, *own);
    }
  }
  if (wanted.active) markActive(mbr, *own, *wanted.active);
  const bool staysSame = image.holdsSameTable(old) && std::ranges::equal(image.mbr(), old.mbr());
  return staysSame ? Failure() : storeGpt(context.disk, old, image);
}

// A slot of a hybrid MBR that names the same sectors follows.
Failure GptScheme::move(const TableContext& context, const TableEntry& entry,
                        const EntryMove& move) const {
  GptImage old;
  if (const Failure failed = load(context, old)) return failed;
  if (isBackupBeyondEnd(context, old)) return Error::gptTableCheck;
  GptImage image = old;
  GptEntryRecord* record = recordOf(image, entry);
  if (record == nullptr) return Error::tableChangedMeanwhile;
  record->firstLba = move.newStart;
  record->lastLba = move.newEnd();
  for (MbrSlotRecord& slot : recordAt<MbrRecord>(image.mbr())->slots)
    if (holdsExtent(slot, entry))
      writeSlot(context, 0, move.newStart, move.newEnd(), slot.type, slot);
  return storeGpt(context.disk, old, image);
}

Guid randomGuid(Host& host) {
  Guid guid;
  host.randomBytes(std::span(guid.bytes).first(8));
  if (guid.bytes[0] == 0) guid.bytes[0] = 1;
  const std::span<u8> bytes(guid.bytes);
  auto& seconds = *recordAt<Le32>(bytes, 8);
  auto& clock = *recordAt<Le32>(bytes, 12);
  seconds = static_cast<u32>(host.secondsSinceEpoch());
  clock = static_cast<u32>(host.monotonicNanoseconds());
  return guid;
}

Guid newUniqueGuid(Host& host, const GptImage& image) {
  const auto isTaken = [&image](const Guid& guid) {
    for (u32 i = 0; i < image.entryCount(); ++i)
      if (image.entry(i).uniqueGuid == guid) return true;
    return guid.isZero();
  };
  Guid guid = randomGuid(host);
  // A host whose random numbers repeat still gets different ones.
  for (u8 tries = 0; isTaken(guid) && tries < 255; ++tries) {
    guid = randomGuid(host);
    guid.bytes[7] = static_cast<u8>(guid.bytes[7] + tries);
  }
  return guid;
}

Failure repairGptOn(const TableContext& context) {
  GptImage old;
  if (const Failure failed = load(context, old)) return failed;
  GptImage image = old;
  if (image.header().alternateLba != context.lastLba) {
    if (const Failure failed = image.moveBackupTo(context.lastLba)) return failed;
  }
  return storeGpt(context.disk, old, image);
}

}  // namespace tallowin
