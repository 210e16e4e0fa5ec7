#include "ops/resize_operation.h"

#include <algorithm>
#include <optional>

#include "disk/write_cache.h"
#include "ops/format_operation.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

// Whether the partition may end there.
Failure checkExtent(Drive& drive, const PartitionEntry& entry, u64 endSector) {
  if (endSector == entry.endSector) return {};
  const SectorRegion region = drive.freeRegionAround(entry);
  const bool isInside = entry.startSector <= endSector && endSector <= region.last;
  const bool hasTable = drive.scheme() != Scheme::wholeDisk;
  return isInside && hasTable ? Failure() : Failure(Error::outsideUsableArea);
}

// What the table has to say afterwards.
EntryProperties propertiesAfter(Drive& drive, const PartitionEntry& entry, u16 type,
                                u64 endSector) {
  EntryProperties wanted;
  if (drive.scheme() == Scheme::wholeDisk) return wanted;
  const bool hasType = !drive.isGpt() || entry.mbrSlot != kNoMbrSlot;
  const u16 stored =
      drive.typeForEnd(types::isHidden(entry.type) ? types::hide(type) : type, endSector);
  if (hasType && type != 0 && stored != entry.mbrType) wanted.type = stored;
  if (endSector != entry.endSector) wanted.endSector = endSector;
  return wanted;
}

ResizePhase phaseOf(const Failure& failure, const ResizeReport& report) {
  if (report.touched) return ResizePhase::resize;
  return failure == Error::corrupt ? ResizePhase::check : ResizePhase::planning;
}

// The engine, with its small writes held back; the caches hold nothing of the volume afterwards.
void resizeVolume(Drive& drive, const PartitionEntry& entry, const FileSystemKind& kind,
                  const ResizeOrder& order, Job& job, ResizeOutcome& outcome) {
  std::optional<WriteCache> cache;
  if (order.useCache) cache.emplace(drive.disk());
  DiskDevice& disk = cache ? static_cast<DiskDevice&>(*cache) : drive.disk();
  const SectorRange range{disk, entry.startSector, entry.sectorCount()};
  const ResizeWish wish = resizeWishFor(drive, entry, order);
  outcome.failure = kind.resize(range, entry.type, wish, job, outcome.report);
  outcome.phase = outcome.failure ? phaseOf(outcome.failure, outcome.report) : ResizePhase::resize;
  if (cache) {
    const Failure unflushed = cache->flush();
    if (unflushed && outcome.report.resized) {
      outcome.failure = unflushed;
      outcome.phase = ResizePhase::writeBack;
      outcome.lostSectors = cache->lostSectors();
    }
  }
  drive.disk().dropCachesOf(entry.startSector,
                            std::max(entry.endSector, order.endSector) + 1 - entry.startSector);
}

}  // namespace

ResizeWish resizeWishFor(Drive& drive, const PartitionEntry& entry, const ResizeOrder& order) {
  ResizeWish wish;
  wish.sectors = order.endSector + 1 - entry.startSector;
  wish.clusterBytes = order.clusterBytes;
  wish.forcedType = order.forcedType;
  wish.geometry = drive.geometry();
  const u64 gap = entry.isVolume() ? drive.volumeGap(entry) : 0;
  wish.hiddenSectors = gap != 0 ? gap : entry.startSector + drive.disk().traits().startOffset;
  return wish;
}

Failure planEntryResize(Drive& drive, const PartitionEntry& entry, const FileSystemKind& kind,
                        const ResizeOrder& order, ResizePlan& plan) {
  if (const Failure failed = checkExtent(drive, entry, order.endSector)) return failed;
  return kind.planResize(rangeOf(drive, entry), entry.type, resizeWishFor(drive, entry, order),
                         plan);
}

ResizeOutcome resizeEntry(TableChange& change, Drive& drive, u64 startSector,
                          const FileSystemKind& kind, const ResizeOrder& order, Job& job) {
  ResizeOutcome outcome;
  const PartitionEntry* entry = findByStart(drive, startSector);
  outcome.failure =
      entry ? checkExtent(drive, *entry, order.endSector) : Failure(Error::tableChangedMeanwhile);
  if (outcome.failure) return outcome;
  resizeVolume(drive, *entry, kind, order, job, outcome);
  if (!outcome.report.resized || outcome.phase == ResizePhase::writeBack) return outcome;
  const EntryProperties wanted =
      propertiesAfter(drive, *entry, outcome.report.type, order.endSector);
  const Failure changed =
      change.end(wanted == EntryProperties{} ? Failure() : drive.changeProperties(*entry, wanted));
  if (changed) {
    outcome.failure = changed;
    outcome.phase = ResizePhase::resize;
  } else if (outcome.failure) {
    outcome.phase = ResizePhase::finalCheck;
  }
  return outcome;
}

}  // namespace tallowin
