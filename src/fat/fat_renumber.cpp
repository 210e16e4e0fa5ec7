#include "fat/fat_renumber.h"

#include <algorithm>

#include "fat/fat_directory_walk.h"

namespace tallowin {
namespace {

constexpr u32 kPieceBytes = 1 * kMiB;
constexpr char kExtendedAttributes[] = "EA DATA  SF";

// A map and a silent job are what the walk needs; the check has read the same before.
class QuietJob : public SilentJob {
 public:
  explicit QuietJob(Job& job) : job_(job) {}
  bool shouldStop() override { return job_.shouldStop(); }

 private:
  Job& job_;
};

u32 chainEnd(const FatLinks& links, u32 first, u32& length) {
  u32 last = first;
  length = 1;
  // One that loops is met where nothing was checked before.
  for (u32 next = links.next(first); next != 0 && length <= links.highestCluster();
       next = links.next(next), ++length)
    last = next;
  return last;
}

// The tail of a file, when it does not need all of its last cluster.
void addTail(const FatResizePlan& plan, const FatLinks& links, u32 first, u32 sizeBytes,
             FatTree& tree) {
  if (plan.pieceClusters == 1 || sizeBytes == 0) return;
  const u32 inLast = (sizeBytes - 1) % plan.oldLayout.clusterBytes() + 1;
  const u32 piece = plan.newLayout.clusterBytes();
  const u32 pieces = (inLast + piece - 1) / piece;
  if (pieces == plan.pieceClusters) return;
  u32 length = 0;
  tree.tails.push_back({chainEnd(links, first, length), pieces});
}

}  // namespace

Failure readFatTree(const FatVolume& volume, const FatResizePlan& plan, const FatLinks& links,
                    Job& job, FatTree& tree) {
  QuietJob quiet(job);
  FatClusterMap map(volume);
  bool same = true;
  if (const Failure failed = map.read(0, FatClusterMap::kNoCopy, quiet, same)) return failed;
  FatDirectoryWalk walk(volume, map, quiet);
  tree = {};
  if (volume.rootCluster() != 0) tree.directories.push_back(volume.rootCluster());
  const Failure failed = walk.run([&](const FatDirectoryWalk::Found& found) {
    if (!links.isCluster(found.firstCluster)) return FatDirectoryWalk::Next::goOn;
    if (found.isDirectory()) {
      tree.directories.push_back(found.firstCluster);
      return FatDirectoryWalk::Next::enter;
    }
    if (found.directory == 0 && isNamed(found.entry, kExtendedAttributes) &&
        links.next(found.firstCluster) != 0)
      tree.hasExtendedAttributes = true;
    addTail(plan, links, found.firstCluster, found.entry.sizeBytes, tree);
    return FatDirectoryWalk::Next::goOn;
  });
  std::sort(tree.tails.begin(), tree.tails.end(),
            [](const FatTree::Tail& a, const FatTree::Tail& b) { return a.cluster < b.cluster; });
  return failed;
}

u32 FatRenumbering::newNumber(u32 old) const {
  if (!links_.isCluster(old)) return old;
  return plan_.mapCluster(moves_.placeOf(old));
}

bool FatRenumbering::renumber(std::span<u8> bytes, bool& ended) const {
  const bool wasFat32 = plan_.oldLayout.isFat32();
  const bool isFat32 = plan_.newLayout.isFat32();
  bool changed = false;
  auto* entries = reinterpret_cast<FatDirectoryEntryRecord*>(bytes.data());
  for (std::size_t i = 0; i < bytes.size() / sizeof(FatDirectoryEntryRecord) && !ended; ++i) {
    FatDirectoryEntryRecord& entry = entries[i];
    const u8 first = static_cast<u8>(entry.name[0]);
    ended = first == kFatEndOfDirectory;
    if (ended || first == kFatDeleted || (entry.attributes & kFatVolumeLabel) != 0) continue;
    const u32 old = firstClusterOf(entry, wasFat32);
    // The root is 0 for its subdirectories, whatever cluster it lies in.
    const bool isRoot = old == volume_.rootCluster() && isNamed(entry, kFatDotDot);
    const u32 now = isRoot ? 0 : newNumber(old);
    const FatDirectoryEntryRecord before = entry;
    // The upper half is something else before FAT32.
    if (wasFat32 || isFat32)
      setFirstCluster(entry, now);
    else
      entry.firstClusterLow = static_cast<u16>(now);
    changed |= std::memcmp(&before, &entry, sizeof(entry)) != 0;
  }
  return changed;
}

Failure FatRenumbering::renumberDirectory(u32 first) const {
  const u32 most = std::max(u32{1}, kPieceBytes / plan_.oldLayout.clusterBytes());
  bool ended = false;
  for (u32 at = first; at != 0 && !ended;) {
    const u32 place = moves_.placeOf(at);
    u32 count = 1;
    at = links_.next(at);
    while (at != 0 && count < most && moves_.placeOf(at) == place + count) {
      ++count;
      at = links_.next(at);
    }
    if (const Failure failed = renumberRun(place, count, ended)) return failed;
  }
  return plan_.groupClusters == 1 ? Failure() : clearTail(first);
}

Failure FatRenumbering::renumberRun(u32 place, u32 count, bool& ended) const {
  const FatLayout& layout = plan_.oldLayout;
  const u64 lba = volume_.range.firstSector + layout.clusterToSector(place);
  const u64 sectors = u64{count} * layout.sectorsPerCluster;
  std::vector<u8> bytes(sectors * layout.bytesPerSector);
  if (const Failure failed = volume_.range.disk.readSectors(lba, bytes.data(), sectors))
    return failed;
  if (!renumber(bytes, ended)) return {};
  return volume_.range.disk.writeSectors(lba, bytes.data(), sectors);
}

// Behind its last old cluster, up to the end of the new one.
Failure FatRenumbering::clearTail(u32 first) const {
  u32 length = 0;
  const u32 last = chainEnd(links_, first, length);
  const u32 missing = (plan_.groupClusters - length % plan_.groupClusters) % plan_.groupClusters;
  if (missing == 0) return {};
  const FatLayout& layout = plan_.oldLayout;
  const std::vector<u8> zeros(std::size_t{missing} * layout.clusterBytes());
  return volume_.range.disk.writeSectors(
      volume_.range.firstSector + layout.clusterToSector(moves_.placeOf(last) + 1), zeros.data(),
      u64{missing} * layout.sectorsPerCluster);
}

}  // namespace tallowin
