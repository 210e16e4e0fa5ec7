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

// Marks the entries of runs that begin before the one before them ends, and finds the gaps from
// `first` to `end`; behind an entry in error nothing is known to be free.
std::vector<Gap> markOverlaps(std::vector<Run> runs, u64 first, u64 end) {
  std::ranges::stable_sort(runs, {}, &Run::start);
  std::vector<Gap> gaps;
  u64 nextFree = first;
  u64 nextGap = first;
  PartitionEntry* previous = nullptr;
  for (const Run& run : runs) {
    if (run.start < nextFree) {
      run.entry->status |= kEntryOverlaps;
      if (previous != nullptr) previous->status |= kEntryOverlaps;
    } else {
      gaps.push_back({nextGap, run.start});
    }
    previous = run.entry;
    nextFree = run.end;
    nextGap = run.nextGap;
    if (run.entry->isInError()) break;
  }
  if (previous == nullptr || !previous->isInError()) gaps.push_back({nextGap, end});
  std::erase_if(gaps, [](const Gap& gap) { return gap.start >= gap.end; });
  return gaps;
}

// An EBR and its volume, which other programs part: one that deletes the first volume of a chain
// lets its EBR keep the second.
std::vector<Run> runsOf(const TableEntry& container, u64 ebrReserve) {
  const u64 room = container.sectorCount();
  std::vector<Run> runs;
  for (const auto& volume : container.volumes->entries) {
    const u64 ebr = std::min(volume->ebr, room);
    const u64 end = volume->endSector + 1 - container.startSector;
    runs.push_back({ebr, ebr + 1, ebr + ebrReserve, volume.get()});
    runs.push_back({volume->volumeStart, end, end, volume.get()});
  }
  return runs;
}

// Programs keep a track or 1 MiB between an EBR and its volume; nobody looks for room there.
u64 ebrReserve(const AlignmentRules& rules) {
  return std::max<u64>(trackUnit(rules), kMiB / std::max<u32>(1, rules.sectorSizeBytes));
}

}  // namespace

void checkTable(const DiskBounds& bounds, const AlignmentRules& rules, PartitionTable& table) {
  for (const auto& entry : table.entries) markAlone(bounds, *entry);
  std::vector<Run> runs;
  for (const auto& entry : table.entries)
    runs.push_back({entry->startSector, entry->endSector + 1, entry->endSector + 1, entry.get()});
  const std::vector<Gap> gaps =
      markOverlaps(std::move(runs), bounds.firstUsableSector, bounds.lastUsableSector + 1);
  for (const Gap& gap : gaps) {
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
  // What could not be read or understood may lie anywhere in the container.
  if (list.status != 0) {
    container.status |= kEntryBrokenChain;
    return;
  }
  const std::vector<Gap> gaps =
      markOverlaps(runsOf(container, ebrReserve(rules)), 0, container.sectorCount());
  VolumeGaps blocks(bounds, rules, table, container);
  for (const Gap& gap : gaps) blocks.add(gap.start, gap.end);
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
