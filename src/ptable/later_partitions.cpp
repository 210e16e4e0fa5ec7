#include "ptable/later_partitions.h"

#include <algorithm>
#include <deque>

#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

// A superblock lies within so much, and the mark of swap space at its end.
constexpr u64 kHeadBytes = 4096;
// Places that a medium with many queues may fetch at a time.
constexpr std::size_t kPlacesAhead = 32;

u64 nextMultiple(u64 lba, u64 unit) { return (lba / unit + 1) * unit; }

}  // namespace

LaterPartitions::LaterPartitions(Drive& drive, const LostSearch& search,
                                 VolumeRecogniser& recogniser, const ChainSearch& chains)
    : disk_(drive.disk()),
      search_(search),
      recogniser_(recogniser),
      chains_(chains),
      mibSectors_(kMiB / disk_.sectorSize()),
      headSectors_(std::max<u64>(1, kHeadBytes / disk_.sectorSize())),
      cylinderSectors_(std::max<u64>(1, drive.geometry().cylinderSectors())),
      trackSectors_(drive.geometry().trackSectors()) {}

u64 LaterPartitions::nextPlace(u64 lba) const {
  const u64 onTrack = nextMultiple(lba + cylinderSectors_ - trackSectors_, cylinderSectors_) +
                      trackSectors_ - cylinderSectors_;
  return std::min({nextMultiple(lba, mibSectors_), nextMultiple(lba, cylinderSectors_), onTrack});
}

std::optional<LaterPartitions::Place> LaterPartitions::firstIn(
    const LostPartition& found, u64 from, std::span<const u64> ownPlaces,
    const std::function<bool(u64 lba)>& goesOn) {
  std::vector<u8> head(headSectors_ * disk_.sectorSize());
  std::deque<u64> ahead;
  u64 next = nextPlace(from);
  for (;;) {
    for (; next <= found.endSector && ahead.size() < kPlacesAhead; next = nextPlace(next)) {
      disk_.willRead(next, headSectors_);
      ahead.push_back(next);
    }
    if (ahead.empty() || !goesOn(ahead.front())) return std::nullopt;
    const u64 lba = ahead.front();
    ahead.pop_front();
    if (std::ranges::find(ownPlaces, lba) != ownPlaces.end()) continue;
    const u64 count = std::min(headSectors_, search_.lastSector + 1 - lba);
    if (disk_.readSectors(lba, head.data(), count)) continue;
    for (u64 i = 0; i < count; ++i)
      if (auto place = placeAt(lba, i, head.data() + i * disk_.sectorSize())) return place;
  }
}

// By one of the first sectors of what lies there: not all forms tell of themselves in the first.
std::optional<LaterPartitions::Place> LaterPartitions::placeAt(u64 lba, u64 index,
                                                               const u8* sector) {
  if (!recogniser_.hasMagic(sector)) return std::nullopt;
  if (auto volume = recogniser_.examine(lba + index, sector)) {
    if (volume->confidence != Confidence::sure || volume->startSector != lba ||
        volume->sectorCount > search_.lastSector + 1 - lba)
      return std::nullopt;
    const bool namesItsPlace = volume->namesItsPlace;
    return Place{lba, std::move(volume), namesItsPlace};
  }
  if (index != 0) return std::nullopt;
  const auto chain = chains_.examine(lba, sector);
  if ((chain && chain->partition.confidence == Confidence::sure) || isEbrOfVolume(lba, sector))
    return Place{lba, std::nullopt};
  return std::nullopt;
}

// In an extended partition, where a boot sector may count from its EBR.
bool LaterPartitions::isEbrOfVolume(u64 lba, const u8* sector) {
  const EbrRecord& ebr = *recordAt<EbrRecord>(std::span(sector, disk_.sectorSize()));
  const MbrSlotRecord& slot = ebr.slots[0];
  const u64 start = lba + slot.startLba;
  if (!search_.isInsideExtended || !ebr.signature.isValid() || types::isChainLink(slot.type) ||
      slot.isFree() || start == lba || start > search_.lastSector)
    return false;
  std::vector<u8> first(disk_.sectorSize());
  if (disk_.readSectors(start, first.data(), 1) || !recogniser_.hasMagic(first.data()))
    return false;
  const auto volume = recogniser_.examine(start, first.data());
  return volume && volume->confidence == Confidence::sure && volume->startSector == start &&
         volume->sectorCount <= slot.sectorCount;
}

}  // namespace tallowin
