#include "fat/fat_clusters.h"

#include <algorithm>
#include <bit>

namespace tallowin {
namespace {

constexpr u32 kScanWindowSectors = 512;
constexpr u32 kNotMirrored = 0x80;
constexpr u32 kActiveFatMask = 0x0F;

}  // namespace

// A FAT32 may use one of its FATs alone.
FatTable::Options FatClusters::tableOptions() const {
  FatTable::Options options;
  if (!layout().isFat32()) return options;
  const u16 flags = volume_.boot.bpb32().flags;
  if ((flags & kNotMirrored) != 0)
    options.elsewhereLba = volume_.range.firstSector + layout().reservedSectors +
                           u64{flags & kActiveFatMask} * layout().sectorsPerFat;
  return options;
}

Failure FatClusters::setUp() {
  const u32 flags = layout().isFat32() ? u32{volume_.boot.bpb32().flags} : 0;
  const bool isInUse =
      (flags & kNotMirrored) == 0 || (flags & kActiveFatMask) < layout().numberOfFats;
  bool areThere = false;
  if (const Failure failed = beginsWithItsFats(volume_, areThere)) return failed;
  return isInUse && areThere ? table_.setUp(tableOptions()) : Failure(Error::invalidVolume);
}

Failure FatClusters::prepare() {
  if (!bits_.empty()) return {};
  FatTable whole(volume_.range, layout());
  FatTable::Options options = tableOptions();
  options.windowSectors = kScanWindowSectors;
  options.savedWindows = 1;
  if (const Failure failed = whole.setUp(options)) return failed;
  std::vector<u64> bits(layout().highestCluster() / 64 + 1);
  u32 available = 0;
  for (u32 cluster = 2; cluster <= layout().highestCluster(); ++cluster) {
    u32 value = 0;
    if (const Failure failed = whole.get(cluster, value)) return failed;
    if (value != 0) continue;
    bits[cluster / 64] |= u64{1} << cluster % 64;
    ++available;
  }
  bits_ = std::move(bits);
  available_ = available;
  return {};
}

// Who only looks for a label needs no table.
Failure FatClusters::readEntry(u32 cluster, u32& value) {
  if (!table_.isSetUp())
    if (const Failure failed = setUp()) return failed;
  return table_.get(cluster, value);
}

Failure FatClusters::next(u32 cluster, u32& following) {
  u32 value = 0;
  if (!isCluster(cluster)) return Error::corrupt;
  if (const auto changed = changed_.find(cluster); changed != changed_.end())
    value = changed->second.value;
  else if (const Failure failed = readEntry(cluster, value))
    return failed;
  following = value > layout().badMark() ? 0 : value;
  return following == 0 && value == 0              ? Error::corrupt
         : following != 0 && !isCluster(following) ? Error::corrupt
                                                   : Error::none;
}

// --- Free clusters

void FatClusters::setAvailable(u32 cluster, bool available) {
  if (isAvailable(cluster) == available) return;
  bits_[cluster / 64] ^= u64{1} << cluster % 64;
  available ? ++available_ : --available_;
}

// The first run of so many in [from, end), else the longest; none: count 0.
ClusterRun FatClusters::findRun(u32 from, u32 end, u32 wanted) const {
  ClusterRun best;
  for (u32 at = from; at < end;) {
    const u64 rest = bits_[at / 64] >> at % 64;
    if (rest == 0) {
      at = (at / 64 + 1) * 64;
      continue;
    }
    at += static_cast<u32>(std::countr_zero(rest));
    ClusterRun run{at, 0};
    while (at < end && run.count < wanted && isAvailable(at)) ++run.count, ++at;
    if (run.count > best.count && run.first < end) best = run;
    if (best.count == wanted) break;
  }
  return best;
}

ClusterRun FatClusters::bestRun(u32 wanted) const {
  const u32 end = layout().highestCluster() + 1;
  const u32 from = isCluster(hint_) ? hint_ + 1 : 2;
  const ClusterRun behind = findRun(from, end, wanted);
  if (behind.count == wanted) return behind;
  const ClusterRun before = findRun(2, std::min(from, end), wanted);
  return before.count > behind.count ? before : behind;
}

std::vector<ClusterRun> FatClusters::allocate(u32 count, u32 near) {
  std::vector<ClusterRun> runs;
  if (isCluster(near)) hint_ = near;
  while (count != 0) {
    const ClusterRun run = bestRun(count);
    if (run.count == 0) break;
    auto place = changed_.lower_bound(run.first);
    for (u32 cluster = run.first; cluster - run.first < run.count; ++cluster) {
      setAvailable(cluster, false);
      place = std::next(changed_.insert_or_assign(place, cluster, Change{cluster + 1, true}));
    }
    changed_[run.last()].value = layout().endMark();
    if (!runs.empty()) changed_[runs.back().last()].value = run.first;
    hint_ = run.last();
    count -= run.count;
    runs.push_back(run);
  }
  return runs;
}

void FatClusters::link(u32 end, u32 following) {
  const auto [change, isAdded] = changed_.try_emplace(end, Change{0, false});
  if (isAdded) ++oldChanges_;
  change->second.value = following;
}

void FatClusters::cut(u32 cluster) { link(cluster, layout().endMark()); }

void FatClusters::release(const ClusterRun& run) {
  ClusterRun old{run.first, 0};  // what the disk has in use
  const auto keep = [&] {
    if (old.count == 0) return;
    freed_.push_back(old);
    freedCount_ += old.count;
  };
  for (u32 cluster = run.first; cluster - run.first < run.count; ++cluster) {
    const auto changed = changed_.find(cluster);
    const bool wasFree = changed != changed_.end() && changed->second.wasFree;
    if (changed != changed_.end() && !wasFree) --oldChanges_;
    if (changed != changed_.end()) changed_.erase(changed);
    if (!wasFree) {
      ++old.count;
      continue;
    }
    setAvailable(cluster, true);
    keep();
    old = {cluster + 1, 0};
  }
  keep();
}

bool FatClusters::isNew(u32 cluster) const {
  const auto changed = changed_.find(cluster);
  return changed != changed_.end() && changed->second.wasFree;
}

bool FatClusters::isCut(u32 cluster) const {
  const auto changed = changed_.find(cluster);
  return changed != changed_.end() && !changed->second.wasFree &&
         changed->second.value == layout().endMark();
}

// --- Writing

template <typename Belongs>
Failure FatClusters::write(Belongs belongs, bool& wrote) {
  for (const auto& [cluster, change] : changed_) {
    if (!belongs(change)) continue;
    wrote = true;
    if (const Failure failed = table_.set(cluster, change.value)) return failed;
  }
  return table_.flush();
}

Failure FatClusters::writeNew(bool& wrote) {
  return write([](const Change& change) { return change.wasFree; }, wrote);
}

Failure FatClusters::writeLinks(bool& wrote) {
  if (oldChanges_ == 0) return {};
  const u32 end = layout().endMark();
  return write([end](const Change& change) { return !change.wasFree && change.value != end; },
               wrote);
}

Failure FatClusters::writeFreed(bool& wrote) {
  const u32 end = layout().endMark();
  for (const ClusterRun& run : freed_) {
    wrote = true;
    for (u32 i = 0; i < run.count; ++i)
      if (const Failure failed = table_.set(run.first + i, 0)) return failed;
  }
  const auto isCutOff = [end](const Change& change) {
    return !change.wasFree && change.value == end;
  };
  if (const Failure failed = oldChanges_ != 0 ? write(isCutOff, wrote) : table_.flush())
    return failed;
  for (const ClusterRun& run : freed_)
    for (u32 i = 0; i < run.count; ++i) setAvailable(run.first + i, true);
  freed_.clear();
  freedCount_ = 0;
  changed_.clear();
  oldChanges_ = 0;
  return {};
}

// --- Sound or in use

// Of entry 1; a FAT12 has none.
u32 FatClusters::soundBit() const {
  return layout().isFat32() ? 0x08000000 : layout().kind == FatKind::fat16 ? 0x8000 : 0;
}

Failure FatClusters::isMarkedSound(bool& sound) {
  u32 value = 0;
  if (const Failure failed = table_.get(1, value)) return failed;
  sound = isSoundEntry(value);
  return {};
}

Failure FatClusters::markSound(bool sound) {
  u32 value = 0;
  if (soundBit() == 0) return {};
  if (const Failure failed = table_.get(1, value)) return failed;
  if (const Failure failed = table_.set(1, sound ? value | soundBit() : value & ~soundBit()))
    return failed;
  return table_.flush();
}

}  // namespace tallowin
