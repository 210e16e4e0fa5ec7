#include "ptable/table_backup.h"

#include <algorithm>
#include <map>
#include <set>

#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_scheme.h"
#include "ptable/mbr/ebr_reader.h"
#include "ptable/mbr/mbr_scheme.h"
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
  bool firmwareGeometry(Geometry&) override { return false; }

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

void addGptBackupSectors(u64 diskSectors, u32 sectorSize, u32 entries, std::set<u64>& lbas) {
  const u64 entryBytes = u64{std::max(entries, kGptEntryCount)} * kGptEntrySize;
  const u64 run = 1 + (entryBytes + sectorSize - 1) / sectorSize;
  for (u64 back = 1; back <= std::min(run, diskSectors); ++back) lbas.insert(diskSectors - back);
}

// The sectors that make up the table on a disk, as far as it can be read.
Failure findTableSectors(DiskDevice& disk, u64 diskSectors, Host& host, std::set<u64>& lbas) {
  constexpr u64 kTrackBytes = 32 * kKiB;
  const u64 trackSectors = std::min(kTrackBytes / disk.sectorSize(), diskSectors);
  std::vector<u8> track(trackSectors * disk.sectorSize());
  if (disk.readSectors(0, track.data(), trackSectors) != Error::none) {
    track.resize(disk.sectorSize());
    if (disk.readSectors(0, track.data(), 1) != Error::none) return Error::read;
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
  if (hasProtectiveSlot(track))
    addGptBackupSectors(diskSectors, disk.sectorSize(), reading.table.slots, lbas);
  for (const auto& entry : reading.table.entries) {
    if (!mayHoldVolumes(*entry)) continue;
    readVolumes(context, *entry);
    addChainSectors(*entry, lbas);
  }
  std::erase_if(lbas, [&](u64 lba) { return lba >= diskSectors; });
  return Error::none;
}

Failure readTableSectors(DiskDevice& disk, const std::set<u64>& lbas,
                         std::vector<TableSector>& sectors) {
  for (const u64 lba : lbas) {
    TableSector sector{lba, std::vector<u8>(disk.sectorSize())};
    if (disk.readSectors(lba, sector.bytes.data(), 1) != Error::none) return Error::read;
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

// Everything that can be checked before the first write.
Failure checkFits(Drive& drive, const TableBackup& backup, const RestoreOptions& options) {
  const u64 diskSectors = drive.lastLba() + 1;
  const bool otherSize = backup.diskSectors != diskSectors;
  if (backup.sectorSizeBytes != drive.sectorSize()) return Error::backupOfOtherDisk;
  if (otherSize && !options.otherDiskSize) return Error::backupOfOtherDisk;
  const bool otherSignature =
      backup.diskSignature != 0 && backup.diskSignature != drive.diskSignature();
  if (otherSignature && !options.otherSignature) return Error::backupOfOtherDisk;
  const bool isWhole = !backup.sectors.empty() && backup.sectors.front().lba == 0 &&
                       std::ranges::all_of(backup.sectors, [&](const TableSector& sector) {
                         return sector.bytes.size() == backup.sectorSizeBytes;
                       });
  if (!isWhole) return Error::corrupt;
  if (otherSize && endsBehind(mbrOf(backup), diskSectors)) return Error::corrupt;
  // Only sectors that the table in the backup itself leads to are written.
  BackupDisk disk(backup);
  std::set<u64> lbas;
  Host& host = drive.tableContext().host;
  if (const Failure error = findTableSectors(disk, diskSectors, host, lbas); error != Error::none)
    return Error::corrupt;
  const bool leadsToAll = std::ranges::all_of(
      backup.sectors, [&](const TableSector& sector) { return lbas.contains(sector.lba); });
  return leadsToAll ? Error::none : Error::corrupt;
}

bool writeAll(DiskDevice& disk, std::span<const TableSector> sectors) {
  return std::ranges::all_of(sectors, [&](const TableSector& sector) {
    return disk.writeSectors(sector.lba, sector.bytes.data(), 1) == Error::none;
  });
}

// The old MBR stands, and so must what it leads to.
Failure putBack(DiskDevice& disk, std::span<const TableSector> old) {
  const bool isBack = writeAll(disk, old);
  return disk.flush() == Error::none && isBack ? Error::write : Error::writeFailedTableUnknown;
}

}  // namespace

Failure takeTableBackup(Drive& drive, u64 secondsSinceEpoch, TableBackup& backup) {
  DiskDevice& disk = drive.disk();
  TableBackup taken;
  taken.sectorSizeBytes = drive.sectorSize();
  taken.diskSectors = drive.lastLba() + 1;
  taken.savedAt = secondsSinceEpoch;
  taken.diskName = disk.model();
  if (!disk.serial().empty()) taken.diskName += (taken.diskName.empty() ? "" : " ") + disk.serial();
  if (taken.diskName.empty()) taken.diskName = disk.traits().path;
  std::set<u64> lbas = {0};
  if (drive.scheme() != Scheme::wholeDisk) {
    Host& host = drive.tableContext().host;
    if (const Failure error = findTableSectors(disk, taken.diskSectors, host, lbas);
        error != Error::none)
      return error;
  }
  if (const Failure error = readTableSectors(disk, lbas, taken.sectors); error != Error::none)
    return error;
  taken.diskSignature = mbrOf(taken).diskSignature;
  backup = std::move(taken);
  return Error::none;
}

Failure restoreTable(Drive& drive, const TableBackup& backup, const RestoreOptions& options) {
  if (const Failure error = checkFits(drive, backup, options); error != Error::none) return error;
  DiskDevice& disk = drive.disk();
  const auto wanted = std::span(backup.sectors).subspan(1);
  std::set<u64> lbas;
  for (const TableSector& sector : wanted) lbas.insert(sector.lba);
  std::vector<TableSector> old;
  if (const Failure error = readTableSectors(disk, lbas, old); error != Error::none) return error;
  TableSectorImage mbr(disk, 0);
  if (const Failure error = mbr.load(); error != Error::none) return error;
  std::ranges::copy(backup.sectors.front().bytes, mbr.bytes().begin());

  if (!writeAll(disk, wanted)) return putBack(disk, old);
  if (const Failure error = mbr.store(); error != Error::none)
    return error == Error::write ? putBack(disk, old) : error;
  drive.setFlags(kDriveChanged, kDriveChanged);
  // What is left of a GPT at the end of the disk would be taken for the table by others.
  const bool endsGpt = drive.isGpt() && !lbas.contains(drive.lastLba());
  const bool isEnded =
      !endsGpt || (invalidateGptBackup(disk) == Error::none && disk.flush() == Error::none);
  return isEnded ? Error::none : Error::writeFailedNewTable;
}

}  // namespace tallowin
