#include "fat/fat_directory_walk.h"

#include <algorithm>
#include <new>

namespace tallowin {
namespace {

constexpr std::size_t kMostWaiting = 4095;
constexpr u32 kPieceBytes = 256 * kKiB;  // of a directory in a read
constexpr std::size_t kMostStarts = 512;
constexpr u32 kStartBytes = 4 * kKiB;            // of each that waits
constexpr std::size_t kBatchBytes = 256 * kKiB;  // of beginnings that are read together
constexpr std::size_t kAnnouncedBytes = 8 * kMiB;
constexpr u64 kBridgedBytes = 32 * kKiB;  // less than that is read rather than left out

}  // namespace

FatDirectoryWalk::FatDirectoryWalk(const FatVolume& volume, FatClusterMap& map, Job& job)
    : volume_(volume),
      map_(map),
      job_(job),
      starts_(std::min<std::size_t>(kMostStarts, volume.layout.clusterCount())),
      startBytes_(new (std::nothrow) u8[starts_.size() * kStartBytes]) {}

Failure FatDirectoryWalk::run(const Visit& visit) {
  if (!startBytes_) return Error::outOfMemory;
  waiting_.clear();
  Outcome outcome = Outcome::goOn;
  if (const Failure failed =
          volume_.rootCluster() == 0 ? walkRootRegion(visit, outcome) : enter(0, visit, outcome))
    return failed;
  while (outcome != Outcome::stop && !waiting_.empty()) {
    const u32 directory = waiting_.back();
    waiting_.pop_back();
    if (job_.shouldStop()) return Error::cancelled;
    if (const Failure failed = enter(directory, visit, outcome)) return failed;
  }
  return {};
}

Failure FatDirectoryWalk::walkRootRegion(const Visit& visit, Outcome& outcome) {
  const FatLayout& layout = volume_.layout;
  const u32 pieceSectors = kPieceBytes / layout.bytesPerSector;
  const u64 first = volume_.range.firstSector + layout.rootDirSector();
  index_ = 0;
  for (u32 done = 0; done < layout.rootDirSectors() && outcome == Outcome::goOn;) {
    const u32 sectors = std::min(pieceSectors, layout.rootDirSectors() - done);
    piece_.resize(std::size_t{sectors} * layout.bytesPerSector);
    if (const Failure failed = volume_.range.disk.readSectors(first + done, piece_.data(), sectors))
      return failed;
    if (const Failure failed = look(piece_, 0, visit, outcome)) return failed;
    done += sectors;
  }
  return {};
}

// What is held of it comes first; the rest of its chain is read from there on.
Failure FatDirectoryWalk::enter(u32 directory, const Visit& visit, Outcome& outcome) {
  const FatLayout& layout = volume_.layout;
  const u32 clusterBytes = layout.clusterBytes();
  u32 at = directory != 0 ? directory : volume_.rootCluster();
  outcome = Outcome::goOn;
  index_ = 0;
  u64 skipped = 0;
  if (Start* const start = heldStart(at)) {
    // Others take its place while it is looked at.
    const std::span<const u8> bytes = bytesOf(*start);
    piece_.assign(bytes.begin(), bytes.end());
    forgetStart(*start);
    skipped = piece_.size();
    if (const Failure failed = look(piece_, directory, visit, outcome)) return failed;
  }
  for (u32 clusters = 0; at != 0 && outcome == Outcome::goOn;) {
    const u32 run = map_.runFrom(at, std::max(u32{1}, kPieceBytes / clusterBytes));
    const u64 bytes = u64{run} * clusterBytes;
    clusters += run;
    if (clusters > layout.clusterCount()) return Error::corrupt;
    if (skipped < bytes) {
      piece_.resize(bytes - skipped);
      if (const Failure failed =
              volume_.range.disk.readSectors(lbaOf(at) + skipped / layout.bytesPerSector,
                                             piece_.data(), piece_.size() / layout.bytesPerSector))
        return failed;
      if (const Failure failed = look(piece_, directory, visit, outcome)) return failed;
    }
    skipped -= std::min(skipped, bytes);
    if (const Failure failed = map_.next(at + run - 1, at)) return failed;
  }
  return {};
}

bool FatDirectoryWalk::isFound(const FatDirectoryEntryRecord& entry) const {
  return static_cast<u8>(entry.name[0]) != kFatDeleted &&
         (entry.attributes & kFatVolumeLabel) == 0 && !isDotEntry(entry);
}

Failure FatDirectoryWalk::look(std::span<const u8> bytes, u32 directory, const Visit& visit,
                               Outcome& outcome) {
  const Entries entries(reinterpret_cast<const FatDirectoryEntryRecord*>(bytes.data()),
                        bytes.size() / sizeof(FatDirectoryEntryRecord));
  announce(entries);
  for (std::size_t i = 0; i < entries.size(); ++i, ++index_) {
    const FatDirectoryEntryRecord& entry = entries[i];
    if (static_cast<u8>(entry.name[0]) == kFatEndOfDirectory) {
      outcome = Outcome::endOfDirectory;
      return {};
    }
    if (!isFound(entry)) continue;
    const Found found{entry, index_, directory, firstClusterOf(entry, volume_.layout.isFat32())};
    if (found.isDirectory() && map_.isCluster(found.firstCluster) && !isHeld(found.firstCluster))
      readAhead(entries.subspan(i));
    const Next next = visit(found);
    if (next == Next::stop) {
      outcome = Outcome::stop;
      return {};
    }
    if (next != Next::enter) continue;
    if (waiting_.size() == kMostWaiting) return Error::directoryFull;
    waiting_.push_back(found.firstCluster);
  }
  return {};
}

// --- Beginnings of directories

u32 FatDirectoryWalk::startBytes(u32 cluster) const {
  const u32 clusterBytes = volume_.layout.clusterBytes();
  const u32 run = map_.runFrom(cluster, std::max(u32{1}, kStartBytes / clusterBytes));
  return std::min(kStartBytes, run * clusterBytes);
}

FatDirectoryWalk::Start* FatDirectoryWalk::heldStart(u32 cluster) {
  const auto found = placeOfStart_.find(cluster);
  return found != placeOfStart_.end() ? &starts_[found->second] : nullptr;
}

std::span<u8> FatDirectoryWalk::bytesOf(const Start& start) {
  const auto place = static_cast<std::size_t>(&start - starts_.data());
  return {startBytes_.get() + place * kStartBytes, start.bytes};
}

FatDirectoryWalk::Start& FatDirectoryWalk::takeStart(u32 cluster) {
  Start& start = starts_[nextStart_];
  forgetStart(start);
  start = {cluster, startBytes(cluster)};
  placeOfStart_[cluster] = nextStart_;
  nextStart_ = (nextStart_ + 1) % starts_.size();
  return start;
}

void FatDirectoryWalk::forgetStart(Start& start) {
  if (start.cluster != 0) placeOfStart_.erase(start.cluster);
  start.cluster = 0;
}

Failure FatDirectoryWalk::startOf(u32 directory, std::span<const u8>& bytes) {
  Start* held = heldStart(directory);
  if (held == nullptr) {
    held = &takeStart(directory);
    const std::span<u8> place = bytesOf(*held);
    if (const Failure failed = volume_.range.disk.readSectors(
            lbaOf(directory), place.data(), place.size() / volume_.layout.bytesPerSector)) {
      forgetStart(*held);
      return failed;
    }
  }
  bytes = bytesOf(*held);
  return {};
}

// The directories in `entries` whose beginnings are not held, in the order of the disk.
std::vector<u32> FatDirectoryWalk::directoriesIn(Entries entries, std::size_t mostBytes) {
  std::vector<u32> clusters;
  std::size_t bytes = 0;
  for (const FatDirectoryEntryRecord& entry : entries) {
    if (static_cast<u8>(entry.name[0]) == kFatEndOfDirectory || bytes >= mostBytes) break;
    if (!isFound(entry) || (entry.attributes & kFatDirectory) == 0) continue;
    const u32 cluster = firstClusterOf(entry, volume_.layout.isFat32());
    if (!map_.isCluster(cluster) || isHeld(cluster)) continue;
    bytes += startBytes(cluster);
    clusters.push_back(cluster);
  }
  std::ranges::sort(clusters);
  clusters.erase(std::unique(clusters.begin(), clusters.end()), clusters.end());
  return clusters;
}

// Calls use(clusters, lba, sectors) for those that are worth one request.
template <typename Use>
void FatDirectoryWalk::forEachGroup(const std::vector<u32>& clusters, Use use) const {
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  for (std::size_t first = 0, end = 0; first < clusters.size(); first = end) {
    const u64 begin = lbaOf(clusters[first]);
    u64 reached = begin;
    for (end = first; end < clusters.size(); ++end) {
      const u64 at = lbaOf(clusters[end]);
      if (end != first &&
          (at > reached + kBridgedBytes / sectorBytes || at - begin >= kBatchBytes / sectorBytes))
        break;
      reached = std::max(reached, at + startBytes(clusters[end]) / sectorBytes);
    }
    use(std::span(clusters).subspan(first, end - first), begin, reached - begin);
  }
}

void FatDirectoryWalk::announce(Entries entries) {
  const std::vector<u32> clusters = directoriesIn(entries, kAnnouncedBytes);
  if (clusters.size() < 2) return;
  forEachGroup(clusters, [this](std::span<const u32>, u64 lba, u64 sectors) {
    volume_.range.disk.willRead(lba, sectors);
  });
}

void FatDirectoryWalk::readAhead(Entries entries) {
  forEachGroup(directoriesIn(entries, kBatchBytes),
               [this](std::span<const u32> clusters, u64 lba, u64 sectors) {
                 readTogether(clusters, lba, sectors);
               });
}

// One that cannot be read is told when it is asked for.
void FatDirectoryWalk::readTogether(std::span<const u32> clusters, u64 lba, u64 sectors) {
  std::span<const u8> bytes;
  if (clusters.size() == 1) {
    static_cast<void>(startOf(clusters.front(), bytes));
    return;
  }
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  together_.resize(sectors * sectorBytes);
  if (volume_.range.disk.readSectors(lba, together_.data(), sectors)) return;
  for (const u32 cluster : clusters) {
    const Start& start = takeStart(cluster);
    std::copy_n(
        together_.begin() + static_cast<std::ptrdiff_t>((lbaOf(cluster) - lba) * sectorBytes),
        start.bytes, bytesOf(start).begin());
  }
}

}  // namespace tallowin
