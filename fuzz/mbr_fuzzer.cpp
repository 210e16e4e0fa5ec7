// MBR tables and EBR chains from random bytes: reading ends, and what is called free is free.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "disk/memory_disk.h"
#include "ptable/drive.h"

namespace {

using namespace tallowin;

void require(bool holds) {
  if (!holds) std::abort();
}

// Each piece of the input is a sector number and the last 130 bytes of that sector, where name,
// slots and signature lie; the signature is mostly a valid one, so that chains get long.
std::shared_ptr<MemoryDisk> diskFrom(std::span<const u8> input) {
  constexpr u64 kSectors = 8192;
  constexpr std::size_t kTailBytes = 130;
  auto disk = std::make_shared<MemoryDisk>(kSectors);
  u64 lba = 0;
  while (input.size() >= 2) {
    std::vector<u8> sector(512);
    const bool isSigned = (input[1] & 0x80) == 0;
    const auto tail = input.subspan(2, std::min(kTailBytes, input.size() - 2));
    std::ranges::copy(tail, sector.end() - kTailBytes);
    if (isSigned) {
      sector[510] = 0x55;
      sector[511] = 0xAA;
    }
    disk->setSector(lba, sector);
    input = input.subspan(2 + tail.size());
    if (input.size() >= 2) lba = (u64{input[1]} << 8 | input[0]) % kSectors;
  }
  return disk;
}

template <typename Entries, typename Position>
void requireSorted(const Entries& entries, Position position) {
  require(std::ranges::is_sorted(entries, {}, [&](const auto& entry) { return position(*entry); }));
}

void requireFreeOf(const SectorRegion& block, u64 first, u64 last) {
  require(block.first <= block.last);
  require(last < block.first || block.last < first);
}

void check(const Drive& drive) {
  const auto& entries = drive.table().entries;
  requireSorted(entries, [](const TableEntry& entry) { return entry.startSector; });
  for (const auto& block : entries) {
    if (block->isFree()) {
      require(block->endSector <= drive.lastLba());
      for (const auto& other : entries)
        if (!other->isFree() && !other->isInError())
          requireFreeOf({block->startSector, block->endSector}, other->startSector,
                        other->endSector);
    }
    if (!block->volumes) continue;
    const auto& volumes = block->volumes->entries;
    require(volumes.size() <= 2 * 255 + 1 + block->volumes->emptyEbrs.size());
    requireSorted(volumes, [](const VolumeEntry& volume) { return volume.ebr; });
    for (const auto& inner : volumes) {
      if (!inner->isFree()) continue;
      require(inner->ebr < inner->volumeStart);
      require(inner->endSector <= block->endSector);
      // With the place of its EBR. Between an EBR and a volume far behind it there may be room.
      const SectorRegion room{block->startSector + inner->ebr, inner->endSector};
      for (const auto& other : volumes) {
        if (other->isFree() || other->isInError()) continue;
        const u64 ebr = block->startSector + other->ebr;
        requireFreeOf(room, ebr, ebr);
        requireFreeOf(room, other->startSector, other->endSector);
      }
    }
  }
}

Failure fill(Drive& drive, const PartitionEntry& block) {
  NewEntry entry = newEntryIn(block);
  entry.type = 0x83;
  return drive.add(entry);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size < 1 || size > 64 * kKiB) return 0;
  DriveOpenOptions options;
  options.alignment = (data[0] & 1) != 0 ? 8 : AlignmentRules::kDefaultUnit;
  if ((data[0] & 2) != 0) options.flags |= kDriveSequentialIds;
  Host host("/nonexistent");
  const auto disk = diskFrom({data + 1, size - 1});
  std::unique_ptr<Drive> drive;
  if (Drive::open(disk, host, options, drive) != Error::none) return 0;
  check(*drive);
  // Every change of the table leaves one that can be read.
  const std::size_t pick = size;
  const auto& entries = drive->table().entries;
  if (entries.empty()) return 0;
  TableEntry& entry = *entries[pick % entries.size()];
  Failure error = Error::none;
  if (entry.volumes && !entry.volumes->entries.empty() && (data[0] & 4) != 0) {
    VolumeEntry& volume = *entry.volumes->entries[pick % entry.volumes->entries.size()];
    error = volume.isFree() ? fill(*drive, volume) : drive->remove(volume);
  } else {
    error = entry.isFree() ? fill(*drive, entry) : drive->remove(entry);
  }
  static_cast<void>(error);
  require(drive->reread() == Error::none);
  check(*drive);
  return 0;
}
