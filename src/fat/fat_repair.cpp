#include "fat/fat_repair.h"

#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "disk/overlay_disk.h"
#include "fat/fat_check.h"
#include "fat/fat_clusters.h"
#include "fat/fat_lost_chains.h"
#include "probe/identify.h"

namespace tallowin {
namespace {

constexpr u32 kUsualBackupSector = 6;
constexpr u8 kBootInUse = 0x01;  // in the reserved byte of the identity
constexpr std::size_t kPieceBytes = 256 * kKiB;

unsigned long number(u64 value) { return static_cast<unsigned long>(value); }

// --- What is rehearsed, and done

// The sectors that differ, and no others.
Failure copyOver(DiskDevice& disk, u64 fromLba, u64 toLba, u64 sectors) {
  const u32 sectorBytes = disk.sectorSize();
  const u64 pieceSectors = std::min<u64>(kPieceBytes / sectorBytes, sectors);
  std::vector<u8> from(pieceSectors * sectorBytes), to(pieceSectors * sectorBytes);
  for (u64 done = 0; done < sectors; done += pieceSectors) {
    const u64 count = std::min(pieceSectors, sectors - done);
    if (const Failure failed = disk.readSectors(fromLba + done, from.data(), count)) return failed;
    if (const Failure failed = disk.readSectors(toLba + done, to.data(), count)) return failed;
    const auto differs = [&](u64 sector) {
      return std::memcmp(&from[sector * sectorBytes], &to[sector * sectorBytes], sectorBytes) != 0;
    };
    for (u64 first = 0, end = 0; first < count; first = std::max(end, first + 1)) {
      for (end = first; end < count && differs(end);) ++end;
      if (const Failure failed =
              disk.writeSectors(toLba + done + first, &from[first * sectorBytes], end - first))
        return failed;
    }
  }
  return {};
}

Failure copyTable(const SectorRange& range, const FatLayout& layout, u32 best) {
  const auto lbaOf = [&](u32 copy) {
    return range.firstSector + layout.reservedSectors + u64{copy} * layout.sectorsPerFat;
  };
  for (u32 copy = 0; copy < layout.numberOfFats; ++copy)
    if (copy != best)
      if (const Failure failed =
              copyOver(range.disk, lbaOf(best), lbaOf(copy), layout.sectorsPerFat))
        return failed;
  return {};
}

// Their ends are on the medium before an entry names them.
Failure keepLost(const SectorRange& range, u16 type, FatClusterMap& map, u64 secondsSinceEpoch,
                 std::string& folder) {
  FatLostChains lost;
  if (const Failure failed = findLostChains(map, lost)) return failed;
  FatTable table(range, map.layout());
  if (const Failure failed = table.setUp()) return failed;
  for (const u32 cluster : lost.newEnds)
    if (const Failure failed = table.markEnd(cluster)) return failed;
  if (const Failure failed = table.flush()) return failed;
  if (const Failure failed = range.disk.flush()) return failed;
  return keepLostChains(range, type, lost.chains, secondsSinceEpoch, folder);
}

// --- What is wrong

// What can be rebuilt by it: nothing, a volume with lost clusters, a sound one.
enum class Worth : u8 { none, lostClusters, sound };

Worth worthOf(const FatCheckReport& check) {
  switch (check.structure) {
    case FatFault::none:
    case FatFault::tooLarge:
      return Worth::sound;
    case FatFault::lostCluster:
      return Worth::lostClusters;
    default:
      return Worth::none;
  }
}

// All that a look at a volume gives.
class FatSurvey {
 public:
  FatSurvey(const SectorRange& range, u16 type, Job& job) : range_(range), type_(type), job_(job) {}

  // Errors of checkFat.
  Failure run();

  bool hasVolume() const { return volume_.has_value(); }
  FatVolume& volume() { return *volume_; }
  FatClusterMap& map() { return *map_; }
  u32 bestCopy() const { return bestCopy_; }
  Worth worth() const { return worthOf(check_); }
  // Everything but counts and marks is as it should be.
  bool rests(Mend::Kind kind) const {
    return (!isByBackup_ || kind == Mend::Kind::bootSector) &&
           (!copiesDiffer_ || kind <= Mend::Kind::tableCopies) &&
           (kind != Mend::Kind::inUseMark || isSound());
  }
  bool isSound() const { return !isByBackup_ && !copiesDiffer_ && worth() == Worth::sound; }

  void describe(CheckReport& report);

 private:
  void openByBackup();
  Failure chooseCopy();
  Failure rehearseKeeping();
  Failure judgeLayout();
  std::optional<bool> backupAgrees() const;
  void addMends(std::vector<Mend>& mends);
  void addLostClusters(std::vector<Mend>& mends) const;
  void addFsInfo(std::vector<Mend>& mends);
  void addBackup(std::vector<Mend>& mends);
  void addInUseMark(std::vector<Mend>& mends);

  SectorRange range_;
  u16 type_;
  Job& job_;
  std::optional<FatVolume> volume_;
  std::unique_ptr<FatClusterMap> map_;  // of volume_
  bool isByBackup_ = false;
  bool copiesDiffer_ = false;
  bool isBelieved_ = false;     // the numbers of the boot sector
  bool isCloseChoice_ = false;  // each copy has lost clusters, and not the same files
  u32 bestCopy_ = 0;
  FatCheckReport check_;
  std::string lostFolder_;  // that lost clusters would be kept in
  Error whyNotKept_ = Error::none;
};

// A sector that is another file system's by now is not overwritten with an older one.
void FatSurvey::openByBackup() {
  if (range_.sectorCount <= kUsualBackupSector) return;
  Content content;
  const bool isOther = !identify(range_.disk, range_.firstSector, content) &&
                       content.code != ContentCode::none &&
                       content.code != ContentCode::unknownVolume &&
                       content.code != ContentCode::fat && content.code != ContentCode::fat32;
  if (isOther) return;
  FatBootArea backup(range_.disk.sectorSize());
  const SectorRange behind{range_.disk, range_.firstSector + kUsualBackupSector,
                           range_.sectorCount - kUsualBackupSector};
  if (backup.read(behind) || backup.backupBootSector() != kUsualBackupSector) return;
  const std::optional<FatLayout> layout = backup.layoutIn(range_, type_);
  if (!layout || !layout->isFat32()) return;
  // What lies behind the boot sector is not that of the backup.
  FatBootArea now(range_.disk.sectorSize());
  if (now.read(range_)) return;
  std::ranges::copy(backup.sector(0), now.sector(0).begin());
  volume_.emplace(FatVolume{range_, std::move(now), *layout});
  isByBackup_ = true;
}

Failure FatSurvey::run() {
  const Failure notOpened = openFat(range_, type_, volume_);
  if (notOpened && notOpened != Error::invalidVolume) {
    if (notOpened == Error::read) check_.fault = FatFault::unreadable;
    return notOpened;
  }
  if (notOpened) openByBackup();
  if (!volume_) {
    check_.fault = FatFault::invalidVolume;
    return {};
  }
  map_ = std::make_unique<FatClusterMap>(*volume_);
  if (const Failure failed = checkFat(*volume_, *map_, job_, check_)) return failed;
  copiesDiffer_ = check_.fault == FatFault::copiesDiffer;
  if (copiesDiffer_)
    if (const Failure failed = chooseCopy()) return failed;
  if (isByBackup_) check_.fault = FatFault::invalidVolume;
  if (const Failure failed = judgeLayout()) return failed;
  return worth() == Worth::lostClusters && isBelieved_ ? rehearseKeeping() : Failure();
}

// By wrong numbers FATs and root are looked for in the wrong place: what seems to be lost is not
// then, and a copy of the FAT would land in files. Files without any fault prove the numbers.
Failure FatSurvey::judgeLayout() {
  if (const Failure failed = beginsWithItsFats(*volume_, isBelieved_)) return failed;
  if (worth() == Worth::sound && check_.entriesWalked != 0)
    isBelieved_ = true;
  else if (const std::optional<bool> agrees = backupAgrees(); agrees && worth() != Worth::sound)
    isBelieved_ = *agrees;
  return {};
}

// Nothing when there is no backup to ask.
std::optional<bool> FatSurvey::backupAgrees() const {
  const u32 at = volume_->boot.backupBootSector();
  if (isByBackup_ || at == 0 || at >= volume_->layout.reservedSectors) return std::nullopt;
  FatBootArea copy(volume_->layout.bytesPerSector);
  if (range_.disk.readSectors(range_.firstSector + at, copy.bytes().data(), 1)) return std::nullopt;
  const std::optional<FatLayout> layout = copy.layoutIn(range_, type_);
  if (!layout) return std::nullopt;
  return *layout == volume_->layout &&
         copy.bpb32().rootCluster == volume_->boot.bpb32().rootCluster;
}

// The copy by which more is sound; where that is the same, the one that everybody reads. With lost
// clusters in both it may be that one of them has a directory cut off.
Failure FatSurvey::chooseCopy() {
  FatCheckReport second, first;
  if (const Failure failed = checkFatCopy(*volume_, 1, *map_, job_, second)) return failed;
  if (const Failure failed = checkFatCopy(*volume_, 0, *map_, job_, first)) return failed;
  isCloseChoice_ =
      worthOf(first) == Worth::lostClusters && worthOf(second) == worthOf(first) &&
      (first.entriesWalked != second.entriesWalked || first.usedClusters != second.usedClusters);
  const bool takesSecond = worthOf(second) > worthOf(first) ||
                           (isCloseChoice_ && second.entriesWalked > first.entriesWalked);
  bestCopy_ = takesSecond ? 1 : 0;
  if (takesSecond) {
    second = {};
    if (const Failure failed = checkFatCopy(*volume_, 1, *map_, job_, second)) return failed;
  }
  check_ = takesSecond ? second : first;
  check_.fault = FatFault::copiesDiffer;
  return {};
}

// With what comes before it, so that before the first write it is known whether there is room.
Failure FatSurvey::rehearseKeeping() {
  OverlayDisk rehearsal(range_.disk, kGiB);
  const SectorRange range{rehearsal, range_.firstSector, range_.sectorCount};
  if (isByBackup_)
    if (const Failure failed = volume_->boot.writeBootSector(range)) return failed;
  if (copiesDiffer_)
    if (const Failure failed = copyTable(range, volume_->layout, bestCopy_)) return failed;
  const Failure failed = keepLost(range, type_, *map_, 0, lostFolder_);
  if (failed != Error::volumeFull && failed != Error::directoryFull) return failed;
  whyNotKept_ = failed.code;
  return {};
}

void FatSurvey::describe(CheckReport& report) {
  report = {};
  report.fault = static_cast<u32>(check_.fault);
  report.faultText =
      volume_ && !isByBackup_ ? fatFaultText(*volume_, check_) : fatFaultWords(check_.fault);
  report.isSound = check_.fault == FatFault::none || check_.fault == FatFault::tooLarge;
  report.files = check_.entriesWalked - check_.directories + check_.emptyFiles;
  report.directories = check_.directories;
  report.usedClusters = check_.usedClusters;
  report.freeClusters = check_.freeClusters;
  report.badClusters = check_.badClusters;
  if (volume_) addMends(report.mends);
}

// --- What can be done about it

void FatSurvey::addMends(std::vector<Mend>& mends) {
  if (isByBackup_)
    mends.push_back({Mend::Kind::bootSector, "The boot sector is damaged, and its backup is sound.",
                     "The backup is written over the boot sector.", worth() == Worth::none});
  if (worth() == Worth::none || !isBelieved_) return;
  if (copiesDiffer_)
    mends.push_back({Mend::Kind::tableCopies,
                     format("The copies of the FAT differ; by copy %lu the files are %s.",
                            number(bestCopy_ + 1),
                            worth() == Worth::sound ? "sound" : "sound but for lost clusters"),
                     format("Copy %lu is written over the others.", number(bestCopy_ + 1)),
                     isCloseChoice_});
  if (worth() == Worth::lostClusters) addLostClusters(mends);
  addFsInfo(mends);
  addBackup(mends);
  addInUseMark(mends);
}

void FatSurvey::addLostClusters(std::vector<Mend>& mends) const {
  const std::string fault = format(
      "%lu clusters (%lu KiB) are in use that belong to no file.", number(check_.lostClusters),
      number(u64{check_.lostClusters} * volume_->layout.clusterBytes() / kKiB));
  const char* const remedy = whyNotKept_ == Error::none
                                 ? "They are kept as files in a new directory '%s'."
                                 : "There is no room for a directory of them as files.";
  mends.push_back({Mend::Kind::keepLostClusters, fault, format(remedy, lostFolder_.c_str()), false,
                   whyNotKept_});
  mends.push_back({Mend::Kind::freeLostClusters, fault,
                   "They become free space, and what they hold is given up.", true});
}

void FatSurvey::addFsInfo(std::vector<Mend>& mends) {
  FatBootArea& boot = volume_->boot;
  if (!boot.hasFsInfoSector()) return;
  const FatFsInfoRecord* info = boot.fsInfo();
  const bool isWhole =
      info != nullptr &&
      std::memcmp(info->leadSignature, kFsInfoLeadSignature, sizeof(info->leadSignature)) == 0 &&
      std::ranges::equal(info->trailSignature, kFatSectorTrail);
  const std::string remedy = "The number of free clusters is written as it was counted.";
  if (!isWhole) {
    mends.push_back({Mend::Kind::freeCount,
                     "The sector for the number of free clusters is damaged.", remedy, false});
    return;
  }
  const u32 stated = info->freeClusters;
  const u32 next = info->nextFreeCluster;
  if (stated != kFreeClustersUnknown && stated != map_->freeClusters())
    mends.push_back({Mend::Kind::freeCount,
                     format("The volume says that %lu clusters are free, and it has %lu.",
                            number(stated), number(map_->freeClusters())),
                     remedy, false});
  else if (next != kAllOnes32 && !map_->isCluster(next))
    mends.push_back({Mend::Kind::freeCount,
                     "The search for free clusters is to begin at one that is none.", remedy,
                     false});
}

// Without the mark of a volume in use, which is not always set in both.
void FatSurvey::addBackup(std::vector<Mend>& mends) {
  const FatBootArea& boot = volume_->boot;
  const u32 backup = boot.backupBootSector();
  if (isByBackup_ || backup == 0 || backup >= volume_->layout.reservedSectors) return;
  FatBootArea copy(volume_->layout.bytesPerSector);
  if (range_.disk.readSectors(range_.firstSector + backup, copy.bytes().data(), 1)) return;
  FatBootArea original = boot;
  for (FatBootArea* area : {&copy, &original})
    area->bytes()[kFat32IdentityOffset + offsetof(FatIdentityRecord, reserved)] &=
        static_cast<u8>(~kBootInUse);
  if (std::ranges::equal(copy.sector(0), original.sector(0))) return;
  // Where both are possible and their numbers differ, nobody knows which one is right.
  constexpr std::size_t kNumbers = offsetof(FatBpbRecord, bytesPerSector);
  const auto numbersOf = [](FatBootArea& area) {
    return area.bytes().subspan(kNumbers, kFat32IdentityOffset - kNumbers);
  };
  if (copy.layoutIn(range_, type_) && !std::ranges::equal(numbersOf(copy), numbersOf(original)))
    return;
  mends.push_back({Mend::Kind::backupBootSector,
                   "The backup of the boot sector differs from the boot sector, which is sound.",
                   "The boot sector is written over its backup.", false});
}

void FatSurvey::addInUseMark(std::vector<Mend>& mends) {
  FatClusters clusters(*volume_);
  const bool isBootMarked =
      (volume_->boot.identity().reserved & kBootInUse) != 0 && volume_->boot.hasExtendedSignature();
  if (isBootMarked || !clusters.isSoundEntry(map_->secondEntry()))
    mends.push_back({Mend::Kind::inUseMark,
                     "The volume is marked as in use, so it was not taken out of use properly.",
                     "The mark is taken away.", false});
}

// --- Doing it

class FatRepair {
 public:
  FatRepair(const SectorRange& range, u16 type, const RepairWish& wish, Job& job,
            RepairReport& report)
      : range_(range), type_(type), wish_(wish), job_(job), report_(report) {}

  Failure run() {
    std::vector<Mend> wished = wish_.mends;
    std::ranges::sort(wished, {}, &Mend::kind);
    for (const Mend& mend : wished)
      if (const Failure failed = doMend(mend.kind)) return failed;
    return checkFatVolume(range_, type_, job_, report_.after);
  }

 private:
  Failure doMend(Mend::Kind kind);
  Failure apply(Mend::Kind kind, FatSurvey& survey);
  Failure freeLost(FatSurvey& survey);
  Failure writeFreeCount(FatSurvey& survey);
  Failure takeMark(FatVolume& volume);
  DiskDevice& disk() const { return range_.disk; }

  SectorRange range_;
  u16 type_;
  const RepairWish& wish_;
  Job& job_;
  RepairReport& report_;
};

// What an earlier mend has settled as well is not looked for any more.
Failure FatRepair::doMend(Mend::Kind kind) {
  if (job_.shouldStop()) return Error::cancelled;
  FatSurvey survey(range_, type_, job_);
  if (const Failure failed = survey.run()) return failed;
  CheckReport found;
  survey.describe(found);
  const auto mend = std::ranges::find(found.mends, kind, &Mend::kind);
  if (mend == found.mends.end()) return {};
  if (!survey.rests(kind)) return {};
  if (mend->whyNot != Error::none) return mend->whyNot;
  report_.touched = true;
  if (const Failure failed = apply(kind, survey)) return failed;
  if (const Failure failed = disk().flush()) return failed;
  report_.done.push_back(*mend);
  return {};
}

Failure FatRepair::apply(Mend::Kind kind, FatSurvey& survey) {
  FatVolume& volume = survey.volume();
  std::string folder;
  switch (kind) {
    case Mend::Kind::bootSector:
      return volume.boot.writeBootSector(range_);
    case Mend::Kind::tableCopies:
      return copyTable(range_, volume.layout, survey.bestCopy());
    case Mend::Kind::keepLostClusters:
      return keepLost(range_, type_, survey.map(), wish_.secondsSinceEpoch, folder);
    case Mend::Kind::freeLostClusters:
      return freeLost(survey);
    case Mend::Kind::freeCount:
      return writeFreeCount(survey);
    case Mend::Kind::backupBootSector:
      return disk().writeSectors(range_.firstSector + volume.boot.backupBootSector(),
                                 volume.boot.sector(0).data(), 1);
    case Mend::Kind::inUseMark:
      return takeMark(volume);
  }
  return {};
}

Failure FatRepair::freeLost(FatSurvey& survey) {
  FatTable table(range_, survey.volume().layout);
  if (const Failure failed = table.setUp()) return failed;
  u32 freed = 0;
  for (u32 at = survey.map().unmarkedFrom(2); at != 0; at = survey.map().unmarkedFrom(at + 1)) {
    if (const Failure failed = table.set(at, 0)) return failed;
    ++freed;
  }
  if (const Failure failed = table.flush()) return failed;
  // A count that was right stays so.
  FatBootArea& boot = survey.volume().boot;
  const FatFsInfoRecord* info = boot.fsInfo();
  if (info == nullptr || info->freeClusters != survey.map().freeClusters()) return {};
  return boot.writeFsInfo(range_, info->freeClusters + freed, info->nextFreeCluster);
}

Failure FatRepair::writeFreeCount(FatSurvey& survey) {
  FatBootArea& boot = survey.volume().boot;
  const FatFsInfoRecord* info = boot.fsInfo();
  const u32 next = info != nullptr ? u32{info->nextFreeCluster} : 0;
  boot.renewFsInfo();
  return boot.writeFsInfo(range_, survey.map().freeClusters(),
                          survey.map().isCluster(next) ? next : kAllOnes32);
}

Failure FatRepair::takeMark(FatVolume& volume) {
  FatClusters clusters(volume);
  if (const Failure failed = clusters.setUp()) return failed;
  if (const Failure failed = clusters.markSound(true)) return failed;
  if ((volume.boot.identity().reserved & kBootInUse) == 0) return {};
  volume.boot.identity().reserved &= static_cast<u8>(~kBootInUse);
  return volume.boot.writeBootSector(range_);
}

}  // namespace

Failure checkFatVolume(const SectorRange& range, u16 type, Job& job, CheckReport& report) {
  FatSurvey survey(range, type, job);
  const Failure failed = survey.run();
  survey.describe(report);
  if (failed) report.mends.clear();
  return failed;
}

Failure repairFatVolume(const SectorRange& range, u16 type, const RepairWish& wish, Job& job,
                        RepairReport& report) {
  report = {};
  return FatRepair(range, type, wish, job, report).run();
}

}  // namespace tallowin
