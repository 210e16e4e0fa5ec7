#include "ptable/free_space.h"

#include <algorithm>
#include <optional>

#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr const char* kFreeBlockName = "-------";

bool hasNoExtent(const PartitionEntry& entry) {
  return entry.sectorCount() == 0 || entry.startSector > entry.endSector;
}

// Marks what can be said of one entry alone.
void markAlone(const DiskBounds& bounds, TableEntry& entry) {
  if (hasNoExtent(entry)) {
    entry.status |= kEntryImpossible;
  } else if (entry.endSector > bounds.lastLba && entry.type != types::kGptReserved) {
    // A protective entry is as large as a slot can say, whatever the size of the disk.
    entry.status |= kEntryOverlaps;
  }
}

// The end of a free block, one past it, for a gap that ends before `gapEnd`.
u64 blockEnd(const DiskBounds& bounds, const AlignmentRules& rules, u64 gapEnd) {
  return std::min(alignDown(rules, gapEnd), bounds.lastUsableSector + 1);
}

std::unique_ptr<TableEntry> freeBlock(const DiskBounds& bounds, const AlignmentRules& rules,
                                      u64 gapStart, u64 gapEnd) {
  const u64 firstAligned = firstAlignedSector(rules);
  const u64 start = gapStart <= firstAligned ? firstAligned : alignUp(rules, gapStart);
  const u64 end = blockEnd(bounds, rules, gapEnd);
  if (end == 0 || start >= end - 1) return nullptr;
  auto block = std::make_unique<TableEntry>();
  block->startSector = start;
  block->endSector = end - 1;
  block->name = kFreeBlockName;
  return block;
}

// Adds the free blocks of one extended partition.
class VolumeGaps {
 public:
  VolumeGaps(const DiskBounds& bounds, const AlignmentRules& rules, const PartitionTable& table,
             TableEntry& container)
      : bounds_(bounds), rules_(rules), table_(table), container_(container) {}

  // The gap from `gapStart` to before `gapEnd`, relative to the container. A link-only EBR in it
  // must stay where it is, so it parts the gap in two.
  void add(u64 gapStart, u64 gapEnd) {
    for (const u64 ebr : container_.volumes->emptyEbrs) {
      if (ebr < gapStart || ebr >= gapEnd) continue;
      addBlock(gapStart, ebr);
      gapStart = ebr;
    }
    addBlock(gapStart, gapEnd);
  }

 private:
  void addBlock(u64 gapStart, u64 gapEnd) {
    const u64 base = container_.startSector;
    const u64 ebr = alignUp(rules_, base + gapStart);
    const u64 start = ebr + trackUnit(rules_);
    const u64 end = blockEnd(bounds_, rules_, base + gapEnd);
    if (end == 0 || start >= end - 1) return;
    auto block = std::make_unique<VolumeEntry>();
    block->status = kEntryIsVolume;
    block->ebr = ebr - base;
    block->volumeStart = start - base;
    block->startSector = start;
    block->endSector = end - 1;
    block->name = kFreeBlockName;
    block->previousEbr = previousOf(block->ebr);
    block->id = lastId_ = unusedId(table_, lastId_);
    auto& entries = container_.volumes->entries;
    const auto at =
        std::upper_bound(entries.begin(), entries.end(), block->ebr,
                         [](u64 position, const auto& other) { return position < other->ebr; });
    entries.insert(at, std::move(block));
  }

  // The EBR that a new one at `position` would be linked behind: the nearest before it.
  u64 previousOf(u64 position) const {
    u64 previous = VolumeEntry::kNoPrevious;
    for (const u64 ebr : container_.volumes->chain) {
      if (ebr < position && (previous == VolumeEntry::kNoPrevious || ebr > previous))
        previous = ebr;
    }
    return previous;
  }

  const DiskBounds& bounds_;
  const AlignmentRules& rules_;
  const PartitionTable& table_;
  TableEntry& container_;
  PartitionId lastId_ = kFirstFreeBlockId;  // what comes before it is taken
};

void markVolumeAlone(const TableEntry& container, VolumeEntry& volume) {
  // An EBR in the volume's own first sector would be overwritten by its file system.
  if (volume.ebr >= volume.volumeStart || hasNoExtent(volume)) {
    volume.status |= kEntryImpossible;
  } else if (volume.endSector > container.endSector) {
    volume.status |= kEntryOverlaps;
  }
}

struct Gap {
  u64 start;
  u64 end;  // one past
};

// Sectors that an entry has.
struct Run {
  u64 start;
  u64 end;      // one past
  u64 nextGap;  // what is free behind it begins here
  PartitionEntry* entry;
};

// Marks the entries of all runs, by their start, that begin before `first` or share sectors with
// another entry's. Of those before a run the one that ends last is enough: what overlaps an earlier
// one as well overlaps that.
void markOverlaps(const std::vector<Run>& runs, u64 first) {
  const Run* last = nullptr;
  for (const Run& run : runs) {
    if (run.start < first) run.entry->status |= kEntryOverlaps;
    if (run.start >= run.end) continue;
    if (last != nullptr && run.start < last->end && run.entry != last->entry) {
      run.entry->status |= kEntryOverlaps;
      last->entry->status |= kEntryOverlaps;
    }
    if (last == nullptr || run.end > last->end) last = &run;
  }
}

// What no run covers from `first` to `end`; behind an entry in error nothing is known to be free.
std::vector<Gap> gapsBetween(const std::vector<Run>& runs, u64 first, u64 end) {
  std::vector<Gap> gaps;
  u64 nextGap = first;
  bool isKnown = true;
  for (const Run& run : runs) {
    gaps.push_back({nextGap, run.start});
    nextGap = run.nextGap;
    isKnown = !run.entry->isInError();
    if (!isKnown) break;
  }
  if (isKnown) gaps.push_back({nextGap, end});
  std::erase_if(gaps, [](const Gap& gap) { return gap.start >= gap.end; });
  return gaps;
}

// An EBR and its volume, which other programs part: one that deletes the first volume of a chain
// lets its EBR keep the second.
std::vector<Run> runsIn(const TableEntry& container, u64 ebrReserve) {
  const u64 room = container.sectorCount();
  std::vector<Run> runs;
  for (const auto& volume : container.volumes->entries) {
    const u64 ebr = std::min(volume->ebr, room);
    const u64 end = volume->endSector + 1 - container.startSector;
    runs.push_back({ebr, ebr + 1, ebr + ebrReserve, volume.get()});
    runs.push_back({volume->volumeStart, end, end, volume.get()});
  }
  std::ranges::stable_sort(runs, {}, &Run::start);
  return runs;
}

std::vector<Run> runsOf(const PartitionTable& table) {
  std::vector<Run> runs;
  for (const auto& entry : table.entries)
    runs.push_back({entry->startSector, entry->endSector + 1, entry->endSector + 1, entry.get()});
  std::ranges::stable_sort(runs, {}, &Run::start);
  return runs;
}

// A partition that reaches into the container may reach into a volume.
void markVolumesInPartitions(const PartitionTable& table, TableEntry& container) {
  for (const auto& entry : table.entries) {
    if (entry.get() == &container || entry->isFree() || hasNoExtent(*entry)) continue;
    for (const auto& volume : container.volumes->entries)
      if (volume->startSector <= entry->endSector && entry->startSector <= volume->endSector)
        volume->status |= kEntryOverlaps;
  }
}

// Programs keep a track or 1 MiB between an EBR and its volume; nobody looks for room there.
u64 ebrReserve(const AlignmentRules& rules) {
  return std::max<u64>(trackUnit(rules), kMiB / std::max<u32>(1, rules.sectorSizeBytes));
}

}  // namespace

void checkTable(const DiskBounds& bounds, const AlignmentRules& rules, PartitionTable& table) {
  for (const auto& entry : table.entries) markAlone(bounds, *entry);
  const std::vector<Run> runs = runsOf(table);
  markOverlaps(runs, bounds.firstUsableSector);
  for (const Gap& gap : gapsBetween(runs, bounds.firstUsableSector, bounds.lastUsableSector + 1)) {
    auto block = freeBlock(bounds, rules, gap.start, gap.end);
    if (!block) continue;
    block->id = unusedId(table, kFirstFreeBlockId);
    insertSorted(table, std::move(block));
  }
}

void checkVolumes(const DiskBounds& bounds, const AlignmentRules& rules,
                  const PartitionTable& table, TableEntry& container) {
  const VolumeList& list = *container.volumes;
  for (const auto& volume : list.entries) markVolumeAlone(container, *volume);
  markVolumesInPartitions(table, container);
  const std::vector<Run> runs = runsIn(container, ebrReserve(rules));
  markOverlaps(runs, 0);
  // What could not be read or understood may lie anywhere in the container.
  if (list.status != 0) {
    container.status |= kEntryBrokenChain;
    return;
  }
  if (container.isInError()) return;
  VolumeGaps blocks(bounds, rules, table, container);
  for (const Gap& gap : gapsBetween(runs, 0, container.sectorCount()))
    blocks.add(gap.start, gap.end);
}

void withholdStrays(PartitionTable& table) {
  u64 reachedFrom = kAllOnes64;
  for (const auto& entry : table.entries)
    if (entry->volumes && entry->volumes->leavesContainer)
      reachedFrom = std::min(reachedFrom, entry->endSector);
  std::erase_if(table.entries, [reachedFrom](const auto& entry) {
    return entry->isFree() && entry->endSector > reachedFrom;
  });
}

bool isAlignedTo1MiB(const PartitionTable& table, const Geometry& geometry, u32 sectorSizeBytes) {
  const u64 cylinder = std::max<u64>(1, geometry.cylinderSectors());
  const u64 perMiB = std::max<u64>(1, kMiB / std::max<u32>(1, sectorSizeBytes));
  const auto isMiBOnly = [&](u64 lba) { return lba % perMiB == 0 && lba % cylinder != 0; };
  return std::any_of(table.entries.begin(), table.entries.end(), [&](const auto& entry) {
    return isMiBOnly(entry->startSector) || isMiBOnly(entry->endSector + 1);
  });
}

}  // namespace tallowin
