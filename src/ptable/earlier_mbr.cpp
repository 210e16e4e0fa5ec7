#include "ptable/earlier_mbr.h"

#include <algorithm>
#include <set>

#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"
#include "ptable/convert_common.h"
#include "ptable/gpt/gpt_types.h"
#include "ptable/sector_swap.h"

namespace tallowin {
namespace {

using Extent = std::pair<u64, u64>;

Extent extentOf(const PartitionEntry& entry) { return {entry.startSector, entry.endSector}; }

// Calls visit(entry) for what holds data: volumes, and partitions that hold none.
template <typename Visit>
void forEachLeaf(const Drive& drive, Visit visit) {
  for (const auto& entry : drive.table().entries) {
    if (entry->isFree()) continue;
    if (!entry->volumes) visit(*entry, nullptr);
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries)
      if (!volume->isFree()) visit(*volume, entry.get());
  }
}

bool hasSamePartitions(Drive& drive, const Drive& earlier) {
  std::set<Extent> now;
  for (const TableEntry* entry : entriesToKeep(drive)) now.insert(extentOf(*entry));
  std::set<Extent> then;
  forEachLeaf(earlier, [&](const PartitionEntry& entry, const TableEntry*) {
    then.insert(extentOf(entry));
  });
  return now == then;
}

// Whether an old type byte still says what the GPT says and what the partition holds.
bool isStillTrue(u16 type, const PartitionEntry& now) {
  if (gptTypeFor(type) != now.typeGuid) return false;
  if (now.type == types::kGptEntry || now.type == types::kFree) return true;
  return types::isFat(type) == types::isFat(now.type) &&
         types::isNtfs(type) == types::isNtfs(now.type);
}

const TableEntry* partitionAt(const Drive& drive, const PartitionEntry& earlier) {
  const auto& entries = drive.table().entries;
  const auto found = std::ranges::find_if(entries, [&](const auto& entry) {
    return !entry->isFree() && extentOf(*entry) == extentOf(earlier);
  });
  return found != entries.end() ? found->get() : nullptr;
}

class Maker {
 public:
  Maker(Drive& drive, Drive& earlier, TableBackup backup)
      : drive_(drive), earlier_(earlier), backup_(std::move(backup)) {}

  EarlierMbr make() {
    forEachLeaf(earlier_, [&](const PartitionEntry& entry, const TableEntry* container) {
      const TableEntry* now = partitionAt(drive_, entry);
      if (now != nullptr && !isStillTrue(entry.type, *now)) setType(entry, container, *now);
    });
    EarlierMbr made;
    made.savedAt = backup_.savedAt;
    u64 trackEnd = drive_.firstUsableSector();
    if (const auto used = earlier_.usedRegion()) trackEnd = std::min(trackEnd, used->first);
    for (TableSector& sector : backup_.sectors) {
      if (sector.lba == 0)
        made.mbr = std::move(sector);
      else if (sector.lba < trackEnd)
        made.track.push_back(std::move(sector));
      else if (isInContainer(sector.lba))
        made.chain.push_back(std::move(sector));
    }
    return made;
  }

 private:
  bool isInContainer(u64 lba) const {
    return std::ranges::any_of(earlier_.table().entries, [lba](const auto& entry) {
      return entry->volumes && entry->startSector <= lba && lba <= entry->endSector;
    });
  }

  // Of a volume in its boot record, else in the MBR.
  void setType(const PartitionEntry& entry, const TableEntry* container, const TableEntry& now) {
    const auto* volume = dynamic_cast<const VolumeEntry*>(&entry);
    const u64 lba = volume != nullptr ? container->startSector + volume->ebr : 0;
    const auto sector = std::ranges::find(backup_.sectors, lba, &TableSector::lba);
    if (sector == backup_.sectors.end() || entry.mbrSlot >= kMbrSlots) return;
    auto& record = *recordAt<MbrRecord>(std::span<u8>(sector->bytes));
    record.slots[entry.mbrSlot].type = slotTypeOf(drive_, now);
  }

  Drive& drive_;
  Drive& earlier_;
  TableBackup backup_;
};

bool isOfThisDisk(const Drive& drive, const TableBackup& backup) {
  return backup.sectorSizeBytes == drive.sectorSize() &&
         backup.diskSectors == drive.lastLba() + 1 &&
         (backup.diskSignature == 0 || backup.diskSignature == drive.diskSignature());
}

std::optional<EarlierMbr> fitting(Drive& drive, TableBackup backup) {
  if (!isOfThisDisk(drive, backup)) return std::nullopt;
  std::unique_ptr<Drive> earlier;
  if (openTableBackup(backup, drive, earlier)) return std::nullopt;
  const bool isMbr = earlier->scheme() == Scheme::mbr && !earlier->changesAllowed() &&
                     earlier->table().status == 0 && !earlier->table().hasErrors();
  if (!isMbr || !hasSamePartitions(drive, *earlier)) return std::nullopt;
  return Maker(drive, *earlier, std::move(backup)).make();
}

// Only what differs.
Failure put(DiskDevice& disk, std::span<const TableSector> sectors) {
  std::vector<u8> now(disk.sectorSize());
  for (const TableSector& sector : sectors) {
    if (!disk.readSectors(sector.lba, now.data(), 1) && now == sector.bytes) continue;
    if (const Failure failed = disk.writeSectors(sector.lba, sector.bytes.data(), 1)) return failed;
  }
  return {};
}

}  // namespace

std::optional<EarlierMbr> findEarlierMbr(Drive& drive, const std::string& folder) {
  if (!drive.isGpt()) return std::nullopt;
  for (const std::string& path : keptTablesOf(drive, folder)) {
    TableBackup backup;
    if (readTableBackup(path, backup)) continue;
    if (auto earlier = fitting(drive, std::move(backup))) return earlier;
  }
  return std::nullopt;
}

Failure restoreEarlierMbr(Drive& drive, const EarlierMbr& earlier) {
  DiskDevice& disk = drive.disk();
  // For the GPT the boot records of volumes lie in free space.
  if (const Failure failed = put(disk, earlier.chain)) return failed.as(Error::write);
  TableSectorImage mbr(disk, 0);
  if (const Failure failed = mbr.load()) return failed;
  std::ranges::copy(earlier.mbr.bytes, mbr.bytes().begin());
  if (const Failure failed = mbr.store()) return failed;
  if (const Failure failed = put(disk, earlier.track)) return failed.as(Error::writeFailedNewTable);
  return endGptBackup(disk);
}

}  // namespace tallowin
