#include "ptable/lost_partitions.h"

#include <algorithm>

#include "disk/mbr_record.h"
#include "disk/transfer_buffer.h"
#include "probe/identify.h"
#include "probe/type_catalogue.h"
#include "ptable/mbr/ebr_reader.h"
#include "ptable/scheme.h"

namespace tallowin {
namespace {

constexpr u32 kPieceBytes = 4 * kMiB;
constexpr u32 kChunkBytes = 64 * kKiB;  // so much is passed over for a sector that cannot be read

// The extended partition that may begin with an EBR in this sector.
class ChainSearch {
 public:
  ChainSearch(Drive& drive, const LostSearch& search) : drive_(drive), search_(search) {}

  std::optional<LostPartition> examine(u64 lba, const u8* sector) const;

 private:
  bool mayBeFirst(const EbrRecord& ebr) const;
  bool isUsualStart(u64 sectors) const;
  Confidence confidenceOf(const VolumeList& list, bool isClean) const;

  Drive& drive_;
  const LostSearch& search_;
};

bool ChainSearch::isUsualStart(u64 sectors) const {
  constexpr u64 kTrack = 63;
  return sectors == kTrack || sectors == kMiB / drive_.sectorSize() ||
         sectors == firstAlignedSector(drive_.alignment());
}

bool ChainSearch::mayBeFirst(const EbrRecord& ebr) const {
  if (!ebr.signature.isValid() || ebr.slots[2].type != 0 || ebr.slots[3].type != 0) return false;
  return std::ranges::any_of(std::span(ebr.slots).first(2), [this](const MbrSlotRecord& slot) {
    if (types::isChainLink(slot.type)) return slot.startLba != 0 && slot.sectorCount != 0;
    return slot.type != types::kFree && isUsualStart(slot.startLba);
  });
}

// In the order of the chain each volume follows its EBR, and the next EBR the volume.
bool isInOrder(const VolumeList& list, const TableEntry& container) {
  u64 nextFree = 0;
  return std::ranges::all_of(list.entries, [&](const auto& volume) {
    const bool follows = nextFree <= volume->ebr && volume->ebr < volume->volumeStart &&
                         volume->startSector <= volume->endSector;
    nextFree = volume->endSector + 1 - container.startSector;
    return follows;
  });
}

// Volumes that hold what fits into them say that the chain is the one by which they were used.
Confidence ChainSearch::confidenceOf(const VolumeList& list, bool isClean) const {
  bool isRecognised = false;
  for (const auto& volume : list.entries) {
    Content content;
    if (identify(drive_.disk(), volume->startSector, content) ||
        content.code == ContentCode::unknownVolume)
      continue;
    // Swap areas have the size of the disk.
    if (content.code != ContentCode::linuxSwap && content.sectorCount > volume->sectorCount())
      isClean = false;
    isRecognised = true;
  }
  if (!isClean) return Confidence::doubtful;
  return isRecognised ? Confidence::sure : Confidence::likely;
}

std::optional<LostPartition> ChainSearch::examine(u64 lba, const u8* sector) const {
  const auto& ebr = *recordAt<EbrRecord>({sector, drive_.sectorSize()});
  if (!mayBeFirst(ebr)) return std::nullopt;
  TableEntry container;
  container.type = types::kExtended;
  container.startSector = lba;
  container.endSector = search_.lastSector;
  if (!mayHoldVolumes(container)) return std::nullopt;
  const LabelReader noLabels;
  const TableContext all = drive_.tableContext();
  readVolumes({all.disk, all.geometry, all.lastLba, all.flags, all.biosNumber, all.host, noLabels},
              container);
  const VolumeList& list = *container.volumes;
  if (list.status != 0 || list.leavesContainer || list.entries.empty() ||
      !isInOrder(list, container))
    return std::nullopt;
  LostPartition found;
  found.kind = "Extended";
  found.startSector = lba;
  found.endSector = std::max(list.entries.back()->endSector, lba + list.chain.back());
  found.type = drive_.typeForEnd(types::kExtended, found.endSector);
  found.volumeCount = static_cast<u32>(list.entries.size());
  // The boot sector of a disk looks much the same, but it has code.
  const bool isClean =
      isAllZero(ebr.unused) && isAllZero(bytesOf(ebr.slots[2])) && isAllZero(bytesOf(ebr.slots[3]));
  found.confidence = confidenceOf(list, isClean);
  return found;
}

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
  // What begins inside an earlier one, and is no more certain, is a file in it.
  void dropInner() {
    std::vector<LostPartition> kept;
    for (LostPartition& one : found_) {
      const bool isInner = std::ranges::any_of(kept, [&](const LostPartition& other) {
        return other.isSizeKnown && other.confidence <= one.confidence &&
               other.startSector <= one.startSector && one.startSector <= other.endSector;
      });
      if (!isInner) kept.push_back(std::move(one));
    }
    found_ = std::move(kept);
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
        chains_(drive, search),
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
  void testSector(u64 lba, const u8* sector);
  void take(LostPartition found);
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

void PartitionSearch::testSector(u64 lba, const u8* sector) {
  if (const auto volume = recogniser_.examine(lba, sector)) {
    LostPartition found;
    found.kind = volume->kind;
    found.startSector = volume->startSector;
    found.isSizeKnown = volume->sectorCount != 0;
    if (found.isSizeKnown) {
      if (volume->sectorCount > search_.lastSector + 1 - volume->startSector) return;
      found.endSector = volume->startSector + volume->sectorCount - 1;
    }
    found.type = search_.isInsideExtended || drive_.isGpt()
                     ? volume->type
                     : drive_.typeForEnd(volume->type, found.endSector);
    found.label = volume->label;
    found.confidence = volume->confidence;
    return take(std::move(found));
  }
  if (search_.isInsideExtended || drive_.isGpt()) return;
  if (auto chain = chains_.examine(lba, sector)) take(std::move(*chain));
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

void PartitionSearch::take(LostPartition found) {
  if (found.startSector < floor_) return;
  if (found.confidence == Confidence::sure && found.isSizeKnown && isPartitionedAnew(found))
    found.confidence = Confidence::doubtful;
  if (found.confidence == Confidence::sure && found.isSizeKnown) floor_ = found.endSector + 1;
  report_.found.push_back(std::move(found));
  job_.found(report_.found.size());
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
