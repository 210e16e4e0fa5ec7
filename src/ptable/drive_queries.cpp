// What flows ask of an opened drive.
#include <algorithm>

#include "probe/type_catalogue.h"
#include "ptable/drive.h"
#include "ptable/scheme.h"

namespace tallowin {
namespace {

constexpr u32 kFirstVolumeNumber = 5;

// Calls visit(entry) for every row, also inside extended partitions, until it answers true.
template <typename Visit>
PartitionEntry* findEntry(const PartitionTable& table, Visit visit) {
  for (const auto& entry : table.entries) {
    if (visit(*entry)) return entry.get();
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries)
      if (visit(*volume)) return volume.get();
  }
  return nullptr;
}

// The place in the table that the kernel reads, from 0.
std::optional<u32> kernelSlot(const PartitionEntry& entry, bool isEmbr) {
  if (isEmbr) return entry.mbrSlot == kNoMbrSlot ? std::nullopt : std::optional<u32>(entry.mbrSlot);
  return entry.tableIndex < 0 ? std::nullopt : std::optional(static_cast<u32>(entry.tableIndex));
}

bool isCounted(const VolumeEntry& volume) { return !volume.isFree() && volume.sectorCount() != 0; }

// The volumes in the order in which the kernel counts them: by the slot of their extended
// partition, then along the chain. It passes over volumes without sectors.
std::vector<const VolumeEntry*> volumesInKernelOrder(const PartitionTable& table, bool isEmbr) {
  std::vector<const TableEntry*> containers;
  for (const auto& entry : table.entries)
    if (entry->volumes && kernelSlot(*entry, isEmbr)) containers.push_back(entry.get());
  std::ranges::sort(containers, {},
                    [isEmbr](const TableEntry* entry) { return kernelSlot(*entry, isEmbr); });
  std::vector<const VolumeEntry*> volumes;
  for (const TableEntry* container : containers) {
    const auto first = volumes.size();
    for (const auto& volume : container->volumes->entries)
      if (isCounted(*volume)) volumes.push_back(volume.get());
    std::sort(volumes.begin() + static_cast<std::ptrdiff_t>(first), volumes.end(),
              [](const auto* a, const auto* b) { return a->tableIndex < b->tableIndex; });
  }
  return volumes;
}

// By that order, without a list for each question.
std::optional<u32> volumeNumber(const PartitionTable& table, bool isEmbr,
                                const PartitionEntry& asked) {
  using Place = std::pair<u32, i32>;  // slot of the container, place in its chain
  std::vector<Place> places;
  std::optional<Place> own;
  for (const auto& container : table.entries) {
    const auto slot = container->volumes ? kernelSlot(*container, isEmbr) : std::nullopt;
    if (!slot) continue;
    for (const auto& volume : container->volumes->entries) {
      if (!isCounted(*volume)) continue;
      places.emplace_back(*slot, volume->tableIndex);
      if (volume.get() == &asked) own = places.back();
    }
  }
  if (!own) return std::nullopt;
  const auto before = std::ranges::count_if(places, [&](const Place& p) { return p < *own; });
  return kFirstVolumeNumber + static_cast<u32>(before);
}

// Narrows `region` by what lies at `first`..`last` on one side of the entry.
void keepOutOf(u64 first, u64 last, const PartitionEntry& entry, SectorRegion& region) {
  if (first > entry.endSector) {
    region.last = std::min(region.last, first - 1);
  } else if (first < entry.startSector && last != kAllOnes64) {
    region.first = std::max(region.first, last + 1);
  }
}

}  // namespace

PartitionEntry* Drive::findById(PartitionId id) {
  return findEntry(*table_, [id](const PartitionEntry& entry) { return entry.id == id; });
}

std::optional<u32> Drive::kernelNumber(const PartitionEntry& entry) const {
  if (entry.isFree() || entry.tableIndex < 0) return std::nullopt;
  if (table_->slots == 0) return 0;
  if (!entry.isVolume()) {
    const auto slot = kernelSlot(entry, isEmbr());
    return slot ? std::optional(*slot + 1) : std::nullopt;
  }
  return volumeNumber(*table_, isEmbr(), entry);
}

PartitionEntry* Drive::findByKernelNumber(u32 number) {
  return findEntry(*table_, [&](const PartitionEntry& e) { return kernelNumber(e) == number; });
}

std::optional<u32> Drive::listNumber(const PartitionEntry& entry) const {
  if (!isEmbr() || entry.isFree()) return kernelNumber(entry);
  return entry.id;
}

PartitionEntry* Drive::findByListNumber(u32 number) {
  return findEntry(*table_, [&](const PartitionEntry& e) { return listNumber(e) == number; });
}

TableEntry* Drive::containerOf(const PartitionEntry& entry) {
  const auto holds = [&entry](const auto& top) {
    return top->volumes && std::ranges::any_of(top->volumes->entries, [&](const auto& volume) {
             return volume.get() == &entry;
           });
  };
  const auto found = std::ranges::find_if(table_->entries, holds);
  return found != table_->entries.end() ? found->get() : nullptr;
}

u32 Drive::partitionCount() const {
  u32 count = 0;
  findEntry(*table_, [&count](const PartitionEntry& entry) {
    count += entry.isFree() ? 0 : 1;
    return false;
  });
  return count;
}

std::optional<SectorRegion> Drive::usedRegion() const {
  std::optional<SectorRegion> region;
  for (const auto& entry : table_->entries) {
    if (entry->isFree()) continue;
    if (!region) region = SectorRegion{entry->startSector, entry->endSector};
    region->first = std::min(region->first, entry->startSector);
    region->last = std::max(region->last, entry->endSector);
  }
  return region;
}

SectorRegion Drive::freeRegionAround(const PartitionEntry& entry) {
  if (table_->slots == 0) return {0, lastLba_};
  const TableEntry* container = containerOf(entry);
  if (container == nullptr) {
    SectorRegion region{firstUsableSector_, lastUsableSector_};
    for (const auto& other : table_->entries) {
      if (other.get() == &entry || other->isFree()) continue;
      keepOutOf(other->startSector, other->endSector, entry, region);
    }
    return region;
  }
  const u64 base = container->startSector;
  SectorRegion region{base, std::min(container->endSector, lastUsableSector_)};
  for (const auto& other : container->volumes->entries) {
    if (other.get() == &entry || other->isFree()) continue;
    keepOutOf(base + other->ebr, other->endSector, entry, region);
  }
  // A link-only EBR may become the entry's own, so it bounds the region without being outside.
  for (const u64 ebr : container->volumes->emptyEbrs)
    keepOutOf(base + ebr, base + ebr - 1, entry, region);
  return region;
}

u64 Drive::volumeGap(const PartitionEntry& entry) const {
  const auto* volume = dynamic_cast<const VolumeEntry*>(&entry);
  return volume != nullptr ? volume->volumeStart - volume->ebr : 0;
}

u16 Drive::typeForEnd(u16 type, u64 endSector) const {
  const bool isBeyondChs = endSector > lastChsSector_;
  const auto variantOf = [isBeyondChs](u16 shown) -> u16 {
    switch (shown) {
      case 0x04:
      case 0x06:
        return isBeyondChs ? 0x0E : shown;
      case 0x0E:
        return isBeyondChs ? 0x0E : 0x06;
      case 0x0B:
      case 0x0C:
        return isBeyondChs ? 0x0C : 0x0B;
      case types::kExtended:
      case types::kExtendedLba:
        return isBeyondChs ? types::kExtendedLba : types::kExtended;
      default:
        return shown;
    }
  };
  const u16 shown = types::unhide(type);
  const u16 variant = variantOf(shown);
  return shown != type ? types::hide(variant) : variant;
}

std::vector<KernelPartition> Drive::kernelPartitions() const {
  // The kernel shows of an extended partition just enough for a boot loader: 1 KiB.
  constexpr u64 kExtendedBytes = 1024;
  std::vector<KernelPartition> partitions;
  if (table_->slots == 0) return partitions;
  for (const auto& entry : table_->entries) {
    const auto slot = kernelSlot(*entry, isEmbr());
    if (entry->isFree() || entry->sectorCount() == 0 || !slot) continue;
    u64 sectors = entry->sectorCount();
    if (types::isChainLink(entry->mbrType) || entry->mbrType == 0x85)
      sectors = std::min<u64>(sectors, std::max<u64>(1, kExtendedBytes / disk_->sectorSize()));
    partitions.push_back({*slot + 1, entry->startSector, sectors});
  }
  u32 number = kFirstVolumeNumber;
  for (const VolumeEntry* volume : volumesInKernelOrder(*table_, isEmbr()))
    partitions.push_back({number++, volume->startSector, volume->sectorCount()});
  return partitions;
}

}  // namespace tallowin
