#include <algorithm>

#include "probe/type_catalogue.h"
#include "ptable/convert.h"
#include "ptable/convert_common.h"
#include "ptable/embr/embr_image.h"
#include "ptable/embr/embr_scheme.h"
#include "ptable/gpt/gpt_image.h"
#include "ptable/mbr/mbr_edit.h"

namespace tallowin {
namespace {

Failure addEntry(const Drive& drive, const TableEntry& entry, EmbrImage& image) {
  if (entry.type == types::kDynamicDisk) return Error::dynamicDisk;
  MptEntryRecord record = mptRecordOf(entry);
  record.type = slotTypeOf(drive, entry);
  record.id = image.freeId(entry.id);
  record.flags = u16{0};
  return image.insert(image.entryCount(), record).as(Error::tooManyPartitions);
}

// The slots of the entries that have one. What is no partition of the table would become one at the
// next start, and in a table with limited primaries take its slot from another.
void keepOwnSlots(const Drive& drive, std::span<const TableEntry* const> entries, MbrRecord& mbr) {
  makeSlotsUsable(mbr);
  if (!drive.isGpt()) return;
  for (std::size_t i = 0; i < kMbrSlots; ++i)
    if (std::ranges::none_of(entries, [i](const auto* entry) { return entry->mbrSlot == i; }))
      mbr.slots[i].clear();
}

Failure takeSlots(const Drive& drive, std::span<const TableEntry* const> entries,
                  bool limitPrimaries, MbrRecord& mbr) {
  keepOwnSlots(drive, entries, mbr);
  std::vector<const TableEntry*> without;
  std::ranges::copy_if(entries, std::back_inserter(without),
                       [](const auto* entry) { return entry->mbrSlot >= kMbrSlots; });
  const auto room =
      static_cast<std::size_t>(std::ranges::count(mbr.slots, types::kFree, &MbrSlotRecord::type));
  if (without.size() > room) {
    if (limitPrimaries) return Error::slotNotFree;
    without.resize(room);
  }
  return fillSlots(drive, without, mbr);
}

Failure build(Drive& drive, bool limitPrimaries, EmbrImage& image) {
  const std::vector<const TableEntry*> entries = entriesToKeep(drive);
  if (entries.size() > (limitPrimaries ? kMbrSlots : kMaxMptEntries))
    return Error::tooManyPartitions;
  image.create(drive.geometry(), false);
  image.setLimitsPrimaries(limitPrimaries);
  auto& mbr = *recordAt<MbrRecord>(image.mbr());
  if (mbr.diskSignature == 0) mbr.diskSignature = randomDiskSignature(drive.tableContext().host);
  if (const Failure failed = takeSlots(drive, entries, limitPrimaries, mbr)) return failed;
  for (const TableEntry* entry : entries)
    if (const Failure failed = addEntry(drive, *entry, image)) return failed;
  const auto used = drive.usedRegion();
  return used && used->first < image.endSector() ? Error::outsideUsableArea : Error::none;
}

}  // namespace

Failure convertToEmbr(Drive& drive, bool limitPrimaries, TrackContent content) {
  if (drive.isEmbr()) return Error::none;
  if (const Failure failed = checkConvertible(drive, Scheme::embr, content)) return failed;
  if (endsBeyondMbr(drive)) return Error::partitionBeyondTable;
  DiskDevice& disk = drive.disk();
  EmbrImage image;
  const Failure found = EmbrImage::read(disk, image);
  if (found && found != Error::notThisFormat) return found.as(Error::read);
  if (!image.hasRoom()) return Error::outsideUsableArea;
  const EmbrImage old = image;
  if (const Failure failed = build(drive, limitPrimaries, image)) return failed;

  const bool wasGpt = drive.isGpt();
  drive.setFlags(kDriveChanged, kDriveChanged);
  if (const Failure failed = image.writeAsNewTable(disk)) {
    const std::span<const u8> first = old.firstSectors(image.endSector());
    const SavedSectors saved{0, {first.begin(), first.end()}};
    return undoConversion(drive, {&saved, 1}, failed);
  }
  return wasGpt ? endGptBackup(disk) : Failure();
}

}  // namespace tallowin
