#include "ptable/table_backup.h"

#include <algorithm>
#include <map>
#include <set>

#include "probe/identify.h"
#include "probe/type_catalogue.h"
#include "ptable/convert_common.h"
#include "ptable/gpt/gpt_scheme.h"
#include "ptable/mbr/ebr_reader.h"
#include "ptable/mbr/mbr_scheme.h"
#include "ptable/old_signatures.h"
#include "ptable/sector_swap.h"

namespace tallowin {
namespace {

// The sectors of a backup as a disk, on which the table readers work. The sector behind an EBR
// may be missing; it reads as zeros.
class BackupDisk : public DiskDevice {
 public:
  explicit BackupDisk(const TableBackup& backup) : diskSectors_(backup.diskSectors) {
    traits_.sectorSizeBytes = backup.sectorSizeBytes;
    traits_.readOnly = true;
    for (const TableSector& sector : backup.sectors) sectors_[sector.lba] = &sector;
  }

  Failure flush() override { return {}; }
  std::optional<u64> sectorCount() override { return diskSectors_; }
  bool firmwareGeometry(Geometry& geometry) override {
    geometry = {.maxCylinder = 1023, .maxHead = 254, .sectorsPerTrack = 63};
    return false;
  }

 protected:
  Failure transferIn(u64 lba, void* buffer, u32 count) override {
    if (!sectors_.contains(lba)) return {Error::read, 0, lba};
    auto* out = static_cast<u8*>(buffer);
    std::fill_n(out, std::size_t{count} * sectorSize(), u8{0});
    for (u32 i = 0; i < count; ++i) {
      const auto found = sectors_.find(lba + i);
      if (found == sectors_.end()) continue;
      std::ranges::copy(found->second->bytes, out + std::size_t{i} * sectorSize());
    }
    return {};
  }
  Failure transferOut(u64, const void*, u32) override { return Error::readOnlyDisk; }

 private:
  u64 diskSectors_;
  std::map<u64, const TableSector*> sectors_;
};

void addChainSectors(const TableEntry& container, std::set<u64>& lbas) {
  for (const u64 ebr : container.volumes->chain) lbas.insert(container.startSector + ebr);
  for (const auto& volume : container.volumes->entries) {
    if (volume->volumeStart - volume->ebr >= kFirstVolumeAfterSequence)
      lbas.insert(container.startSector + volume->ebr + 1);
  }
}

// The sectors behind the MBR up to the first partition, where an EMBR, a GPT or a boot loader lies.
void addTrackSectors(const PartitionTable& table, std::set<u64>& lbas) {
  constexpr u64 kTrackSectors = 63;
  u64 end = kTrackSectors;
  for (const auto& entry : table.entries) {
    const bool isPlaceHolder = entry->type == types::kGptReserved || entry->startSector == 0;
    if (!isPlaceHolder) end = std::min(end, entry->startSector);
  }
  for (u64 lba = 1; lba < end; ++lba) lbas.insert(lba);
}

// As far as it can be read; of an unreadable one the places that it usually has.
void addGptSectors(DiskDevice& disk, u64 diskSectors, std::set<u64>& lbas) {
  GptImage image;
  if (!GptImage::read(disk, image)) return image.addTableSectors(disk, lbas);
  const u64 entryBytes = u64{kGptEntryCount} * kGptEntrySize;
  const u64 run = 1 + (entryBytes + disk.sectorSize() - 1) / disk.sectorSize();
  for (u64 back = 1; back <= std::min(run, diskSectors); ++back) lbas.insert(diskSectors - back);
}

// The sectors that make up the table on a disk, as far as it can be read.
Failure findTableSectors(DiskDevice& disk, u64 diskSectors, Host& host, std::set<u64>& lbas) {
  constexpr u64 kTrackBytes = 32 * kKiB;
  const u64 trackSectors = std::min(kTrackBytes / disk.sectorSize(), diskSectors);
  std::vector<u8> track(trackSectors * disk.sectorSize());
  if (disk.readSectors(0, track.data(), trackSectors)) {
    track.resize(disk.sectorSize());
    if (const Failure failed = disk.readSectors(0, track.data(), 1)) return failed.as(Error::read);
  }
  lbas.insert(0);
  const LabelReader noLabels;
  const TableContext context{disk, {}, diskSectors - 1, kDriveReadVolumes, 0, host, noLabels};
  TableReading reading;
  static_cast<void>(std::ranges::any_of(tableSchemes(), [&](const TableScheme* each) {
    return each->read(context, track, reading);
  }));
  // Of an empty table too: a conversion would put another one there.
  addTrackSectors(reading.table, lbas);
  if (hasProtectiveSlot(track)) addGptSectors(disk, diskSectors, lbas);
  for (const auto& entry : reading.table.entries) {
    if (!mayHoldVolumes(*entry)) continue;
    readVolumes(context, *entry);
    addChainSectors(*entry, lbas);
  }
  std::erase_if(lbas, [&](u64 lba) { return lba >= diskSectors; });
  return Error::none;
}

// Of a disk without a table those from which a conversion clears the marks of the file system.
std::set<u64> wholeDiskSectors(DiskDevice& disk, u64 diskSectors) {
  std::set<u64> lbas = {0};
  for (const u64 lba : oldSignatureSectors(disk.sectorSize()))
    if (lba < diskSectors) lbas.insert(lba);
  return lbas;
}

Failure readTableSectors(DiskDevice& disk, const std::set<u64>& lbas,
                         std::vector<TableSector>& sectors) {
  for (const u64 lba : lbas) {
    TableSector sector{lba, std::vector<u8>(disk.sectorSize())};
    if (const Failure failed = disk.readSectors(lba, sector.bytes.data(), 1))
      return failed.as(Error::read);
    sectors.push_back(std::move(sector));
  }
  return Error::none;
}

const MbrRecord& mbrOf(const TableBackup& backup) {
  return *recordAt<MbrRecord>(std::span<const u8>(backup.sectors.front().bytes));
}

bool endsBehind(const MbrRecord& mbr, u64 diskSectors) {
  return mbr.signature.isValid() &&
         std::ranges::any_of(mbr.slots, [diskSectors](const MbrSlotRecord& slot) {
           return slot.type != types::kFree && u64{slot.startLba} + slot.sectorCount > diskSectors;
         });
}

// Zero for a table that is no GPT.
Guid guidOf(const TableBackup& backup) {
  BackupDisk disk(backup);
  GptImage image;
  const bool isGpt =
      hasProtectiveSlot(backup.sectors.front().bytes) && !GptImage::read(disk, image);
  return isGpt ? image.header().diskGuid : Guid();
}

// Whether the disk has the identity that the backup states; nothing when one of them has none.
std::optional<bool> hasIdentityOf(const Drive& drive, const TableBackup& backup) {
  const Guid kept = guidOf(backup);
  if (!kept.isZero() && !drive.diskGuid().isZero()) return kept == drive.diskGuid();
  if (backup.diskSignature == 0 || drive.diskSignature() == 0) return std::nullopt;
  return backup.diskSignature == drive.diskSignature();
}

// Null for a sector of no partition, or of a container.
const PartitionEntry* partitionAt(const PartitionTable& table, u64 lba) {
  const auto holds = [lba](const PartitionEntry& entry) {
    return !entry.isFree() && !entry.isInError() && entry.startSector <= lba &&
           lba <= entry.endSector;
  };
  for (const auto& entry : table.entries) {
    if (!holds(*entry) || entry->type == types::kGptReserved) continue;
    if (!mayHoldVolumes(*entry)) return entry.get();
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries)
      if (holds(*volume)) return volume.get();
  }
  return nullptr;
}

// Everything that can be checked before the first write.
Failure checkFits(Drive& drive, const TableBackup& backup, const RestoreOptions& options) {
  const u64 diskSectors = drive.lastLba() + 1;
  if (backup.sectorSizeBytes != drive.sectorSize()) return Error::backupOfOtherDisk;
  const bool isWhole = !backup.sectors.empty() && backup.sectors.front().lba == 0 &&
                       std::ranges::all_of(backup.sectors, [&](const TableSector& sector) {
                         return sector.bytes.size() == backup.sectorSizeBytes;
                       });
  if (!isWhole) return Error::corrupt;
  if (isOfOtherDisk(drive, backup) && !options.otherDisk) return Error::backupOfOtherDisk;
  if (backup.diskSectors != diskSectors && endsBehind(mbrOf(backup), diskSectors))
    return Error::corrupt;
  // Only sectors that the table in the backup itself leads to are written.
  BackupDisk disk(backup);
  std::set<u64> lbas;
  Host& host = drive.tableContext().host;
  Content fileSystem;
  if (!identify(disk, 0, fileSystem))
    lbas = wholeDiskSectors(disk, diskSectors);
  else if (findTableSectors(disk, diskSectors, host, lbas))
    return Error::corrupt;
  const bool leadsToAll = std::ranges::all_of(
      backup.sectors, [&](const TableSector& sector) { return lbas.contains(sector.lba); });
  if (!leadsToAll) return Error::corrupt;
  return overwrittenByRestore(drive, backup) != nullptr ? Error::sectorsInUse : Error::none;
}

Failure writeAll(DiskDevice& disk, std::span<const TableSector> sectors) {
  for (const TableSector& sector : sectors)
    if (const Failure failed = disk.writeSectors(sector.lba, sector.bytes.data(), 1)) return failed;
  return {};
}

// The old MBR stands, and so must what it leads to.
Failure putBack(DiskDevice& disk, std::span<const TableSector> old, const Failure& failed) {
  const Failure written = writeAll(disk, old);
  const bool isBack = !disk.flush() && !written;
  return failed.as(isBack ? Error::write : Error::writeFailedTableUnknown);
}

}  // namespace

std::string tableOwnerName(DiskDevice& disk) {
  std::string name = disk.model();
  if (!disk.serial().empty()) name += (name.empty() ? "" : " ") + disk.serial();
  return name.empty() ? disk.traits().path : name;
}

Failure takeTableBackup(Drive& drive, u64 secondsSinceEpoch, TableBackup& backup) {
  DiskDevice& disk = drive.disk();
  TableBackup taken;
  taken.sectorSizeBytes = drive.sectorSize();
  taken.diskSectors = drive.lastLba() + 1;
  taken.savedAt = secondsSinceEpoch;
  taken.diskName = tableOwnerName(disk);
  const bool isWholeDisk = drive.scheme() == Scheme::wholeDisk;
  std::set<u64> lbas;
  if (isWholeDisk) {
    lbas = wholeDiskSectors(disk, taken.diskSectors);
  } else {
    Host& host = drive.tableContext().host;
    if (const Failure failed = findTableSectors(disk, taken.diskSectors, host, lbas)) return failed;
  }
  if (const Failure failed = readTableSectors(disk, lbas, taken.sectors)) return failed;
  if (!isWholeDisk) taken.diskSignature = mbrOf(taken).diskSignature;
  backup = std::move(taken);
  return Error::none;
}

bool isOfOtherDisk(Drive& drive, const TableBackup& backup) {
  const u64 diskSectors = drive.lastLba() + 1;
  const std::optional<bool> isSame = hasIdentityOf(drive, backup);
  return diskSectors < backup.diskSectors || !isSame.value_or(diskSectors == backup.diskSectors);
}

const PartitionEntry* overwrittenByRestore(Drive& drive, const TableBackup& backup) {
  if (drive.table().isWholeDisk()) return nullptr;
  for (const TableSector& sector : backup.sectors)
    if (const PartitionEntry* entry = partitionAt(drive.table(), sector.lba)) return entry;
  return nullptr;
}

Failure restoreTable(Drive& drive, const TableBackup& backup, const RestoreOptions& options) {
  if (const Failure failed = checkFits(drive, backup, options)) return failed;
  DiskDevice& disk = drive.disk();
  const auto wanted = std::span(backup.sectors).subspan(1);
  std::set<u64> lbas;
  for (const TableSector& sector : wanted) lbas.insert(sector.lba);
  std::vector<TableSector> old;
  if (const Failure failed = readTableSectors(disk, lbas, old)) return failed;
  TableSectorImage mbr(disk, 0);
  if (const Failure failed = mbr.load()) return failed;
  std::ranges::copy(backup.sectors.front().bytes, mbr.bytes().begin());

  if (const Failure failed = writeAll(disk, wanted)) return putBack(disk, old, failed);
  if (const Failure failed = mbr.store())
    return failed == Error::write ? putBack(disk, old, failed) : failed;
  drive.setFlags(kDriveChanged, kDriveChanged);
  // What is left of a GPT at the end of the disk would be taken for the table by others.
  const bool endsGpt = drive.isGpt() && !lbas.contains(drive.lastLba());
  return endsGpt ? endGptBackup(disk) : Failure();
}

Failure openTableBackup(const TableBackup& backup, Drive& like, std::unique_ptr<Drive>& drive) {
  return Drive::open(std::make_shared<BackupDisk>(backup), like.tableContext().host, {}, drive);
}

}  // namespace tallowin
