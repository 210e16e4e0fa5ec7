#include "ptable/convert.h"

#include <algorithm>

#include "base/text.h"
#include "probe/disk_content.h"
#include "probe/type_catalogue.h"
#include "ptable/convert_common.h"
#include "ptable/embr/embr_record.h"
#include "ptable/gpt/gpt_image.h"
#include "ptable/gpt/gpt_types.h"
#include "ptable/mbr/boot_code.h"
#include "ptable/mbr/mbr_edit.h"
#include "ptable/old_signatures.h"
#include "ptable/scheme.h"
#include "ptable/sector_swap.h"
#include "ptable/track_content.h"

namespace tallowin {
namespace {

constexpr u64 kTrackSectors = 3;  // sector 0, and the two in which an EMBR can begin

u64 lowestStart(const Drive& drive) {
  const auto used = drive.usedRegion();
  return used ? used->first : kAllOnes64;
}

// Where an EMBR begins, or would begin.
u64 embrSectorIn(std::span<const u8> firstThreeSectors, u32 sectorSize) {
  return textAt(firstThreeSectors, sectorSize + 2, "IBM ") ? 2 : 1;
}

Failure findEmbrHeader(Drive& drive, std::optional<u64>& header) {
  SavedSectors track;
  if (const Failure failed = saveSectors(drive.disk(), 0, kTrackSectors, track)) return failed;
  const u64 sector = embrSectorIn(track.bytes, drive.sectorSize());
  if (textAt(track.bytes, sector * drive.sectorSize(), "EMBR")) header = sector;
  return {};
}

Failure storeMbr(DiskDevice& disk, std::span<const u8> sector) {
  TableSectorImage mbr(disk, 0);
  if (const Failure failed = mbr.load()) return failed;
  std::ranges::copy(sector, mbr.bytes().begin());
  return mbr.store();
}

// Other programs go by the boot sector, we by the header, so both are old or both are new.
Failure replaceEmbr(DiskDevice& disk, u64 embrHeader, std::span<const u8> mbrSector) {
  SavedSectors old;
  if (const Failure failed = saveSectors(disk, 0, 1, old)) return failed;
  TableSectorImage header(disk, embrHeader);
  if (const Failure failed = header.load()) return failed;
  header.bytes()[0] = 0;
  if (const Failure failed = storeMbr(disk, mbrSector))
    return failed.as(failed == Error::writeFailedNewTable ? Error::writeFailedTableUnknown
                                                          : failed.code);
  const Failure failed = header.store();
  if (failed != Error::write) return failed;
  return failed.as(storeMbr(disk, old.bytes) ? Error::writeFailedTableUnknown : Error::write);
}

Failure clearSector(DiskDevice& disk, u64 lba) {
  const std::vector<u8> zeros(disk.sectorSize());
  return disk.writeSectors(lba, zeros.data(), 1);
}

// From the boot sector on the disk has the new table. What follows only clears what the GPT left;
// what lies between its header and its array is not the table's.
Failure replaceGpt(DiskDevice& disk, std::span<const u8> mbrSector) {
  GptImage image;
  if (const Failure failed = GptImage::read(disk, image)) return failed.as(Error::read);
  if (const Failure failed = storeMbr(disk, mbrSector)) return failed;
  for (const u64 lba : {kGptPrimaryHeaderLba, u64{image.header().entryLba}})
    if (const Failure failed = clearSector(disk, lba)) return failed.as(Error::writeFailedNewTable);
  return endGptBackup(disk);
}

Failure replaceFileSystem(DiskDevice& disk, std::span<const u8> mbrSector) {
  if (const Failure failed = storeMbr(disk, mbrSector)) return failed;
  if (const Failure failed = clearOldSignatures(disk)) return failed.as(Error::writeFailedNewTable);
  return endGptBackup(disk);
}

bool hasTable(const Drive& drive) {
  return drive.table().slots != 0 && (drive.table().status & kTableNone) == 0;
}

Failure build(Drive& drive, MbrRecord& mbr) {
  installBootCode(BootCode::standard, mbr);
  mbr.diskSignature = drive.diskSignature() != 0 ? drive.diskSignature()
                                                 : randomDiskSignature(drive.tableContext().host);
  if (!hasTable(drive)) return {};
  const std::vector<const TableEntry*> entries = entriesToKeep(drive);
  return entries.size() > kMbrSlots ? Failure(Error::tooManyPartitions)
                                    : fillSlots(drive, entries, mbr);
}

// A slot of a hybrid boot sector that names other sectors than any partition of the GPT.
std::optional<std::string> strangeSlot(Drive& drive) {
  SavedSectors sector;
  if (saveSectors(drive.disk(), 0, 1, sector)) return "a boot sector that cannot be read";
  const auto& mbr = *recordAt<MbrRecord>(std::span<const u8>(sector.bytes));
  for (std::size_t i = 0; i < kMbrSlots; ++i) {
    const u8 type = mbr.slots[i].type;
    const bool isLinked = std::ranges::any_of(
        drive.table().entries, [i](const auto& entry) { return entry->mbrSlot == i; });
    if (type != types::kFree && type != types::kGptReserved && !isLinked)
      return format("entry %u of the boot sector, which is no partition of the GPT",
                    static_cast<unsigned>(i) + 1);
  }
  return std::nullopt;
}

// An EMBR of many partitions takes more sectors than the header of the GPT, and those may be a
// board's loader where the entry array lies elsewhere.
std::optional<std::string> underNewEmbr(Drive& drive) {
  GptImage image;
  if (GptImage::read(drive.disk(), image)) return "a GPT that cannot be read";
  const u64 bytes = sizeof(EmbrHeaderRecord) + sizeof(MbftHeaderRecord) +
                    entriesToKeep(drive).size() * sizeof(MptEntryRecord);
  const u64 end = kGptPrimaryHeaderLba + (bytes + kEmbrSectorBytes - 1) / kEmbrSectorBytes;
  return namedTrackContent(drive.disk(), kGptPrimaryHeaderLba + 1,
                           std::min<u64>(end, image.header().entryLba));
}

std::optional<std::string> overwrittenOnGpt(Drive& drive, Scheme target) {
  for (const auto& entry : drive.table().entries) {
    if (entry->isFree() || entry->typeGuid != kGptBiosBoot) continue;
    return format("the boot loader in the BIOS Boot partition %u",
                  static_cast<unsigned>(entry->tableIndex) + 1);
  }
  if (auto strange = strangeSlot(drive)) return strange;
  return target == Scheme::embr ? underNewEmbr(drive) : std::nullopt;
}

}  // namespace

bool lacksBootSector(Drive& drive) {
  if (drive.scheme() != Scheme::mbr || drive.partitionCount() != 0) return false;
  std::vector<u8> sector(drive.sectorSize());
  return !drive.disk().readSectors(0, sector.data(), 1) &&
         !recordAt<MbrRecord>(std::span<const u8>(sector))->signature.isValid();
}

std::optional<std::string> overwrittenByTable(Drive& drive, Scheme target) {
  if (drive.isGpt()) return overwrittenOnGpt(drive, target);
  if (drive.scheme() == Scheme::mbr && drive.partitionCount() == 0)
    if (auto held = namedDiskContent(drive.disk())) return held;
  if (target == Scheme::mbr) return std::nullopt;  // an EMBR's own sectors
  u64 from = drive.isEmbr() ? drive.firstUsableSector() : 1;
  u64 end = 2 + u64{kGptEntryCount} * kGptEntrySize / drive.sectorSize();
  if (target == Scheme::embr) {
    SavedSectors track;
    if (saveSectors(drive.disk(), 0, kTrackSectors, track)) return "sectors that cannot be read";
    from = embrSectorIn(track.bytes, drive.sectorSize());
    end = from + 1;
  }
  return namedTrackContent(drive.disk(), from,
                           std::min({end, lowestStart(drive), drive.lastLba()}));
}

Failure convertToMbr(Drive& drive, bool allowWithoutTable, TrackContent content,
                     const EarlierMbr* earlier) {
  if (!hasTable(drive) && !allowWithoutTable) return Error::noTable;
  if (hasTable(drive)) {
    if (drive.scheme() == Scheme::mbr && !lacksBootSector(drive)) return Error::none;
    if (const Failure failed = checkConvertible(drive, Scheme::mbr, content)) return failed;
    if (endsBeyondMbr(drive)) return Error::partitionBeyondTable;
  }
  std::optional<u64> embrHeader;
  if (!drive.isGpt()) {
    if (const Failure failed = findEmbrHeader(drive, embrHeader)) return failed;
  }
  DiskDevice& disk = drive.disk();
  if (drive.isGpt() && earlier != nullptr) {
    const Failure failed = restoreEarlierMbr(drive, *earlier);
    if (failed != Error::read && failed != Error::write)
      drive.setFlags(kDriveChanged, kDriveChanged);
    return failed;
  }
  std::vector<u8> mbrSector(drive.sectorSize());
  if (const Failure failed = build(drive, *recordAt<MbrRecord>(std::span(mbrSector))))
    return failed;
  const Failure failed = drive.isGpt() ? replaceGpt(disk, mbrSector)
                         : embrHeader  ? replaceEmbr(disk, *embrHeader, mbrSector)
                                       : replaceFileSystem(disk, mbrSector);
  if (failed != Error::read && failed != Error::write) drive.setFlags(kDriveChanged, kDriveChanged);
  return failed;
}

}  // namespace tallowin
