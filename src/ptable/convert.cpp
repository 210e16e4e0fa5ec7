#include "ptable/convert.h"

#include <algorithm>

#include "base/text.h"
#include "probe/type_catalogue.h"
#include "ptable/convert_common.h"
#include "ptable/gpt/gpt_scheme.h"
#include "ptable/gpt/gpt_types.h"
#include "ptable/mbr/boot_code.h"
#include "ptable/mbr/mbr_edit.h"
#include "ptable/sector_swap.h"
#include "ptable/track_content.h"

namespace tallowin {
namespace {

constexpr u64 kTrackSectors = 3;  // sector 0, and the two in which an EMBR can begin

u64 lowestStart(const Drive& drive) {
  const auto used = drive.usedRegion();
  return used ? used->first : kAllOnes64;
}

// Every partition into the slot that it has, then the others into free ones.
Failure fillSlots(Drive& drive, MbrRecord& mbr) {
  const auto put = [&](PartitionEntry& entry, u8 slot) {
    const u8 indicator = entry.bootIndicator;
    if (!putIntoMbrSlot(drive, entry, mbr, slot) || entry.mbrSlot >= kMbrSlots) return false;
    mbr.slots[entry.mbrSlot].bootIndicator = indicator;
    return true;
  };
  for (const bool hasSlot : {true, false}) {
    for (const auto& entry : drive.table().entries) {
      if (entry->isFree() || (entry->mbrSlot < kMbrSlots) != hasSlot) continue;
      if (!hasSlot && mbrIsFull(mbr)) return Error::slotNotFree;
      if (!put(*entry, hasSlot ? entry->mbrSlot : kNoMbrSlot)) return Error::slotNotFree;
    }
  }
  return Error::none;
}

Failure readTrackSectors(Drive& drive, std::vector<u8>& sectors) {
  sectors.assign(kTrackSectors * drive.sectorSize(), 0);
  return drive.disk().readSectors(0, sectors.data(), kTrackSectors) == Error::none ? Error::none
                                                                                   : Error::read;
}

// Sector 0 first: from then on a former GPT disk has the new table, and what follows only
// clears what the old one left behind. On a former EMBR disk clearing the header is what decides.
Failure writeMbrTable(Drive& drive, std::span<const u8> mbrSector, std::optional<u64> embrHeader) {
  DiskDevice& disk = drive.disk();
  TableSectorImage mbr(disk, 0);
  if (const Failure error = mbr.load(); error != Error::none) return error;
  const std::vector<u8> old(mbr.bytes().begin(), mbr.bytes().end());
  std::ranges::copy(mbrSector, mbr.bytes().begin());
  if (!embrHeader) {
    if (const Failure error = mbr.store(); error != Error::none || !drive.isGpt()) return error;
    const std::vector<u8> zeros((kTrackSectors - 1) * drive.sectorSize());
    const bool cleared = disk.writeSectors(1, zeros.data(), kTrackSectors - 1) == Error::none &&
                         invalidateGptBackup(disk) == Error::none && disk.flush() == Error::none;
    return cleared ? Error::none : Error::writeFailedNewTable;
  }
  TableSectorImage header(disk, *embrHeader);
  if (const Failure error = header.load(); error != Error::none) return error;
  header.bytes()[0] = 0;
  if (const Failure error = mbr.store(); error != Error::none)
    return error == Error::writeFailedNewTable ? Error::writeFailedTableUnknown : error;
  const Failure error = header.store();
  if (error != Error::write) return error;
  std::ranges::copy(old, mbr.bytes().begin());
  return mbr.store() == Error::none ? Error::write : Error::writeFailedTableUnknown;
}

// Where an EMBR begins, or would begin.
u64 embrSectorIn(std::span<const u8> firstThreeSectors, u32 sectorSize) {
  return textAt(firstThreeSectors, sectorSize + 2, "IBM ") ? 2 : 1;
}

}  // namespace

bool endsBeyondMbr(const Drive& drive) {
  return std::ranges::any_of(drive.table().entries, [](const auto& entry) {
    return !entry->isFree() && entry->endSector > kAllOnes32;
  });
}

Failure undoConversion(Drive& drive, std::span<const u8> oldFirstSectors) {
  DiskDevice& disk = drive.disk();
  const Scheme before = drive.scheme();
  static_cast<void>(
      disk.writeSectors(0, oldFirstSectors.data(), oldFirstSectors.size() / drive.sectorSize()));
  disk.dropCaches();
  if (disk.flush() != Error::none || drive.reread() != Error::none ||
      (drive.table().status & kTableUnreadable) != 0)
    return Error::writeFailedTableUnknown;
  return drive.scheme() == before ? Error::write : Error::writeFailedNewTable;
}

Failure checkConvertible(Drive& drive, Scheme target, TrackContent content) {
  if (drive.table().slots == 0 || (drive.table().status & kTableNone) != 0) return Error::noTable;
  if (const Failure error = drive.checkChange(); error != Error::none) return error;
  if (drive.table().hasErrors()) return Error::tableInError;
  if (drive.gptHealth() && !drive.gptHealth()->isSound()) return Error::gptTableCheck;
  const bool keeps = content == TrackContent::keep;
  return keeps && overwrittenByTable(drive, target) ? Error::sectorsInUse : Error::none;
}

std::optional<std::string> overwrittenByTable(Drive& drive, Scheme target) {
  if (drive.isGpt()) {
    for (const auto& entry : drive.table().entries) {
      if (entry->isFree() || entry->typeGuid != kGptBiosBoot) continue;
      return format("the boot loader in the BIOS Boot partition %u",
                    static_cast<unsigned>(entry->tableIndex) + 1);
    }
    return std::nullopt;
  }
  if (target == Scheme::mbr) return std::nullopt;
  u64 from = drive.isEmbr() ? drive.firstUsableSector() : 1;
  u64 end = 2 + u64{kGptEntryCount} * kGptEntrySize / drive.sectorSize();
  if (target == Scheme::embr) {
    std::vector<u8> sectors;
    if (readTrackSectors(drive, sectors) != Error::none) return "sectors that cannot be read";
    from = embrSectorIn(sectors, drive.sectorSize());
    end = from + 1;
  }
  return namedTrackContent(drive.disk(), from,
                           std::min({end, lowestStart(drive), drive.lastLba()}));
}

Failure convertToMbr(Drive& drive, bool allowWithoutTable, TrackContent content) {
  const bool hasTable = drive.table().slots != 0 && (drive.table().status & kTableNone) == 0;
  if (!hasTable && !allowWithoutTable) return Error::noTable;
  if (hasTable) {
    if (drive.scheme() == Scheme::mbr) return Error::none;
    if (const Failure error = checkConvertible(drive, Scheme::mbr, content); error != Error::none)
      return error;
    if (endsBeyondMbr(drive)) return Error::partitionBeyondTable;
    if (drive.table().usedSlots > kMbrSlots) return Error::tooManyPartitions;
  }
  std::optional<u64> embrHeader;
  if (!drive.isGpt()) {
    std::vector<u8> sectors;
    if (const Failure error = readTrackSectors(drive, sectors); error != Error::none) return error;
    const u64 header = embrSectorIn(sectors, drive.sectorSize());
    if (textAt(sectors, header * drive.sectorSize(), "EMBR")) embrHeader = header;
  }
  std::vector<u8> mbrSector(drive.sectorSize());
  auto& mbr = *recordAt<MbrRecord>(std::span(mbrSector));
  installBootCode(BootCode::standard, mbr);
  mbr.diskSignature = drive.diskSignature();
  if (hasTable) {
    if (const Failure error = fillSlots(drive, mbr); error != Error::none) return error;
  }
  const Failure error = writeMbrTable(drive, mbrSector, embrHeader);
  if (error != Error::write) drive.setFlags(kDriveChanged, kDriveChanged);
  return error;
}

}  // namespace tallowin
