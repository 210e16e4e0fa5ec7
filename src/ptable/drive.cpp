#include "ptable/drive.h"

#include <algorithm>

#include "disk/disk_handles.h"
#include "disk/geometry_modes.h"
#include "disk/mbr_record.h"
#include "disk/overlay_disk.h"
#include "probe/identify.h"
#include "probe/type_catalogue.h"
#include "ptable/embr/embr_scheme.h"
#include "ptable/free_space.h"
#include "ptable/gpt/gpt_scheme.h"
#include "ptable/mbr/ebr_reader.h"
#include "ptable/mbr/ebr_writer.h"
#include "ptable/mbr/mbr_edit.h"
#include "ptable/mbr/slot.h"
#include "ptable/old_signatures.h"
#include "ptable/scheme.h"
#include "ptable/sector_swap.h"
#include "ptable/track_content.h"

namespace tallowin {
namespace {

constexpr u64 kHighestMbrSector = kAllOnes32;

// Whether the slots of a boot sector name partitions behind it too. Formatters of whole disks may
// put one slot there that begins at sector 0; where there is text instead, no boot indicator is
// one.
bool holdsPartitionsToo(DiskDevice& disk, u64 lastLba) {
  std::vector<u8> sector(disk.sectorSize());
  if (disk.readSectors(0, sector.data(), 1)) return false;
  const MbrRecord& mbr = *recordAt<MbrRecord>(std::span<const u8>(sector));
  const auto hasIndicator = [](const MbrSlotRecord& slot) {
    return (slot.bootIndicator & 0x7F) == 0;
  };
  const auto isPartition = [lastLba](const MbrSlotRecord& slot) {
    return slot.type != 0 && slot.startLba != 0 && slot.sectorCount != 0 &&
           slot.startLba <= lastLba;
  };
  return mbr.signature.isValid() && std::ranges::all_of(mbr.slots, hasIndicator) &&
         std::ranges::any_of(mbr.slots, isPartition);
}

// The first sectors of a disk, as far as any scheme looks at them.
std::vector<u8> readTrack(DiskDevice& disk, u64 sectors) {
  constexpr u64 kTrackBytes = 32 * kKiB;
  // A bad sector in the track must not hide the table, so the first ones are tried alone then.
  constexpr u64 kNeededSectors = 3;
  const u32 sectorSize = disk.sectorSize();
  const u64 wanted = std::min<u64>(sectors, std::max<u64>(1, kTrackBytes / sectorSize));
  std::vector<u8> track(wanted * sectorSize);
  if (disk.readSectors(0, track.data(), wanted) == Error::none) return track;
  track.assign(std::min(wanted, kNeededSectors) * sectorSize, 0);
  if (disk.readSectors(0, track.data(), 1) != Error::none) return {};
  for (u64 lba = 1; lba < track.size() / sectorSize; ++lba) {
    u8* sector = track.data() + lba * sectorSize;
    if (disk.readSectors(lba, sector, 1) != Error::none) std::fill_n(sector, sectorSize, u8{0});
  }
  return track;
}

}  // namespace

Drive::Drive(std::shared_ptr<DiskDevice> disk, Host& host, const DriveOpenOptions& options)
    : disk_(std::move(disk)),
      host_(host),
      scheme_(tableSchemes().back()),
      table_(std::make_unique<PartitionTable>()),
      flags_(options.flags),
      driveNumber_(options.driveNumber),
      labelReader_(options.labelReader) {}

Failure Drive::open(std::shared_ptr<DiskDevice> disk, Host& host, const DriveOpenOptions& options,
                    std::unique_ptr<Drive>& drive) {
  std::unique_ptr<Drive> opened(new Drive(std::move(disk), host, options));
  if (!opened->prepare(options)) return Error::geometryNotAvailable;
  if (const Failure error = opened->reread(); error != Error::none) return error;
  drive = std::move(opened);
  return Error::none;
}

Failure Drive::openOn(std::shared_ptr<DiskDevice> disk, std::unique_ptr<Drive>& drive) const {
  constexpr u32 kOfOpening = kDriveReadVolumes | kDrivePreferLabels | kDriveSequentialIds |
                             kDriveWholeDiskAllowed | kDriveAlignOnEnd | kDriveChsForceEnd |
                             kDriveChsEndIfTruncated | kDriveGeometryModeMask;
  return open(std::move(disk), host_,
              {flags_ & kOfOpening, geometry_, alignment_, driveNumber_, labelReader_}, drive);
}

// Size, geometry, alignment and BIOS number; false when size or geometry cannot be had.
bool Drive::prepare(const DriveOpenOptions& options) {
  const std::optional<u64> sectors = disk_->sectorCount();
  if (!sectors || *sectors == 0 || sectorSize() < sizeof(MbrRecord)) return false;
  lastLba_ = *sectors - 1;
  lastUsableSector_ = std::min(lastLba_, kHighestMbrSector);
  geometry_ = geometryForMode(*disk_, (flags_ & kDriveGeometryModeMask) >> kDriveGeometryModeShift);
  setGeometry(options.geometryOverride);
  if (geometry_.sectorsPerTrack == 0) return false;
  static_cast<void>(setAlignment(options.alignment));
  biosNumber_ = DiskHandles::biosNumberOf(driveNumber_, *disk_);
  return true;
}

bool Drive::setGeometry(Geometry geometry) {
  constexpr u8 kMostSectorsPerTrack = 63;
  const Geometry before = geometry_;
  if (geometry.maxCylinder != 0) geometry_.maxCylinder = geometry.maxCylinder;
  if (geometry.maxHead != 0) geometry_.maxHead = geometry.maxHead;
  if (geometry.sectorsPerTrack != 0) geometry_.sectorsPerTrack = geometry.sectorsPerTrack;
  geometry_.sectorsPerTrack = std::min(geometry_.sectorsPerTrack, kMostSectorsPerTrack);
  lastChsSector_ = geometry_.sectorsPerTrack == 0 ? 0 : geometry_.totalSectors() - 1;
  return geometry_ != before;
}

bool Drive::setAlignment(i64 value) {
  if (value == AlignmentRules::kDefaultUnit || value == AlignmentRules::kCylinderUnit) {
    alignment_ = value;
    return true;
  }
  u64 unit = static_cast<u64>(value);
  if (value < 0) {
    const u64 bytes = 0 - unit;
    unit = bytes / sectorSize() + (bytes % sectorSize() != 0 ? 1 : 0);
  }
  const bool isPowerOfTwo = (unit & (unit - 1)) == 0;
  if (!isPowerOfTwo || unit >= lastUsableSector_) return false;
  alignment_ = static_cast<i64>(unit);
  return true;
}

AlignmentRules Drive::alignment() const {
  AlignmentRules rules;
  rules.explicitUnit = alignment_;
  rules.isGpt = isGpt();
  rules.hasTable = table_->slots != 0;
  rules.sectorSizeBytes = disk_->sectorSize();
  rules.firstUsableSector = firstUsableSector_;
  rules.geometry = geometry_;
  return rules;
}

TableContext Drive::tableContext() const {
  return {*disk_, geometry_, lastLba_, flags_, biosNumber_, host_, labelReader_};
}

Failure Drive::reread() {
  TableReading reading;
  reading.lastUsableSector = std::min(lastLba_, kHighestMbrSector);
  readTable(reading);
  adopt(std::move(reading));
  flags_ = (flags_ & ~u32{kDriveChanged}) | kDriveReread;
  return Error::none;
}

void Drive::readTable(TableReading& reading) {
  scheme_ = tableSchemes().back();
  Content content;
  if (identify(*disk_, 0, content) == Error::none) {
    addWholeDisk(contentType(content.code).value_or(types::kUntoldContent), reading);
    return;
  }
  const std::vector<u8> track = readTrack(*disk_, lastLba_ + 1);
  if (track.empty()) {
    reading.table.status |= kTableUnreadable;
    return;
  }
  const TableContext context = tableContext();
  scheme_ = *std::ranges::find_if(tableSchemes(), [&](const TableScheme* scheme) {
    return scheme->read(context, track, reading);
  });
}

void Drive::addWholeDisk(u16 type, TableReading& reading) const {
  reading.table.slots = 0;
  if ((flags_ & kDriveWholeDiskAllowed) == 0) {
    reading.table.status |= kTableNone;
    return;
  }
  auto volume = std::make_unique<TableEntry>();
  volume->startSector = 0;
  volume->endSector = lastLba_;
  volume->type = type;
  volume->mbrType = type;
  volume->tableIndex = 0;
  volume->id = kFirstFreeBlockId;
  const std::string label = tableContext().labelOf(*volume);
  volume->setName(!label.empty() ? label : kUnlabelledWholeDisk);
  reading.table.status |= kTableWholeDisk;
  if (holdsPartitionsToo(*disk_, lastLba_)) reading.table.status |= kTableBesideVolume;
  reading.table.usedSlots = 1;
  reading.table.entries.push_back(std::move(volume));
}

// Takes over what was read, with volumes, checks and free blocks.
void Drive::adopt(TableReading reading) {
  diskSignature_ = reading.diskSignature;
  diskGuid_ = reading.diskGuid;
  gptHealth_ = reading.gptHealth;
  firstUsableSector_ = reading.firstUsableSector;
  lastUsableSector_ = reading.lastUsableSector;
  constexpr u32 kFound = kDriveGpt | kDriveEmbr | kDriveAligned1MiB;
  u32 found = 0;
  if (scheme_->kind() == Scheme::gpt) found |= kDriveGpt;
  if (scheme_->kind() == Scheme::embr) found |= kDriveEmbr;
  if (isAlignedTo1MiB(reading.table, geometry_, sectorSize())) found |= kDriveAligned1MiB;
  setFlags(kFound, found);
  table_ = std::make_unique<PartitionTable>(std::move(reading.table));

  const bool hasTop = table_->slots != 0 && (table_->status & kTableUnreadable) == 0;
  if ((flags_ & kDriveReadVolumes) != 0 && hasTop) {
    for (const auto& entry : table_->entries)
      if (mayHoldVolumes(*entry)) readVolumes(tableContext(), *entry);
  }
  if (hasTop) addFreeBlocks();
}

// Checks and free blocks. Of a table that is only shown no free block is: what its slots leave
// over may belong to partitions that they do not name.
void Drive::addFreeBlocks() {
  const DiskBounds bounds{firstUsableSector_, lastUsableSector_, lastLba_};
  const AlignmentRules rules = alignment();
  checkTable(bounds, rules, *table_);
  for (const auto& entry : table_->entries)
    if (entry->volumes) checkVolumes(bounds, rules, *table_, *entry);
  withholdStrays(*table_);
  if (!changesAllowed()) return;
  const auto isFreeBlock = [](const auto& entry) { return entry->isFree(); };
  std::erase_if(table_->entries, isFreeBlock);
  for (const auto& entry : table_->entries)
    if (entry->volumes) std::erase_if(entry->volumes->entries, isFreeBlock);
}

Scheme Drive::scheme() const { return table_->slots == 0 ? Scheme::wholeDisk : scheme_->kind(); }

const char* Drive::schemeName() const {
  switch (scheme()) {
    case Scheme::mbr:
      return "MBR";
    case Scheme::gpt:
      return "GPT";
    case Scheme::embr:
      return "EMBR";
    case Scheme::wholeDisk:
      break;
  }
  return "VOL";
}

std::string Drive::changeRefusal() const {
  if (!table_->isBesideVolume()) return scheme_->changeRefusal();
  return "The first sector of this disk is the boot sector of a file system and a partition\n"
         "table at once, and other programs may go by the table. Nothing is changed as long\n"
         "as both are there. View MBR ('tallowinctl mbr') does away with one: delete its entries "
         "to keep\n"
         "the file system, or install boot code to keep the partitions.";
}

bool Drive::isFirstBiosDisk() const { return biosNumber_ == kFirstBiosDisk; }

std::string Drive::schemeChangeRefusal() const {
  return isEmbr() && isFirstBiosDisk()
             ? "The first disk keeps its EMBR, because the boot manager starts from there."
             : changeRefusal();
}

Failure Drive::changesAllowed() const {
  return changeRefusal().empty() ? Error::none : Error::tableUnreadable;
}

Failure Drive::checkUnchanged() const {
  if (table_->isWholeDisk()) {
    Content content;
    const Failure failed = identify(*disk_, 0, content);
    if (failed) return failed == Error::read ? failed : Failure(Error::tableChangedMeanwhile);
    const u16 type = contentType(content.code).value_or(types::kUntoldContent);
    return type == table_->entries.front()->type ? Error::none : Error::tableChangedMeanwhile;
  }
  if (table_->status != 0) return Error::tableReadFailed;
  const TableContext context = tableContext();
  if (const Failure failed = scheme_->checkUnchanged(context, *table_)) return failed;
  for (const auto& entry : table_->entries) {
    if (!entry->volumes) continue;
    if (const Failure failed = checkChainUnchanged(context, *entry)) return failed;
  }
  return {};
}

Failure Drive::checkChange() const {
  if (const Failure failed = changesAllowed()) return failed;
  if (table_->slots == 0 || table_->status != 0) return Error::unsupportedForm;
  return checkUnchanged();
}

// Whenever the new table may be on the disk, the model is out of date.
Failure Drive::finishChange(Failure error) {
  const bool mayBeNew = error == Error::none || error == Error::writeFailedNewTable ||
                        error == Error::writeFailedTableUnknown;
  if (mayBeNew) flags_ |= kDriveChanged;
  return error;
}

NewEntry newEntryIn(const PartitionEntry& block) {
  NewEntry entry{.startSector = block.startSector, .endSector = block.endSector};
  if (const auto* inner = dynamic_cast<const VolumeEntry*>(&block))
    entry.ebrSector = block.startSector - (inner->volumeStart - inner->ebr);
  return entry;
}

Failure Drive::add(const NewEntry& entry, TrackContent content) {
  if (const Failure failed = checkChange()) return failed;
  return finishChange(entry.ebrSector ? addVolumeOf(entry, content)
                                      : scheme_->add(tableContext(), entry, content));
}

Failure Drive::addVolumeOf(const NewEntry& entry, TrackContent content) {
  const TableEntry* container = containerAt(*entry.ebrSector);
  if (container == nullptr) return Error::outsideUsableArea;
  const bool isEmpty =
      !container->isInError() &&
      std::ranges::all_of(container->volumes->entries, [](const auto& e) { return e->isFree(); });
  if (isEmpty && content == TrackContent::keep && namedContainerContent(*disk_, *container))
    return Error::sectorsInUse;
  return addVolume(tableContext(), *container, entry);
}

Failure Drive::remove(const PartitionEntry& entry) {
  if (table_->isWholeDisk()) {
    if (const Failure failed = changesAllowed()) return failed;
    if (const Failure failed = checkUnchanged()) return failed;
    return finishChange(removeWholeDiskVolume(*disk_));
  }
  if (const Failure error = checkChange(); error != Error::none) return error;
  if (const auto* volume = dynamic_cast<const VolumeEntry*>(&entry)) {
    const TableEntry* container = containerOf(entry);
    if (container == nullptr) return Error::tableChangedMeanwhile;
    return finishChange(removeVolume(tableContext(), *container, *volume));
  }
  return finishChange(scheme_->remove(tableContext(), dynamic_cast<const TableEntry&>(entry)));
}

Failure Drive::changeProperties(const PartitionEntry& entry, const EntryProperties& wanted) {
  if (const Failure error = checkChange(); error != Error::none) return error;
  const auto* volume = dynamic_cast<const VolumeEntry*>(&entry);
  if (wanted.endSector) {
    const SectorRegion limits = endLimits(entry);
    if (*wanted.endSector < limits.first || *wanted.endSector > limits.last)
      return Error::outsideUsableArea;
  }
  if (volume == nullptr)
    return finishChange(
        scheme_->changeProperties(tableContext(), dynamic_cast<const TableEntry&>(entry), wanted));
  const TableEntry* container = containerOf(entry);
  if (container == nullptr) return Error::tableChangedMeanwhile;
  return finishChange(changeVolume(tableContext(), *container, *volume, wanted));
}

namespace {

bool isBroken(const PartitionEntry& entry) {
  const auto* top = dynamic_cast<const TableEntry*>(&entry);
  return entry.isInError() || (top != nullptr && top->volumes && top->volumes->isInError());
}

// The sectors of the new place that are not the partition's own already.
SectorRegion ownedAnew(const EntryMove& move) {
  if (move.newStart > move.oldStart)
    return {std::max(move.newStart, move.oldStart + move.sectorCount), move.newEnd()};
  return {move.newStart, std::min(move.newEnd(), move.oldStart - 1)};
}

}  // namespace

Failure Drive::whyNotMoved(const PartitionEntry& entry, const EntryMove& move) {
  const SectorRegion region = freeRegionAround(entry);
  const u64 gap = volumeGap(entry);
  if (move.newStart < gap || move.newStart - gap < region.first ||
      move.newStart > kAllOnes64 - move.sectorCount || move.newEnd() > region.last)
    return Error::outsideUsableArea;
  const bool hasSlot = !isGpt() || entry.mbrSlot != kNoMbrSlot;
  const TableEntry* container = containerOf(entry);
  const u64 base = container != nullptr ? container->startSector : 0;
  if (hasSlot && (!fitsSlot(base, move.newStart, move.newEnd()) || move.newEnd() > kAllOnes32))
    return Error::outsideUsableArea;
  const SectorRegion anew = ownedAnew(move);
  if (container == nullptr && !isGpt() && namedLoaderContent(*disk_, anew.first, anew.last))
    return Error::sectorsInUse;
  return {};
}

Failure Drive::tryOut(const std::function<Failure(Drive& copy)>& change) const {
  const auto overlay = std::make_shared<OverlayDisk>(*disk_);
  std::unique_ptr<Drive> copy;
  if (const Failure failed = openOn(overlay, copy)) return failed;
  return change(*copy);
}

Failure Drive::planMove(const PartitionEntry& entry, u64 newStart, EntryMove& move) {
  if (const Failure failed = checkChange()) return failed;
  if (entry.isFree() || entry.tableIndex < 0) return Error::unsupportedForm;
  if (isBroken(entry)) return Error::tableInError;
  EntryMove planned;
  planned.oldStart = entry.startSector;
  planned.newStart = newStart;
  planned.sectorCount = entry.sectorCount();
  if (const Failure failed = whyNotMoved(entry, planned)) return failed;
  planned.type =
      static_cast<u8>(typeForEnd(isEmbr() ? entry.type : entry.mbrType, planned.newEnd()));
  if (const auto* volume = dynamic_cast<const VolumeEntry*>(&entry)) {
    const TableEntry* container = containerOf(entry);
    if (container == nullptr || isBroken(*container)) return Error::tableInError;
    if (const Failure failed = planVolume(tableContext(), *container, *volume, planned))
      return failed;
  }
  // Nothing that the last step would refuse is found out only when the sectors have moved.
  if (const Failure failed = tryOut([&planned](Drive& copy) { return copy.finishMove(planned); }))
    return failed;
  move = std::move(planned);
  return {};
}

Failure Drive::finishMove(const EntryMove& move) {
  if (const Failure failed = changesAllowed()) return failed;
  const TableContext context = tableContext();
  if (const Failure failed = scheme_->checkUnchanged(context, *table_)) return failed;
  if (move.volume) return finishChange(moveVolume(context, move));
  const auto liesAt = [&](u64 start) {
    return std::ranges::find_if(table_->entries, [&](const auto& entry) {
      return !entry->isFree() && entry->startSector == start &&
             entry->sectorCount() == move.sectorCount;
    });
  };
  if (const auto entry = liesAt(move.oldStart); entry != table_->entries.end())
    return finishChange(scheme_->move(context, **entry, move));
  return liesAt(move.newStart) != table_->entries.end() ? Failure()
                                                        : Failure(Error::tableChangedMeanwhile);
}

Failure Drive::refreshChain(const PartitionEntry& container) {
  if (const Failure failed = checkChange()) return failed;
  const auto& top = dynamic_cast<const TableEntry&>(container);
  return finishChange(top.volumes ? refreshChs(tableContext(), top) : Error::unsupportedForm);
}

Failure Drive::truncateChain(const PartitionEntry& container) {
  if (const Failure failed = checkChange()) return failed;
  const auto& top = dynamic_cast<const TableEntry&>(container);
  return finishChange(top.volumes ? endChain(tableContext(), top) : Error::unsupportedForm);
}

Failure Drive::repairGpt() {
  if (!isGpt()) return Error::unsupportedForm;
  if (const Failure error = scheme_->checkUnchanged(tableContext(), *table_); error != Error::none)
    return error;
  return finishChange(repairGptOn(tableContext()));
}

Failure Drive::setLimitPrimaries(bool limit, bool makeFirstActive) {
  if (!isEmbr()) return Error::noTable;
  if (const Failure error = checkChange(); error != Error::none) return error;
  return finishChange(setEmbrLimit(tableContext(), limit, makeFirstActive));
}

Failure Drive::ensureDiskSignature(u32 value) {
  if (diskSignature_ != 0) return Error::none;
  if (const Failure error = checkChange(); error != Error::none) return error;
  if (value == 0) value = randomDiskSignature(host_);
  TableSectorImage image(*disk_, 0);
  if (const Failure error = image.load(); error != Error::none) return error;
  image.as<MbrRecord>().diskSignature = value;
  const Failure error = image.store();
  if (error == Error::none || error == Error::writeFailedNewTable) diskSignature_ = value;
  return error;
}

Settled Drive::settle() {
  DriveOpenOptions options;
  options.flags = flags_ | kDriveReadVolumes | kDriveWholeDiskAllowed;
  const Failure flushed = disk_->flush();
  disk_->dropCaches();
  // The kernel is told what is on the disk, not what the model had before the change.
  Drive now(disk_, host_, options);
  now.lastLba_ = lastLba_;
  now.geometry_ = geometry_;
  if (const Failure failed = now.reread()) return {failed, KernelTable::restartNeeded};
  if (now.changesAllowed()) return {flushed, KernelTable::upToDate};
  if (!now.isWhollyRead()) return {flushed, KernelTable::restartNeeded};
  return {flushed, disk_->tellKernel(now.kernelPartitions())};
}

// Whether no partition can be missing from the model because of a read error.
bool Drive::isWhollyRead() const {
  const auto isCut = [](const auto& entry) {
    return entry->volumes && (entry->volumes->status & kChainReadError) != 0;
  };
  return (table_->status & kTableUnreadable) == 0 && std::ranges::none_of(table_->entries, isCut);
}

}  // namespace tallowin
