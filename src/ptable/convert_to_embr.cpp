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

void prepareMbr(const Drive& drive, EmbrImage& image) {
  auto& mbr = *recordAt<MbrRecord>(image.mbr());
  makeSlotsUsable(mbr);
  if (!drive.isGpt()) return;
  for (MbrSlotRecord& slot : mbr.slots)
    if (slot.type == types::kGptReserved) slot.clear();
}

Failure addEntry(Drive& drive, PartitionEntry& entry, EmbrImage& image) {
  if (entry.type == types::kDynamicDisk) return Error::dynamicDisk;
  auto& mbr = *recordAt<MbrRecord>(image.mbr());
  if (entry.mbrSlot >= kMbrSlots && !mbrIsFull(mbr)) {
    if (!putIntoMbrSlot(drive, entry, mbr, kNoMbrSlot)) return Error::slotNotFree;
  }
  MptEntryRecord record = mptRecordOf(entry);
  record.id = image.freeId(entry.id);
  record.flags = u16{0};
  return image.insert(image.entryCount(), record) == Error::none ? Error::none
                                                                 : Error::tooManyPartitions;
}

Failure build(Drive& drive, bool limitPrimaries, EmbrImage& image) {
  image.create(drive.geometry(), false);
  image.setLimitsPrimaries(limitPrimaries);
  prepareMbr(drive, image);
  const u32 most = limitPrimaries ? kMbrSlots : kMaxMptEntries;
  if (drive.table().usedSlots > most) return Error::tooManyPartitions;
  for (const auto& entry : drive.table().entries) {
    if (entry->isFree()) continue;
    if (const Failure error = addEntry(drive, *entry, image); error != Error::none) return error;
  }
  const auto used = drive.usedRegion();
  return used && used->first < image.endSector() ? Error::outsideUsableArea : Error::none;
}

}  // namespace

Failure convertToEmbr(Drive& drive, bool limitPrimaries, TrackContent content) {
  if (drive.isEmbr()) return Error::none;
  if (const Failure error = checkConvertible(drive, Scheme::embr, content); error != Error::none)
    return error;
  if (endsBeyondMbr(drive)) return Error::partitionBeyondTable;
  DiskDevice& disk = drive.disk();
  EmbrImage image;
  const Failure found = EmbrImage::read(disk, image);
  if (found != Error::notThisFormat && found != Error::none) return Error::read;
  if (!image.hasRoom()) return Error::outsideUsableArea;
  const EmbrImage old = image;
  if (const Failure error = build(drive, limitPrimaries, image); error != Error::none) return error;

  const bool wasGpt = drive.isGpt();
  const u32 extraSectors = wasGpt ? 1 : 0;
  if (image.headerSector() > 1 && wasGpt) image.clearBehindHeader();
  drive.setFlags(kDriveChanged, kDriveChanged);
  if (image.writeAsNewTable(disk, extraSectors) != Error::none)
    return undoConversion(drive, old.firstSectors(image.endSector() + extraSectors));
  if (wasGpt && (invalidateGptBackup(disk) != Error::none || disk.flush() != Error::none))
    return Error::writeFailedNewTable;
  return Error::none;
}

}  // namespace tallowin
