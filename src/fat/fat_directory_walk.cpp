#include "fat/fat_directory_walk.h"

#include <algorithm>

namespace tallowin {
namespace {

constexpr std::size_t kMostWaiting = 4095;
constexpr u32 kPieceBytes = 256 * kKiB;          // of a directory in a read
constexpr u32 kStartBytes = 16 * kKiB;           // of each that waits
constexpr std::size_t kBatchBytes = 256 * kKiB;  // of beginnings that are read together
constexpr std::size_t kMostStartBytes = kMiB;    // of beginnings that are held
constexpr u64 kBridgedBytes = 32 * kKiB;         // less than that is read rather than left out

bool isDotEntry(const FatDirectoryEntryRecord& entry) {
  const std::string_view name(entry.name, sizeof(entry.name));
  return name == ".          " || name == "..         ";
}

}  // namespace

Failure FatDirectoryWalk::run(const Visit& visit) {
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
  if (auto start = starts_.extract(at)) {
    startBytes_ -= start.mapped().size();
    if (!startOrder_.empty() && startOrder_.back() == at) startOrder_.pop_back();
    skipped = start.mapped().size();
    if (const Failure failed = look(start.mapped(), directory, visit, outcome)) return failed;
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
  for (std::size_t i = 0; i < entries.size(); ++i, ++index_) {
    const FatDirectoryEntryRecord& entry = entries[i];
    if (static_cast<u8>(entry.name[0]) == kFatEndOfDirectory) {
      outcome = Outcome::endOfDirectory;
      return {};
    }
    if (!isFound(entry)) continue;
    const Found found{entry, index_, directory, firstClusterOf(entry, volume_.layout.isFat32())};
    if (found.isDirectory() && map_.isCluster(found.firstCluster) &&
        !starts_.contains(found.firstCluster))
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

Failure FatDirectoryWalk::startOf(u32 directory, std::span<const u8>& bytes) {
  auto held = starts_.find(directory);
  if (held == starts_.end()) {
    std::vector<u8> start(startBytes(directory));
    if (const Failure failed = volume_.range.disk.readSectors(
            lbaOf(directory), start.data(), start.size() / volume_.layout.bytesPerSector))
      return failed;
    hold(directory, start);
    held = starts_.find(directory);
  }
  bytes = held->second;
  return {};
}

// Those of the next directories in `entries`.
void FatDirectoryWalk::readAhead(Entries entries) {
  std::vector<u32> clusters;
  std::size_t bytes = 0;
  for (const FatDirectoryEntryRecord& entry : entries) {
    if (static_cast<u8>(entry.name[0]) == kFatEndOfDirectory || bytes >= kBatchBytes) break;
    if (!isFound(entry) || (entry.attributes & kFatDirectory) == 0) continue;
    const u32 cluster = firstClusterOf(entry, volume_.layout.isFat32());
    if (!map_.isCluster(cluster) || starts_.contains(cluster)) continue;
    bytes += startBytes(cluster);
    clusters.push_back(cluster);
  }
  std::ranges::sort(clusters);
  clusters.erase(std::unique(clusters.begin(), clusters.end()), clusters.end());
  for (std::size_t first = 0, end = 0; first < clusters.size(); first = end) {
    const u64 begin = lbaOf(clusters[first]) * volume_.layout.bytesPerSector;
    u64 reached = begin;
    for (end = first; end < clusters.size(); ++end) {
      const u64 at = lbaOf(clusters[end]) * volume_.layout.bytesPerSector;
      if (end != first && (at > reached + kBridgedBytes || at - begin >= kBatchBytes)) break;
      reached = std::max(reached, at + startBytes(clusters[end]));
    }
    readTogether(std::span(clusters).subspan(first, end - first));
  }
}

// One that cannot be read is told when it is asked for.
void FatDirectoryWalk::readTogether(std::span<const u32> clusters) {
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  const u64 first = lbaOf(clusters.front());
  u64 end = first;
  for (const u32 cluster : clusters)
    end = std::max(end, lbaOf(cluster) + startBytes(cluster) / sectorBytes);
  std::vector<u8> bytes((end - first) * sectorBytes);
  if (volume_.range.disk.readSectors(first, bytes.data(), end - first)) return;
  for (const u32 cluster : clusters)
    hold(cluster,
         std::span(bytes).subspan((lbaOf(cluster) - first) * sectorBytes, startBytes(cluster)));
}

void FatDirectoryWalk::hold(u32 cluster, std::span<const u8> bytes) {
  while (startBytes_ + bytes.size() > kMostStartBytes && !startOrder_.empty()) {
    if (const auto oldest = starts_.extract(startOrder_.front()))
      startBytes_ -= oldest.mapped().size();
    startOrder_.pop_front();
  }
  if (startOrder_.size() > 2 * starts_.size() + kBatchBytes / 512)
    std::erase_if(startOrder_, [this](u32 held) { return !starts_.contains(held); });
  starts_[cluster].assign(bytes.begin(), bytes.end());
  startOrder_.push_back(cluster);
  startBytes_ += bytes.size();
}

}  // namespace tallowin
