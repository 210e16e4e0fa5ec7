#include "disk/kernel_table.h"

#include <fcntl.h>
#include <linux/blkpg.h>
#include <linux/fs.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "base/text.h"
#include "disk/sys_block.h"

namespace tallowin {
namespace {

// A partition in bytes, the unit of the kernel's requests.
struct Extent {
  u32 number = 0;
  u64 startBytes = 0;
  u64 sizeBytes = 0;

  friend bool operator==(const Extent&, const Extent&) = default;
};
using Extents = std::vector<Extent>;

// Of an extended partition the kernel keeps two of its sectors, or one of the disk's if that is
// more: room for a boot loader, none for a file system.
u64 keptBytes(const KernelPartition& partition, u32 sectorSizeBytes) {
  const u64 whole = partition.sectorCount * sectorSizeBytes;
  if (!partition.isExtended) return whole;
  return std::min(whole, std::max<u64>(2 * kSysSectorBytes, sectorSizeBytes));
}

Extents wantedExtents(std::span<const KernelPartition> wanted, u32 sectorSizeBytes) {
  Extents extents;
  for (const KernelPartition& partition : wanted) {
    if (partition.number == 0) continue;  // a file system on the disk itself
    extents.push_back({partition.number, partition.startSector * sectorSizeBytes,
                       keptBytes(partition, sectorSizeBytes)});
  }
  std::sort(extents.begin(), extents.end(),
            [](const Extent& a, const Extent& b) { return a.number < b.number; });
  return extents;
}

Extents kernelExtents(Host& host, const std::string& sysFolder) {
  Extents extents;
  for (const SysPartition& known : kernelPartitions(host, sysFolder)) {
    extents.push_back({known.number, known.start * kSysSectorBytes, known.size * kSysSectorBytes});
  }
  return extents;
}

const Extent* find(const Extents& extents, u32 number) {
  const auto found = std::find_if(extents.begin(), extents.end(),
                                  [&](const Extent& each) { return each.number == number; });
  return found == extents.end() ? nullptr : &*found;
}

class PartitionRequests {
 public:
  PartitionRequests(Host& host, int descriptor) : host_(host), descriptor_(descriptor) {}

  // Whether the kernel did it.
  bool isDone(int operation, const Extent& extent) {
    blkpg_partition partition{};
    partition.pno = static_cast<int>(extent.number);
    partition.start = static_cast<long long>(extent.startBytes);
    partition.length = static_cast<long long>(extent.sizeBytes);
    blkpg_ioctl_arg request{};
    request.op = operation;
    request.datalen = sizeof partition;
    request.data = &partition;
    return host_.control(descriptor_, BLKPG, &request) == 0;
  }

 private:
  Host& host_;
  int descriptor_;
};

// Deletes before it adds, and shrinks before it grows, so that nothing new meets something old.
// What the kernel refuses stays; the caller compares afterwards.
void bringUpToDate(PartitionRequests requests, const Extents& known, const Extents& wanted) {
  Extents stays;
  for (const Extent& old : known) {
    const Extent* wish = find(wanted, old.number);
    const bool canStay = wish != nullptr && wish->startBytes == old.startBytes;
    if (canStay || !requests.isDone(BLKPG_DEL_PARTITION, old)) stays.push_back(old);
  }
  for (const bool growing : {false, true}) {
    for (Extent& old : stays) {
      const Extent* wish = find(wanted, old.number);
      if (wish == nullptr || wish->startBytes != old.startBytes) continue;
      if (wish->sizeBytes == old.sizeBytes || (wish->sizeBytes > old.sizeBytes) != growing)
        continue;
      if (requests.isDone(BLKPG_RESIZE_PARTITION, *wish)) old = *wish;
    }
  }
  for (const Extent& wish : wanted) {
    if (find(stays, wish.number) == nullptr)
      static_cast<void>(requests.isDone(BLKPG_ADD_PARTITION, wish));
  }
}

}  // namespace

void dropPartitionBuffers(Host& host, const std::string& sysFolder, u32 sectorSizeBytes, u64 lba,
                          u64 count) {
  const u64 scale = sectorSizeBytes / kSysSectorBytes;
  for (const SysPartition& partition : kernelPartitions(host, sysFolder)) {
    const u64 first = partition.start / scale;
    const u64 sectors = (partition.start % scale + partition.size + scale - 1) / scale;
    if (first < lba ? lba - first >= sectors : first - lba >= count) continue;
    const int node = host.open(devicePathOf(partition.name), O_RDONLY | O_NONBLOCK);
    if (node < 0) continue;
    const auto info = host.nodeInfo(node);
    const auto number = host.firstLine(sysFolder + "/" + partition.name + "/dev");
    if (info && info->isBlockDevice && number == format("%u:%u", info->major, info->minor))
      static_cast<void>(host.control(node, BLKFLSBUF, nullptr));
    host.close(node);
  }
}

KernelTable tellKernelTable(Host& host, int descriptor, const std::string& sysFolder,
                            u32 sectorSizeBytes, std::span<const KernelPartition> wanted) {
  // Programs that look at new partitions keep them busy for a moment.
  constexpr int kTries = 10;
  constexpr u32 kPauseMilliseconds = 50;
  const Extents extents = wantedExtents(wanted, sectorSizeBytes);
  for (int attempt = 1;; ++attempt) {
    if (host.control(descriptor, BLKRRPART, nullptr) == 0) {
      // A kernel built without this kind of table finds nothing, today and after a restart. What
      // it has found is its own reading of the table, and no restart would change that either.
      if (kernelExtents(host, sysFolder).empty()) bringUpToDate({host, descriptor}, {}, extents);
      return KernelTable::upToDate;
    }
    const bool isNeverScanned = errno == EINVAL || errno == ENOTTY;
    const Extents known = kernelExtents(host, sysFolder);
    if (isNeverScanned && known.empty()) return KernelTable::upToDate;
    bringUpToDate({host, descriptor}, known, extents);
    if (kernelExtents(host, sysFolder) == extents) return KernelTable::upToDate;
    if (attempt == kTries) return KernelTable::restartNeeded;
    host.pause(kPauseMilliseconds);
  }
}

}  // namespace tallowin
