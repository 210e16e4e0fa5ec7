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

// The kernel passes over volumes without sectors.
bool isCounted(const VolumeEntry& volume) {
  return !volume.isFree() && volume.tableIndex >= 0 && volume.sectorCount() != 0;
}

// Where a volume stands in the numbers that lists show: those that the kernel counts come first, by
// the slot of their extended partition and then along the chain.
struct VolumePlace {
  bool isHidden = false;  // the kernel looks into no extended partition of a hidden type
  u32 slot = 0;
  i32 inChain = 0;

  // NOLINTNEXTLINE(modernize-use-nullptr): the tool means the zero of the comparison.
  auto operator<=>(const VolumePlace&) const = default;
};

struct PlacedVolume {
  VolumePlace place;
  const VolumeEntry* volume = nullptr;
};

std::vector<PlacedVolume> placedVolumes(const PartitionTable& table, bool isEmbr) {
  std::vector<PlacedVolume> volumes;
  for (const auto& container : table.entries) {
    const auto slot = container->volumes ? kernelSlot(*container, isEmbr) : std::nullopt;
    if (!slot) continue;
    const bool isHidden = !types::isChainLink(container->mbrType);
    for (const auto& volume : container->volumes->entries)
      if (isCounted(*volume))
        volumes.push_back({{isHidden, *slot, volume->tableIndex}, volume.get()});
  }
  return volumes;
}

struct VolumeNumber {
  u32 number = 0;
  bool isKernels = false;
};

std::optional<VolumeNumber> volumeNumber(const PartitionTable& table, bool isEmbr,
                                         const PartitionEntry& asked) {
  const std::vector<PlacedVolume> volumes = placedVolumes(table, isEmbr);
  const auto own = std::ranges::find(volumes, &asked, [](const PlacedVolume& placed) {
    return static_cast<const PartitionEntry*>(placed.volume);
  });
  if (own == volumes.end()) return std::nullopt;
  const auto before = std::ranges::count_if(
      volumes, [&](const PlacedVolume& other) { return other.place < own->place; });
  return VolumeNumber{kFirstVolumeNumber + static_cast<u32>(before), !own->place.isHidden};
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
  const auto found = volumeNumber(*table_, isEmbr(), entry);
  return found && found->isKernels ? std::optional(found->number) : std::nullopt;
}

PartitionEntry* Drive::findByKernelNumber(u32 number) {
  return findEntry(*table_, [&](const PartitionEntry& e) { return kernelNumber(e) == number; });
}

std::optional<u32> Drive::listNumber(const PartitionEntry& entry) const {
  if (isEmbr() && !entry.isFree()) return entry.id;
  if (!entry.isVolume()) return kernelNumber(entry);
  const auto found = volumeNumber(*table_, isEmbr(), entry);
  return found ? std::optional(found->number) : std::nullopt;
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

TableEntry* Drive::containerAt(u64 sector) {
  const auto found = std::ranges::find_if(table_->entries, [sector](const auto& top) {
    return top->volumes && top->startSector <= sector && sector <= top->endSector;
  });
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
    // The sector behind an EBR is the table's own, too.
    keepOutOf(base + other->ebr, base + other->ebr + 1, entry, region);
    keepOutOf(other->startSector, other->endSector, entry, region);
  }
  // A link-only EBR may become the entry's own, so it bounds the region without being outside.
  for (const u64 ebr : container->volumes->emptyEbrs)
    keepOutOf(base + ebr, base + ebr - 1, entry, region);
  return region;
}

SectorRegion Drive::endLimits(const PartitionEntry& entry) {
  SectorRegion limits{entry.startSector, freeRegionAround(entry).last};
  const auto* top = dynamic_cast<const TableEntry*>(&entry);
  if (top == nullptr || !top->volumes) return limits;
  for (const auto& volume : top->volumes->entries)
    if (!volume->isFree()) limits.first = std::max(limits.first, volume->endSector);
  for (const u64 ebr : top->volumes->chain)
    limits.first = std::max(limits.first, entry.startSector + ebr);
  return limits;
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
    if (types::isChainLink(entry->mbrType))
      sectors = std::min<u64>(sectors, std::max<u64>(1, kExtendedBytes / disk_->sectorSize()));
    partitions.push_back({*slot + 1, entry->startSector, sectors});
  }
  std::vector<PlacedVolume> volumes = placedVolumes(*table_, isEmbr());
  std::ranges::sort(volumes, {}, &PlacedVolume::place);
  u32 number = kFirstVolumeNumber;
  for (const auto& [place, volume] : volumes)
    if (!place.isHidden)
      partitions.push_back({number++, volume->startSector, volume->sectorCount()});
  return partitions;
}

}  // namespace tallowin
