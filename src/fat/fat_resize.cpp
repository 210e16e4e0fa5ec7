#include "fat/fat_resize.h"

#include <algorithm>
#include <new>
#include <optional>

#include "fat/fat_check.h"
#include "fat/fat_renumber.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u32 kMostFixedRootEntries = 2048;
constexpr u16 kFat32Type = 0x0B;
constexpr u16 kFat16Type = 0x06;

// Of the phase, in the order in which they are done.
enum Step : u32 { kMoveClusters = 1, kRenumber, kWriteRoot, kWriteFats, kWriteBootArea };

bool isSound(FatFault fault) { return fault == FatFault::none || fault == FatFault::tooLarge; }

// The type that the result gets where the present one does not fit it any more; types of special
// partitions stay.
u16 typeAfter(u16 type, const FatLayout& layout) {
  const u16 plain = types::unhide(type);
  if (plain == 0xDE || plain == 0xDF || plain == 0x12) return type;
  const auto hiddenLike = [&](u16 wanted) {
    return types::isHidden(type) ? types::hide(wanted) : wanted;
  };
  if (layout.isFat32()) return types::isFat32(type) ? type : hiddenLike(kFat32Type);
  if (plain == kFatTypeFat12) return layout.kind == FatKind::fat12 ? type : hiddenLike(kFat16Type);
  if (plain == kFatTypeSmallFat16)
    return isFatSizeValid(kFatTypeSmallFat16, layout.totalSectors) ? type : hiddenLike(kFat16Type);
  return plain == kFat16Type || plain == 0x0E ? type : hiddenLike(kFat16Type);
}

Failure check(const SectorRange& range, u16 type, Job& job, ResizeReport& report) {
  std::optional<FatVolume> volume;
  if (const Failure failed = openFat(range, type, volume)) return failed;
  FatCheckReport found;
  FatClusterMap map(*volume);
  const Failure failed = checkFat(*volume, map, job, found);
  if (failed) return failed;
  if (isSound(found.fault)) return {};
  report.fault = static_cast<u32>(found.fault);
  report.faultText = fatFaultText(*volume, found);
  return Error::corrupt;
}

// A check of what was resized.
class AgainJob : public SilentJob {
 public:
  explicit AgainJob(Job& job) : job_(job) {}
  void phase(Phase, u64 total) override { job_.phase(Phase::checkingAgain, total); }
  void advance(u64 bytes) override { job_.advance(bytes); }

 private:
  Job& job_;
};

class FatResizer {
 public:
  FatResizer(const SectorRange& range, u16 type, const ResizeWish& wish, Job& job)
      : range_(range), type_(type), wish_(wish), job_(job) {}

  // All that can be refused; writes nothing.
  Failure plan();
  Failure run(ResizeReport& report);

  const FatResizePlan& planned() const { return plan_; }

 private:
  u32 rootEntriesInClusters() const;
  Failure planRoot();
  Failure readRoot();
  Failure moveClusters(ResizeReport& report);
  Failure renumberDirectories();
  Failure writeRoot();
  Failure writeFats();
  Failure writeBootArea();
  Failure checkAfter(ResizeReport& report);

  u32 rootPlaceEntries() const;
  u32 valueOfGroup(u32 place) const;
  Failure putGroup(FatWriter& writer, u32 place);
  Failure put(FatWriter& writer, u32 value);
  Failure putPieces(FatWriter& writer, u32 place);
  u32 linkAfter(u32 cluster) const;
  const u32* rootLinkAt(u32 newCluster) const;

  SectorRange range_;
  u16 type_;
  const ResizeWish& wish_;
  Job& job_;
  std::optional<FatVolume> volume_;
  FatLinks links_;
  FatResizePlan plan_;
  std::optional<FatMoves> moves_;
  FatTree tree_;
  std::vector<u8> root_;          // of the fixed kind, or that becomes it or ceases to be it
  std::vector<u32> rootPlaces_;   // of a root that gets clusters: old places, group by group
  std::vector<u32> rootNumbers_;  // and its new clusters
  u32 freeClusters_ = 0;          // of the new volume
  u32 nextFree_ = 0;
  u32 put_ = 0;  // the number of the next entry of the new FAT
};

Failure FatResizer::plan() {
  if (const Failure failed = openFat(range_, type_, volume_)) return failed;
  if (const Failure failed = links_.read(*volume_)) return failed;
  u32 used = 0;
  for (u32 cluster = 2; cluster <= links_.highestCluster(); ++cluster)
    used += links_.isInUse(cluster) ? 1 : 0;
  if (const Failure failed =
          planFatResize(volume_->layout, wish_, used, rootEntriesInClusters(), plan_))
    return failed;
  SilentJob silent;
  if (const Failure failed = readFatTree(*volume_, plan_, links_, silent, tree_)) return failed;
  const bool changesClusters = plan_.groupClusters != 1 || plan_.pieceClusters != 1;
  if (tree_.hasExtendedAttributes && changesClusters) return Error::sizeNotPossible;
  if (plan_.firstOld > plan_.lastOld) return Error::sizeNotPossible;
  moves_.emplace(plan_, links_);
  if (const Failure failed = planRoot()) return failed;
  return moves_->settle();
}

// Of a FAT32, as many as its root has room for.
u32 FatResizer::rootEntriesInClusters() const {
  u64 entries = 0;
  const u32 perCluster = volume_->layout.clusterBytes() / u32{sizeof(FatDirectoryEntryRecord)};
  for (u32 cluster = volume_->rootCluster(); cluster != 0 && entries <= kMostFixedRootEntries;
       cluster = links_.next(cluster))
    entries += perCluster;
  return static_cast<u32>(entries);
}

// --- The root directory, where it is not made of clusters before and after

u32 FatResizer::rootPlaceEntries() const {
  return static_cast<u32>(root_.size() / sizeof(FatDirectoryEntryRecord));
}

Failure FatResizer::readRoot() {
  const FatLayout& old = plan_.oldLayout;
  if (!old.isFat32()) {
    root_.resize(std::size_t{old.rootDirSectors()} * old.bytesPerSector);
    return range_.disk.readSectors(range_.firstSector + old.rootDirSector(), root_.data(),
                                   old.rootDirSectors());
  }
  for (u32 cluster = volume_->rootCluster(); cluster != 0; cluster = links_.next(cluster)) {
    if (root_.size() > std::size_t{kMostFixedRootEntries} * sizeof(FatDirectoryEntryRecord))
      return Error::sizeNotPossible;
    const std::size_t at = root_.size();
    root_.resize(at + old.clusterBytes());
    if (const Failure failed =
            range_.disk.readSectors(range_.firstSector + old.clusterToSector(cluster),
                                    root_.data() + at, old.sectorsPerCluster))
      return failed;
  }
  return {};
}

Failure FatResizer::planRoot() {
  const FatLayout& now = plan_.newLayout;
  if (plan_.oldLayout.isFat32() && now.isFat32()) return {};
  if (const Failure failed = readRoot()) return failed;
  if (!now.isFat32()) {
    if (!plan_.oldLayout.isFat32()) return {};
    if (rootPlaceEntries() > kMostFixedRootEntries || rootPlaceEntries() > now.rootEntries)
      return Error::sizeNotPossible;
    moves_->dropChain(volume_->rootCluster());
    return {};
  }
  // As many entries as are in use, and the one that ends them.
  const auto* entries = reinterpret_cast<const FatDirectoryEntryRecord*>(root_.data());
  u32 count = 0;
  while (count < rootPlaceEntries() &&
         static_cast<u8>(entries[count].name[0]) != kFatEndOfDirectory)
    ++count;
  const u64 bytes = (u64{count} + 1) * sizeof(FatDirectoryEntryRecord);
  const u32 clusters = static_cast<u32>((bytes + now.clusterBytes() - 1) / now.clusterBytes());
  const u32 groups = (clusters + plan_.pieceClusters - 1) / plan_.pieceClusters;
  if (const Failure failed = moves_->reserveGroups(groups, rootPlaces_)) return failed;
  for (const u32 place : rootPlaces_)
    for (u32 piece = 0; piece < plan_.pieceClusters; ++piece)
      rootNumbers_.push_back(plan_.mapCluster(place) + piece);
  rootNumbers_.resize(clusters);
  root_.resize(std::size_t{clusters} * now.clusterBytes());
  return {};
}

// --- The resize itself

Failure FatResizer::run(ResizeReport& report) {
  if (const Failure failed = check(range_, type_, job_, report)) return failed;
  if (const Failure failed = plan()) return failed;
  report.clusterBytes = plan_.newLayout.clusterBytes();
  job_.phase(Phase::resizing, 0);
  if (const Failure failed = moveClusters(report)) return failed;
  if (const Failure failed = renumberDirectories()) return failed;
  report.touched = true;
  if (const Failure failed = writeRoot()) return failed;
  if (const Failure failed = writeFats()) return failed;
  if (const Failure failed = writeBootArea()) return failed;
  report.resized = true;
  report.type = typeAfter(type_, plan_.newLayout);
  return wish_.checkAfter ? checkAfter(report) : Failure();
}

Failure FatResizer::moveClusters(ResizeReport& report) {
  const u64 bytes = moves_->clustersToMove() * plan_.oldLayout.clusterBytes();
  job_.step(kMoveClusters, 2 * bytes);
  if (job_.shouldStop()) return Error::cancelled;
  report.touched = true;
  return moves_->carryOut(range_, job_);
}

// Where no number changes there is nothing to write.
Failure FatResizer::renumberDirectories() {
  job_.step(kRenumber, tree_.directories.size());
  const FatRenumbering renumbering(*volume_, plan_, links_, *moves_);
  bool ended = false;
  if (!root_.empty()) static_cast<void>(renumbering.renumber(root_, ended));
  if (!plan_.isRenumbered() && moves_->moves().empty()) return {};
  for (const u32 directory : tree_.directories) {
    if (job_.shouldStop()) return Error::cancelled;
    const bool isDropped = directory == volume_->rootCluster() && plan_.converts;
    if (!isDropped)
      if (const Failure failed = renumbering.renumberDirectory(directory)) return failed;
    job_.advance(1);
  }
  return {};
}

Failure FatResizer::writeRoot() {
  if (root_.empty()) return {};
  const FatLayout& now = plan_.newLayout;
  job_.step(kWriteRoot, root_.size());
  if (!now.isFat32()) {
    root_.resize(std::size_t{now.rootDirSectors()} * now.bytesPerSector);
    return range_.disk.writeSectors(range_.firstSector + now.rootDirSector(), root_.data(),
                                    now.rootDirSectors());
  }
  for (std::size_t i = 0; i < rootNumbers_.size(); ++i)
    if (const Failure failed =
            range_.disk.writeSectors(range_.firstSector + now.clusterToSector(rootNumbers_[i]),
                                     root_.data() + i * now.clusterBytes(), now.sectorsPerCluster))
      return failed;
  return {};
}

// --- The new FAT

Failure FatResizer::put(FatWriter& writer, u32 value) {
  if (put_ >= 2 && value == 0) {
    ++freeClusters_;
    if (nextFree_ == 0) nextFree_ = put_;
  }
  ++put_;
  return writer.put(value);
}

// The new number of what follows an old cluster in its chain, or the end.
u32 FatResizer::linkAfter(u32 cluster) const {
  const u32 next = links_.next(cluster);
  return next == 0 ? plan_.newLayout.endMark() : plan_.mapCluster(moves_->placeOf(next));
}

u32 FatResizer::valueOfGroup(u32 place) const {
  u32 last = 0;
  for (u32 i = 0; i < plan_.groupClusters; ++i) {
    if (moves_->isBadAt(place + i)) return plan_.newLayout.badMark();
    const u32 cluster = moves_->clusterAt(place + i);
    if (cluster != 0) last = cluster;
  }
  return last == 0 ? 0 : linkAfter(last);
}

// The new clusters of one old one; a file that needs fewer gives the others up.
Failure FatResizer::putPieces(FatWriter& writer, u32 place) {
  const u32 count = plan_.pieceClusters;
  const u32 cluster = moves_->clusterAt(place);
  const bool isBad = moves_->isBadAt(place);
  u32 used = cluster != 0 ? count : 0;
  if (cluster != 0 && links_.next(cluster) == 0) {
    const auto tail =
        std::lower_bound(tree_.tails.begin(), tree_.tails.end(), cluster,
                         [](const FatTree::Tail& one, u32 value) { return one.cluster < value; });
    if (tail != tree_.tails.end() && tail->cluster == cluster) used = tail->pieces;
  }
  for (u32 i = 0; i < count; ++i) {
    u32 value = i + 1 < used ? put_ + 1 : i + 1 == used ? linkAfter(cluster) : 0;
    if (isBad) value = plan_.newLayout.badMark();
    if (const Failure failed = put(writer, value)) return failed;
  }
  return {};
}

const u32* FatResizer::rootLinkAt(u32 newCluster) const {
  const auto found = std::find(rootNumbers_.begin(), rootNumbers_.end(), newCluster);
  return found == rootNumbers_.end() ? nullptr : &*found;
}

Failure FatResizer::putGroup(FatWriter& writer, u32 place) {
  if (std::find(rootPlaces_.begin(), rootPlaces_.end(), place) != rootPlaces_.end()) {
    for (u32 i = 0; i < plan_.pieceClusters; ++i) {
      const u32* const own = rootLinkAt(put_);
      const bool isLast = own != nullptr && own == &rootNumbers_.back();
      const u32 value = own == nullptr ? 0 : isLast ? plan_.newLayout.endMark() : own[1];
      if (const Failure failed = put(writer, value)) return failed;
    }
    return {};
  }
  return plan_.pieceClusters != 1 ? putPieces(writer, place) : put(writer, valueOfGroup(place));
}

Failure FatResizer::writeFats() {
  const FatLayout& now = plan_.newLayout;
  job_.step(kWriteFats, u64{now.sectorsPerFat} * now.bytesPerSector);
  FatWriter writer(range_, now);
  const u32 media = FatMedia().descriptor;
  put_ = 0;
  if (const Failure failed = put(writer, (now.isFat32() ? 0xFFFFFF00 : 0xFF00) | media))
    return failed;
  if (const Failure failed = put(writer, kAllOnes32)) return failed;
  while (put_ < plan_.extra + 2)
    if (const Failure failed = put(writer, 0)) return failed;
  for (u32 place = plan_.firstOld; place <= plan_.lastOld; place += plan_.groupClusters)
    if (const Failure failed = putGroup(writer, place)) return failed;
  while (put_ <= now.highestCluster())
    if (const Failure failed = put(writer, 0)) return failed;
  return writer.finish();
}

Failure FatResizer::writeBootArea() {
  job_.step(kWriteBootArea, 0);
  const FatLayout& now = plan_.newLayout;
  FatBootArea& old = volume_->boot;
  const bool hadIdentity = old.hasExtendedSignature();
  const FatIdentityRecord identity = old.identity();
  FatBootArea boot =
      plan_.changesKind ? FatBootArea::fresh(now.bytesPerSector, identity.serial) : old;
  boot.setLayout(
      now, {.media = {},
            .geometry = wish_.geometry,
            .hiddenSectors = static_cast<u32>(std::min<u64>(wish_.hiddenSectors, kAllOnes32))});
  if (hadIdentity) {
    boot.identity().driveNumber = identity.driveNumber;
    boot.setLabel({identity.label, sizeof(identity.label)});
  }
  if (now.isFat32()) {
    boot.bpb32().rootCluster = plan_.oldLayout.isFat32()
                                   ? plan_.mapCluster(moves_->placeOf(volume_->rootCluster()))
                                   : rootNumbers_.front();
    boot.renewFsInfo();
    boot.fsInfo()->freeClusters = freeClusters_;
    if (nextFree_ != 0) boot.fsInfo()->nextFreeCluster = nextFree_;
  }
  if (const Failure failed = boot.writeBehindBootSector(range_)) return failed;
  if (const Failure failed = range_.disk.flush()) return failed;
  if (const Failure failed = boot.writeBootSector(range_)) return failed;
  return range_.disk.flush();
}

Failure FatResizer::checkAfter(ResizeReport& report) {
  AgainJob again(job_);
  return check({range_.disk, range_.firstSector, wish_.sectors}, report.type, again, report)
      .as(Error::corrupt);
}

}  // namespace

Failure fatResizeLimits(const SectorRange& range, u16 type, u64 roomSectors, ResizeLimits& limits) {
  std::optional<FatVolume> volume;
  if (const Failure failed = openFat(range, type, volume)) return failed;
  FatLinks links;
  if (const Failure failed = links.read(*volume)) return failed;
  u64 used = 0;
  for (u32 cluster = 2; cluster <= links.highestCluster(); ++cluster)
    used += links.isInUse(cluster) ? 1 : 0;
  const FatLayout& layout = volume->layout;
  limits.clusterBytes = layout.clusterBytes();
  limits.usedSectors = used * layout.sectorsPerCluster;
  limits.minimumSectors = layout.firstDataSector() + limits.usedSectors;
  limits.maximumSectors = std::min<u64>(roomSectors, 0xFFFFFF80);
  return {};
}

Failure planFatVolumeResize(const SectorRange& range, u16 type, const ResizeWish& wish,
                            ResizePlan& plan) {
  SilentJob silent;
  FatResizer resizer(range, type, wish, silent);
  if (const Failure failed = resizer.plan()) return failed;
  const FatResizePlan& made = resizer.planned();
  plan.clusterBytes = made.newLayout.clusterBytes();
  plan.type = typeAfter(type, made.newLayout);
  return {};
}

Failure resizeFatVolume(const SectorRange& range, u16 type, const ResizeWish& wish, Job& job,
                        ResizeReport& report) {
  report = {};
  try {
    return FatResizer(range, type, wish, job).run(report);
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
}

}  // namespace tallowin
