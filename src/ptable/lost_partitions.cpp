#include "ptable/lost_partitions.h"

#include <algorithm>

#include "disk/mbr_record.h"
#include "disk/transfer_buffer.h"
#include "ptable/later_partitions.h"
#include "ptable/lost_chain.h"

namespace tallowin {
namespace {

constexpr u32 kPieceBytes = 4 * kMiB;
constexpr u32 kChunkBytes = 64 * kKiB;  // so much is passed over for a sector that cannot be read

// What is known of the finds once all are there.
class Settlement {
 public:
  Settlement(DiskDevice& disk, const LostSearch& search, u64 volumeGap,
             std::vector<LostPartition>& found)
      : disk_(disk), search_(search), volumeGap_(volumeGap), found_(found) {}

  void run() {
    std::ranges::stable_sort(found_, {}, &LostPartition::startSector);
    endUnsized();
    doubtContradicted();
    dropInner();
    endUnsized();
    doubtContested();
    if (search_.isInsideExtended) placeEbrs();
  }

 private:
  // What says no size reaches to the next one that is not in doubt, and to its EBR.
  void endUnsized() {
    const u64 gap = search_.isInsideExtended ? volumeGap_ : 0;
    for (LostPartition& one : found_) {
      if (one.isSizeKnown) continue;
      one.endSector = search_.lastSector;
      for (const LostPartition& other : found_) {
        if (other.startSector <= one.startSector || other.confidence == Confidence::doubtful)
          continue;
        const u64 last = other.startSector - 1;
        one.endSector = std::min(one.endSector, last - std::min(gap, last - one.startSector));
      }
    }
  }
  void doubtContradicted() {
    for (LostPartition& one : found_) {
      if (one.confidence == Confidence::likely &&
          std::ranges::any_of(found_, [&](const LostPartition& other) {
            return other.confidence == Confidence::sure && &other != &one && other.meets(one);
          }))
        one.confidence = Confidence::doubtful;
    }
  }
  // What begins inside an earlier one, and is no more certain, is a file in it; or a partition of
  // an earlier time.
  void dropInner() {
    std::vector<LostPartition> kept;
    for (LostPartition& one : found_) {
      const bool isInner = std::ranges::any_of(kept, [&](const LostPartition& other) {
        return other.isSizeKnown && other.confidence <= one.confidence &&
               other.startSector <= one.startSector && one.startSector <= other.endSector;
      });
      if (!isInner || one.isEarlier || one.isInside) kept.push_back(std::move(one));
    }
    found_ = std::move(kept);
  }
  void doubtContested() {
    std::vector<LostPartition> contested;
    std::ranges::copy_if(found_, std::back_inserter(contested), &LostPartition::isContested);
    for (const LostPartition& outer : contested) {
      for (LostPartition& one : found_) {
        if (!one.meets(outer)) continue;
        one.confidence = Confidence::doubtful;
        one.isContested = true;
      }
    }
  }
  void placeEbrs() {
    for (LostPartition& one : found_) one.ebrSector = ebrPlaceOf(one);
  }
  // An EBR is written over what lies there: it goes where the old one is, or over zeros, and never
  // into a volume before it, not even into one that is in doubt.
  std::optional<u64> ebrPlaceOf(const LostPartition& one) const {
    constexpr u64 kTrack = 63;
    const u64 start = one.startSector;
    const auto before = [start](u64 sectors) { return start - std::min(sectors, start); };
    u64 lowest = search_.firstSector;
    for (const LostPartition& other : found_)
      if (other.endSector < start) lowest = std::max(lowest, other.endSector + 1);
    const u64 first = std::max(lowest, before(std::max(volumeGap_, kTrack)));
    if (first >= start) return std::nullopt;
    const u32 sectorSize = disk_.sectorSize();
    std::vector<u8> sectors((start - first) * sectorSize);
    if (disk_.readSectors(first, sectors.data(), start - first)) return std::nullopt;
    const auto at = [&](u64 lba) {
      return std::span<const u8>(sectors).subspan((lba - first) * sectorSize, sectorSize);
    };
    for (u64 lba = start; lba-- > first;) {
      const EbrRecord& ebr = *recordAt<EbrRecord>(at(lba));
      if (ebr.signature.isValid() && !ebr.slots[0].isFree() && lba + ebr.slots[0].startLba == start)
        return lba;
    }
    // The sector behind it is cleared with it.
    for (u64 lba = std::max(first, before(volumeGap_)); lba < start; ++lba)
      if (isAllZero(at(lba)) && (lba + 1 == start || isAllZero(at(lba + 1)))) return lba;
    return start - 1;
  }

  DiskDevice& disk_;
  const LostSearch& search_;
  u64 volumeGap_;
  std::vector<LostPartition>& found_;
};

// One piece is tested while the next one is read.
class PartitionSearch {
 public:
  PartitionSearch(Drive& drive, const LostSearch& search, Job& job, LostReport& report)
      : drive_(drive),
        disk_(drive.disk()),
        search_(search),
        job_(job),
        report_(report),
        volumeGap_(trackUnit(drive.alignment())),
        recogniser_(disk_, {search.isInsideExtended, volumeGap_}),
        chains_(drive, search, recogniser_),
        later_(drive, search, recogniser_, chains_),
        nextLba_(search.firstSector),
        floor_(search.firstSector),
        doneTo_(search.firstSector) {}

  Failure run();

 private:
  struct Piece {
    TransferBuffer buffer{kPieceBytes};
    DiskTransfer transfer;
  };

  bool begin(Piece& piece);
  void test(Piece& piece);
  void testSectors(u64 lba, u64 count, const u8* sectors);
  void narrow(const Piece& piece);
  std::optional<LostPartition> partitionOf(const LostVolume& volume) const;
  void testSector(u64 lba, const u8* sector);
  void take(LostPartition found, std::span<const u64> ownPlaces = {});
  void passOver(LostPartition& found, std::span<const u64> ownPlaces);
  bool doubtByLater(LostPartition& found, std::span<const u64> ownPlaces);
  bool isPartitionedAnew(const LostPartition& found);
  void doneUpTo(u64 lba);

  Drive& drive_;
  DiskDevice& disk_;
  const LostSearch& search_;
  Job& job_;
  LostReport& report_;
  u64 volumeGap_;
  VolumeRecogniser recogniser_;
  ChainSearch chains_;
  LaterPartitions later_;
  Piece pieces_[2];
  u64 nextLba_;  // the next piece begins here
  u64 floor_;    // before it everything belongs to partitions that were found
  u64 doneTo_;
};

Failure PartitionSearch::run() {
  for (const Piece& piece : pieces_)
    if (!piece.buffer) return Error::outOfMemory;
  job_.phase(Phase::searching, (search_.lastSector + 1 - search_.firstSector) * disk_.sectorSize());
  bool isUnderWay = begin(pieces_[0]);
  for (std::size_t now = 0; isUnderWay; now = 1 - now) {
    const bool isNextUnderWay = begin(pieces_[1 - now]);
    test(pieces_[now]);
    isUnderWay = isNextUnderWay;
  }
  doneUpTo(report_.isStopped ? doneTo_ : search_.lastSector + 1);
  Settlement(disk_, search_, volumeGap_, report_.found).run();
  return {};
}

// Pieces end on multiples of their size, so that reads past the page cache begin on a page.
bool PartitionSearch::begin(Piece& piece) {
  report_.isStopped = report_.isStopped || job_.shouldStop();
  nextLba_ = std::max(nextLba_, floor_);
  if (report_.isStopped || nextLba_ > search_.lastSector) return false;
  const u64 pieceSectors = kPieceBytes / disk_.sectorSize();
  const u64 end = std::min((nextLba_ / pieceSectors + 1) * pieceSectors, search_.lastSector + 1);
  piece.transfer = {};
  piece.transfer.lba = nextLba_;
  piece.transfer.buffer = piece.buffer.data();
  piece.transfer.count = static_cast<u32>(end - nextLba_);
  nextLba_ = end;
  disk_.begin(piece.transfer);
  return true;
}

void PartitionSearch::test(Piece& piece) {
  const DiskTransfer& transfer = piece.transfer;
  const bool isRead = !disk_.finish(piece.transfer);
  if (report_.isStopped) return;
  if (isRead)
    testSectors(transfer.lba, transfer.count, piece.buffer.data());
  else
    narrow(piece);
  doneUpTo(transfer.lba + transfer.count);
}

void PartitionSearch::narrow(const Piece& piece) {
  const u64 chunk = kChunkBytes / disk_.sectorSize();
  const u64 end = piece.transfer.lba + piece.transfer.count;
  for (u64 lba = piece.transfer.lba; lba < end && !report_.isStopped; lba += chunk) {
    const u64 count = std::min(chunk, end - lba);
    if (lba + count <= floor_) continue;
    if (disk_.readSectors(lba, piece.buffer.data(), count))
      report_.unreadableSectors += count;
    else
      testSectors(lba, count, piece.buffer.data());
    report_.isStopped = report_.isStopped || job_.shouldStop();
  }
}

void PartitionSearch::testSectors(u64 lba, u64 count, const u8* sectors) {
  const u32 sectorSize = disk_.sectorSize();
  for (u64 i = 0; i < count && !report_.isStopped; ++i) {
    if (lba + i < floor_) {
      i = floor_ - lba - 1;
      continue;
    }
    const u8* sector = sectors + i * sectorSize;
    if (!recogniser_.hasMagic(sector)) continue;
    report_.isStopped = job_.shouldStop();
    testSector(lba + i, sector);
  }
}

std::optional<LostPartition> PartitionSearch::partitionOf(const LostVolume& volume) const {
  LostPartition found;
  found.kind = volume.kind;
  found.startSector = volume.startSector;
  found.isSizeKnown = volume.sectorCount != 0;
  if (found.isSizeKnown) {
    if (volume.sectorCount > search_.lastSector + 1 - volume.startSector) return std::nullopt;
    found.endSector = volume.startSector + volume.sectorCount - 1;
  }
  found.type = search_.isInsideExtended || drive_.isGpt()
                   ? volume.type
                   : drive_.typeForEnd(volume.type, found.endSector);
  found.label = volume.label;
  found.confidence = volume.confidence;
  found.usedAt = volume.usedAt;
  return found;
}

void PartitionSearch::testSector(u64 lba, const u8* sector) {
  if (const auto volume = recogniser_.examine(lba, sector)) {
    if (auto found = partitionOf(*volume)) take(std::move(*found));
    return;
  }
  if (const auto chain = chains_.examine(lba, sector)) take(chain->partition, chain->places);
}

// A disk that was used with partitions on tracks, and later with others on whole MiB, keeps the
// first boot sector of old before the first partition of now.
bool PartitionSearch::isPartitionedAnew(const LostPartition& found) {
  const u64 unit = kMiB / disk_.sectorSize();
  const u64 boundary = (found.startSector / unit + 1) * unit;
  const u64 count = std::max<u64>(1, 2 * kChunkBytes / disk_.sectorSize());
  if (found.startSector % unit == 0 || boundary > found.endSector ||
      count > found.endSector + 1 - boundary)
    return false;
  std::vector<u8> sectors(count * disk_.sectorSize());
  if (disk_.readSectors(boundary, sectors.data(), count)) return false;
  for (u64 i = 0; i < count; ++i) {
    const u8* sector = sectors.data() + i * disk_.sectorSize();
    if (!recogniser_.hasMagic(sector)) continue;
    const auto other = recogniser_.examine(boundary + i, sector);
    if (other && other->startSector == boundary && other->confidence == Confidence::sure)
      return true;
  }
  return false;
}

void PartitionSearch::take(LostPartition found, std::span<const u64> ownPlaces) {
  if (found.startSector < floor_) return;
  if (found.confidence == Confidence::sure && found.isSizeKnown) passOver(found, ownPlaces);
  report_.found.push_back(std::move(found));
  job_.found(report_.found.size());
}

// What lies in a partition is not searched, but where the disk was partitioned differently at
// another time: the one that was found may be of then, and the ones in it of now.
void PartitionSearch::passOver(LostPartition& found, std::span<const u64> ownPlaces) {
  if (isPartitionedAnew(found) || doubtByLater(found, ownPlaces))
    found.confidence = Confidence::doubtful;
  else
    floor_ = found.endSector + 1;
}

// Whether there is one in it that may be later. Earlier ones are kept with the finds.
bool PartitionSearch::doubtByLater(LostPartition& found, std::span<const u64> ownPlaces) {
  constexpr u64 kDay = 86400;
  const u64 unit = kMiB / disk_.sectorSize();
  const auto goesOn = [this](u64 lba) {
    doneUpTo(lba);
    report_.isStopped = report_.isStopped || job_.shouldStop();
    return !report_.isStopped;
  };
  std::vector<LostPartition> inside;
  u64 from = found.startSector;
  while (const auto place = later_.firstIn(found, from, ownPlaces, goesOn)) {
    from = place->lba;
    if (!place->namesItsPlace) {
      auto one = partitionOf(*place->volume);
      if (one) inside.push_back(std::move(*one));
      if (one) inside.back().isInside = true;
      continue;
    }
    const u64 usedAt = place->volume ? place->volume->usedAt : 0;
    const bool areKnown = usedAt != 0 && found.usedAt != 0;
    if (!areKnown || found.usedAt <= usedAt + kDay) {
      found.isEarlier = areKnown && usedAt > found.usedAt + kDay;
      // Tracks came before MiB; of two that begin alike nobody knows which is older.
      found.isContested = !found.isEarlier && (found.startSector % unit == 0 || from % unit != 0);
      return true;
    }
    if (auto one = partitionOf(*place->volume)) {
      inside.push_back(std::move(*one));
      inside.back().isEarlier = true;
    }
  }
  for (LostPartition& one : inside) {
    one.confidence = Confidence::doubtful;
    report_.found.push_back(std::move(one));
  }
  return false;
}

void PartitionSearch::doneUpTo(u64 lba) {
  lba = std::clamp(std::max(lba, floor_), doneTo_, search_.lastSector + 1);
  job_.advance((lba - doneTo_) * disk_.sectorSize());
  doneTo_ = lba;
}

}  // namespace

Failure findLostPartitions(Drive& drive, const LostSearch& search, Job& job, LostReport& report) {
  if (search.firstSector > search.lastSector) return {};
  return PartitionSearch(drive, search, job, report).run();
}

}  // namespace tallowin
