#include "disk/mount_check.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>

#include "base/text.h"
#include "disk/sys_block.h"

namespace tallowin {
namespace {

// A whole disk of this machine, as the checks need it.
struct BlockDisk {
  std::string path;
  std::string sysFolder;
  u64 deviceNumber = 0;
};

struct ByteExtent {
  u64 start = 0;
  u64 size = 0;
};

class NodeProbe {
 public:
  NodeProbe(Host& host, const std::string& path)
      : host_(host), descriptor_(host.open(path, O_RDONLY | O_NONBLOCK)) {
    isForbidden_ = descriptor_ < 0 && (errno == EACCES || errno == EPERM);
  }
  ~NodeProbe() {
    if (descriptor_ >= 0) host_.close(descriptor_);
  }
  NodeProbe(const NodeProbe&) = delete;
  NodeProbe& operator=(const NodeProbe&) = delete;

  // A node that one may not open is there all the same: without root rights an image file whose
  // partition is mounted must still be found in use.
  bool isThere() const { return descriptor_ >= 0 || isForbidden_; }
  u64 startSector() {
    hd_geometry answer{};
    return host_.control(descriptor_, HDIO_GETGEO, &answer) == 0 ? u64{answer.start} : kAllOnes64;
  }
  u64 sizeBytes() {
    u64 bytes = 0;
    return host_.control(descriptor_, BLKGETSIZE64, &bytes) == 0 ? bytes : kAllOnes64;
  }

 private:
  Host& host_;
  int descriptor_;
  bool isForbidden_ = false;
};

// The mount tables write blanks and the like as \ooo.
std::string unescaped(std::string_view field) {
  const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
        isOctal(field[i + 2]) && isOctal(field[i + 3])) {
      text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                (field[i + 3] - '0'));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

std::vector<std::string> blankSeparated(std::string_view line) {
  std::vector<std::string> fields;
  while (true) {
    const std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos) return fields;
    line.remove_prefix(first);
    const std::size_t length = std::min(line.find_first_of(" \t"), line.size());
    fields.push_back(unescaped(line.substr(0, length)));
    line.remove_prefix(length);
  }
}

// The folder of a node that is the disk or a partition of it, by the kernel's numbers, and where
// those are hidden by its names; empty when it is neither.
std::string folderOn(Host& host, const BlockDisk& disk, const std::string& node) {
  std::string folder = sysFolderOf(host, node);
  if (folder == disk.sysFolder || folder.starts_with(disk.sysFolder + "/")) return folder;
  const std::string resolvedDisk = host.resolveLink(disk.path);
  if (node == disk.path || node == resolvedDisk) return disk.sysFolder;
  const bool isNamedSo =
      namesDiskOrPartition(disk.path, node) || namesDiskOrPartition(resolvedDisk, node);
  return isNamedSo ? disk.sysFolder + "/" + sysNameOf(node) : std::string();
}

// Where a node with that folder lies on its disk; nothing when that cannot be found out.
std::optional<ByteExtent> extentOf(Host& host, const BlockDisk& disk, const std::string& folder,
                                   const std::string& node) {
  NodeProbe probe(host, node);
  if (!probe.isThere()) return std::nullopt;
  u64 start = folder == disk.sysFolder ? 0 : host.number(folder + "/start");
  if (start == kAllOnes64) start = probe.startSector();
  u64 size = host.number(folder + "/size");
  const u64 sizeBytes = size == kAllOnes64 ? probe.sizeBytes() : size * kSysSectorBytes;
  if (start == kAllOnes64 || sizeBytes == kAllOnes64) return std::nullopt;
  return ByteExtent{start * kSysSectorBytes, sizeBytes};
}

std::optional<MountInfo> findMountIn(Host& host, const char* table, const BlockDisk& disk,
                                     u64 startByte) {
  for (const std::string& line : host.lines(table)) {
    if (!line.starts_with("/dev/")) continue;
    const std::vector<std::string> fields = blankSeparated(line);
    const std::string node = host.resolveLink(fields[0]);
    const std::string folder = folderOn(host, disk, node);
    if (folder.empty()) continue;
    const auto extent = extentOf(host, disk, folder, node);
    if (!extent || extent->start != startByte) continue;
    if (std::string_view(table) == "/proc/swaps") return MountInfo{{}, "swap", {}};
    const auto field = [&](std::size_t i) { return i < fields.size() ? fields[i] : std::string(); };
    return MountInfo{field(1), field(2), field(3)};
  }
  return std::nullopt;
}

std::optional<MountInfo> findMountAt(Host& host, const BlockDisk& disk, u64 startByte) {
  auto found = findMountIn(host, "/proc/mounts", disk, startByte);
  return found ? found : findMountIn(host, "/proc/swaps", disk, startByte);
}

// One use of a disk, in bytes from its start.
struct FoundUse {
  UseKind kind = UseKind::mounted;
  std::string node = {};
  std::string where = {};
  ByteExtent extent = {};
};

std::optional<FoundUse> mountUse(Host& host, const BlockDisk& disk, u64 startByte) {
  const auto mount = findMountAt(host, disk, startByte);
  if (!mount) return std::nullopt;
  const bool isSwap = mount->mountPoint.empty() && mount->type == "swap";
  return FoundUse{.kind = isSwap ? UseKind::swap : UseKind::mounted, .where = mount->mountPoint};
}

// LUKS, LVM and RAID name themselves in the folder of what they stand on.
std::optional<FoundUse> holderUse(Host& host, const std::string& sysFolder) {
  const std::vector<std::string> holders = host.list(sysFolder + "/holders", "*");
  if (holders.empty()) return std::nullopt;
  const auto name = host.firstLine("/sys/block/" + holders.front() + "/dm/name");
  std::string where = holders.front();
  if (name) where += " (" + *name + ")";
  return FoundUse{.kind = UseKind::held, .where = std::move(where)};
}

std::optional<FoundUse> exclusiveUse(Host& host, const std::string& node) {
  const int descriptor = host.open(node, O_RDONLY | O_NONBLOCK | O_EXCL);
  if (descriptor >= 0) host.close(descriptor);
  if (descriptor >= 0 || errno != EBUSY) return std::nullopt;
  return FoundUse{.kind = UseKind::openedBy};
}

u64 sizeOf(Host& host, const BlockDisk& disk) {
  const u64 size = host.number(disk.sysFolder + "/size");
  return size == kAllOnes64 ? kAllOnes64 : size * kSysSectorBytes;
}

std::vector<FoundUse> usesOf(Host& host, const BlockDisk& disk) {
  std::vector<FoundUse> uses;
  const auto add = [&](std::optional<FoundUse> use, const std::string& node, ByteExtent extent) {
    if (!use) return false;
    use->node = node;
    use->extent = extent;
    uses.push_back(std::move(*use));
    return true;
  };
  for (const SysPartition& partition : kernelPartitions(host, disk.sysFolder)) {
    const std::string node = devicePathOf(partition.name);
    const ByteExtent extent{partition.start * kSysSectorBytes, partition.size * kSysSectorBytes};
    const bool isFound =
        add(mountUse(host, disk, extent.start), node, extent) ||
        add(holderUse(host, disk.sysFolder + "/" + partition.name), node, extent) ||
        add(exclusiveUse(host, node), node, extent);
    static_cast<void>(isFound);
  }
  const bool partitionsAreFree = uses.empty();
  const ByteExtent whole{0, sizeOf(host, disk)};
  // A partition opened exclusively makes its disk refuse the same, so that is asked last.
  if (add(mountUse(host, disk, 0), disk.path, whole) ||
      add(holderUse(host, disk.sysFolder), disk.path, whole) ||
      (partitionsAreFree && add(exclusiveUse(host, disk.path), disk.path, whole)))
    std::rotate(uses.begin(), uses.end() - 1, uses.end());
  return uses;
}

// One file by whatever path: a loop device tells the path by which it was made.
bool isBackedBy(const std::string& backingFile, const std::string& imagePath) {
  std::error_code error;
  return backingFile == imagePath || std::filesystem::equivalent(backingFile, imagePath, error) ||
         std::filesystem::weakly_canonical(imagePath, error) == backingFile;
}

std::string backingFileOf(Host& host, const std::string& sysFolder) {
  constexpr std::size_t kLongestPath = 4096;
  return host.firstLine(sysFolder + "/loop/backing_file", kLongestPath).value_or("");
}

// Where in its file a loop device begins.
u64 loopOffsetOf(Host& host, const std::string& sysFolder) {
  const u64 offset = host.number(sysFolder + "/loop/offset");
  return offset == kAllOnes64 ? 0 : offset;
}

// Uses of a file through the loop devices that stand on it, in bytes from its start; not those of
// the loop device `asked` itself.
std::vector<FoundUse> loopUses(Host& host, const std::string& file, u64 asked = 0) {
  std::vector<FoundUse> all;
  for (const std::string& loop : host.list("/sys/block", "loop*")) {
    const std::string folder = "/sys/block/" + loop;
    const std::string backing = backingFileOf(host, folder);
    if (backing.empty() || !isBackedBy(backing, file)) continue;
    const std::string path = devicePathOf(loop);
    const auto info = host.nodeInfo(path);
    const u64 number = info ? makedev(info->major, info->minor) : 0;
    if (asked != 0 && number == asked) continue;
    for (FoundUse& use : usesOf(host, {path, folder, number})) {
      use.extent.start += loopOffsetOf(host, folder);
      all.push_back(std::move(use));
    }
  }
  return all;
}

// What other loop devices on the file of a loop device use of it, in bytes from its own start.
std::vector<FoundUse> usesBeside(Host& host, const BlockDisk& loop) {
  const std::string backing = backingFileOf(host, loop.sysFolder);
  if (backing.empty()) return {};
  const u64 ownStart = loopOffsetOf(host, loop.sysFolder);
  std::vector<FoundUse> uses = loopUses(host, backing, loop.deviceNumber);
  std::erase_if(uses, [&](FoundUse& use) {
    const u64 before = ownStart > use.extent.start ? ownStart - use.extent.start : 0;
    if (use.extent.size != kAllOnes64 && before >= use.extent.size) return true;
    use.extent.start += before - ownStart;
    if (use.extent.size != kAllOnes64) use.extent.size -= before;
    return false;
  });
  return uses;
}

BlockDisk blockDiskOf(Host& host, DiskDevice& disk) {
  const std::string& path = disk.traits().path;
  const u64 number = disk.traits().deviceNumber;
  return {path, sysFolderOf(host, path, number), number};
}

bool isBlockDevice(DiskDevice& disk) { return disk.traits().type == DiskType::blockDevice; }

DiskUse inSectors(const FoundUse& use, DiskDevice& disk) {
  const u64 sector = disk.sectorSize();
  DiskUse result{use.kind, use.node, use.where, use.extent.start / sector, kAllOnes64};
  if (use.extent.size != kAllOnes64) {
    const u64 lead = use.extent.start % sector;
    result.sectorCount = (lead + use.extent.size + sector - 1) / sector;
  }
  return result;
}

bool overlaps(const DiskUse& use, u64 start, u64 count) {
  return use.startSector <= start ? start - use.startSector < use.sectorCount
                                  : use.startSector - start < count;
}

}  // namespace

std::optional<MountInfo> findMount(Host& host, DiskDevice& disk, u64 startSector) {
  if (!isBlockDevice(disk)) return std::nullopt;
  return findMountAt(host, blockDiskOf(host, disk), startSector * disk.sectorSize());
}

std::vector<DiskUse> driveUse(Host& host, DiskDevice& disk) {
  std::vector<FoundUse> found;
  if (isBlockDevice(disk)) {
    const BlockDisk block = blockDiskOf(host, disk);
    found = usesOf(host, block);
    std::ranges::move(usesBeside(host, block), std::back_inserter(found));
  } else {
    found = loopUses(host, disk.traits().path);
  }
  std::vector<DiskUse> uses;
  uses.reserve(found.size());
  for (const FoundUse& use : found) uses.push_back(inSectors(use, disk));
  return uses;
}

std::optional<DiskUse> partitionUse(Host& host, DiskDevice& disk, u64 startSector,
                                    u64 sectorCount) {
  for (DiskUse& use : driveUse(host, disk)) {
    if (overlaps(use, startSector, std::max<u64>(sectorCount, 1))) return std::move(use);
  }
  // Where the kernel lists no partitions of the disk, its mount tables may still know one.
  const auto mount = findMount(host, disk, startSector);
  if (!mount) return std::nullopt;
  const UseKind kind = mount->mountPoint.empty() ? UseKind::swap : UseKind::mounted;
  return DiskUse{kind, disk.traits().path, mount->mountPoint, startSector, sectorCount};
}

}  // namespace tallowin
